#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Helpers for texts, by byte, with the C library's idea of white space and case.

// As strcmp, ignoring case; of two texts of which one begins with the other, the shorter is first.
int CaseInsensitiveStringCompare(std::string_view a, std::string_view b);
// Place of the first match at or after `start`, ignoring case; -1 if there is none, or if `start`
// is not inside the text.
int CaseInsensitiveStringFind(std::string_view text, std::string_view pattern, std::size_t start);
// Without white space at both ends.
std::string StripEndWS(std::string_view text);
// The first byte that is no white space; 0 if there is none.
char FirstNonSpace(std::string_view text);
// Without white space other than blanks.
std::string RemoveSpaceExceptBlanks(std::string_view text);
// The same, and keeps only the first of several blanks in a row.
std::string CollapseSpace(std::string_view text);
std::string RemoveChar(std::string_view text, char byte);
// Appends the words of `text`, which blanks separate, to `words`. A word in single or double quotes
// may hold blanks; the quotes go.
void SplitCommandLine(std::string_view text, std::vector<std::string>& words);
