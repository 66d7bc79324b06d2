#pragma once

#include <string>

#include "common/machine.h"
#include "leaf/lumet/instrument.h"

// Where the bench keeps its files by default: a directory of this user's own, under
// the runtime directory or else the directory for temporary files.
std::string DefaultBenchRoot();

// A head that keeps every file below `root`, which this creates with the directories that a system
// has, and listens on loopback alone. Of the system it reads the time zones. Throws
// std::runtime_error, also for a `root` that is a link, belongs to somebody else or gives others
// any right.
Instrument BenchInstrument(const std::string& root);

// Acts that say what that head would have done to the machine instead of doing it.
Machine BenchMachine(const Instrument& instrument);
