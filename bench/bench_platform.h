#pragma once

#include <string>

#include "common/platform.h"

// Where the bench keeps its files if nobody says otherwise: a directory of this user's own, under
// the runtime directory or else the directory for temporary files.
std::string DefaultBenchRoot();

// A platform that keeps every file below `root`, which it creates, listens on loopback alone, stays
// the user it is, and says what the instrument would have done to the machine instead of doing it.
// Throws std::filesystem::filesystem_error.
Platform BenchPlatform(const std::string& root);
