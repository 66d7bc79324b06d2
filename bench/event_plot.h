#pragma once

#include <json/json.h>

#include <ostream>
#include <string>
#include <vector>

// Drawings of the record of a flash or dark pulse.

// What a drawing needs of a record. Throws std::runtime_error for a text that is no event record.
struct EventSeries {
  static EventSeries Parse(const std::string& record);

  std::string type;
  std::vector<double> seconds;
  std::vector<double> fluorescence;  // LUMET
  std::vector<double> pfd;           // µmol/m²/s
  std::vector<int> code;
  Json::Value members;  // the whole record

  bool IsMultiPhase() const { return type == "MPF"; }
};

// The results of the record and the settings that made it, a line each.
void PrintResults(const EventSeries& event, std::ostream& out);

// F and PFD over time with the phases shaded, as SVG; for a multiphase flash also F over 10000/Q in
// phase 2, with the fit and its intercept.
void DrawSvg(const EventSeries& event, std::ostream& out);

// A script for gnuplot that draws the same into the file `png`.
void WriteGnuplot(const EventSeries& event, const std::string& png, std::ostream& out);
