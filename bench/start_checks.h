#pragma once

#include <string>

#include "leaf/lumet/instrument.h"

// What may keep a head on the bench from starting, and the way out.

// Why a head that has not come to listen did not, as far as that can be seen now: another one runs
// with its files, or its port is taken. Otherwise empty.
std::string WhatIsInTheWay(const Instrument& instrument);

// Removes the files of earlier benches in the head's directory. Nothing is removed, and
// std::runtime_error thrown, if a head runs there or there is anything that no bench makes.
void EmptyBenchDirectory(const Instrument& instrument);
