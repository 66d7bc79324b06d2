#pragma once

#include <ostream>

// Runs every self-test of the program; a failure ends the process.
void RunSelfTests(std::ostream& out);
