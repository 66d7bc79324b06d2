#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "client/deadline.h"

// The record of a flash or dark pulse, as a head publishes it.
struct EventRecord {
  // A result that was not a number, or was infinite, is a NaN or an infinity. Throws ClientError
  // for a text that is not a record.
  static EventRecord Parse(const std::string& record);

  // The samples, one value of each for every sample.
  struct Curve {
    std::vector<double> seconds;       // since the first sample
    std::vector<double> fluorescence;  // LUMET, counts
    std::vector<double> dc;            // counts
    std::vector<double> pfd;           // µmol/m²/s
    std::vector<double> redmodavg;     // µmol/m²/s
    std::vector<double> farred;        // µmol/m²/s; empty unless the event is a dark pulse
    std::vector<int> code;             // the phase
  };

  // The line through F over 10000/PFD in phase 2 of a multiphase flash.
  struct Fit {
    double slope = 0;
    double intercept = 0;  // F at infinite light
    double r2 = 0;
    double slope_error = 0;
    double intercept_error = 0;
  };

  // A setting or a result by its name in capitals, such as "FMAX"; nothing if the record has none,
  // or if it is a text.
  std::optional<double> Number(std::string_view name) const;
  // The same, but throws ClientError instead.
  double operator[](std::string_view name) const;

  int id = 0;
  std::string device;      // serial number of the head
  std::string date;        // eight digits
  std::string time;        // local, "hh:mm:ss"
  double timestamp = 0;    // of the first sample, in seconds
  std::string type;        // "RECT", "MPF", "INDUCTION", "ZERO", "DARK" or "UNKNOWN"
  std::optional<Fit> fit;  // of a multiphase flash
  Curve curve;
  // All members but the arrays, those above among them.
  std::map<std::string, std::variant<double, std::string>, std::less<>> values;
};
