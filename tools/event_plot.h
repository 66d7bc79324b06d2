#pragma once

#include <string>

#include "client/event_record.h"
#include "tools/gnuplot.h"

// Drawings of the record of a flash or dark pulse: F over time with the phases shaded and named and
// with FMAX or FMIN, and the light below it. For a multiphase flash also F over 10 000/PFD in phase
// 2, with the line and its intercept; for an induction time is logarithmic, from the first light
// on, with O, J, I and P marked.

// A script by which gnuplot draws it. The points of long events are thinned as far as the eye does
// not see it.
std::string PlotScript(const EventRecord& event, const PictureFormat& format);

// Draws it into a file, which appears whole or not at all: SVG, PNG or PDF by the ending of its
// name. Throws FileError for another ending and for a file that can't be written, and ClientError
// where gnuplot is missing or fails.
void DrawFile(const EventRecord& event, const std::string& path);
