#pragma once

#include <ostream>
#include <string>

#include "client/event_record.h"

// Drawings of the record of a flash or dark pulse.

// Prints the results of the record and the settings that made it, one per line.
void PrintResults(const EventRecord& event, std::ostream& out);

// F and PFD over time with the phases shaded, as SVG; for a multiphase flash also F over 10000/Q in
// phase 2, with the fit and its intercept.
void DrawSvg(const EventRecord& event, std::ostream& out);

// Writes a script for gnuplot that draws the same into the file `png`.
void WriteGnuplot(const EventRecord& event, const std::string& png, std::ostream& out);

// Draws the same into a file: .png by gnuplot, which must be installed, anything else as SVG.
// Throws ClientError or ErrnoError.
void DrawFile(const EventRecord& event, const std::string& path);
