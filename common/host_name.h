#pragma once

#include <string>

// The machine's host name, at most 127 bytes of it; empty if the system reports none.
std::string GetHostName();
