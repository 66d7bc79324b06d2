#pragma once

#include <istream>
#include <ostream>
#include <string_view>

// Numbers as the operators of standard streams read and write them, to the byte, at a fraction of
// the cost where the stream is in its default format and the text is a plain number. Anything else
// goes through the operators themselves. nan never shows a sign, which readers don't take and on
// which processors don't agree.

// Serves a float as well, whose text is that of the same double.
void WriteNumber(std::ostream& out, double value);
void WriteNumber(std::ostream& out, int value);

// As `out << text`.
void WriteText(std::ostream& out, std::string_view text);

// As `in >> value`: takes the longest number at the start of the text and leaves the rest; failure
// is the failbit.
void ReadNumber(std::istream& in, float& value);
void ReadNumber(std::istream& in, double& value);
void ReadNumber(std::istream& in, int& value);
