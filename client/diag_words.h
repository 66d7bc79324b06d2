#pragma once

#include <string>

// What a bit of DIAG means for its reader, after its name; the name alone where that is unknown.
std::string DiagInWords(const std::string& bit);
