#pragma once

#include <iosfwd>

// Writes docs/settings-reference.md: every node of a new head's tree with its type, range, unit,
// default and meaning, as the tree itself tells them.
void PrintSettingsReference(std::ostream& out);
