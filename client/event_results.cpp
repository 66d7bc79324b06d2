#include "client/event_results.h"

#include <cmath>

const std::vector<Result>& Results(const std::string& type) {
  static const std::vector<Result> kDark = {
      {"FMIN", "counts", "Fo', the least F after the far red"},
      {"QMIN", "µmol/m²/s", "least PFD"},
      {"MODRATE", "Hz", "rate of the measuring light"}};
  static const std::vector<Result> kFlash = {{"FMAX", "counts", "Fm', the highest F"},
                                             {"QMAX", "µmol/m²/s", "highest PFD"},
                                             {"MODRATE", "Hz", "rate of the measuring light"}};
  static const std::vector<Result> kMultiPhase = {
      {"FMAX", "counts", "Fm': P2_INT, or P1_MAXF where that is higher"},
      {"QMAX", "µmol/m²/s", "highest PFD"},
      {"MODRATE", "Hz", "rate of the measuring light"},
      {"P1_MAXF", "counts", "highest F of phase 1"},
      {"P2_INT", "counts", "F at infinite light, from the line of F over 10000/PFD"},
      {"P2_INT_SE", "counts", "its standard error"},
      {"P2_SLP", "10⁴ counts µmol/m²/s", "slope of the line"},
      {"P2_SLP_SE", "10⁴ counts µmol/m²/s", "its standard error"},
      {"P2_R2", "", "R² of the line"},
      {"P2_DQDT", "mol/m²/s²", "slope of PFD over time"},
      {"P3_Q", "µmol/m²/s", "highest PFD of phase 3"},
      {"P3_MAXF", "counts", "highest F of phase 3"},
      {"P3_PREDF", "counts", "F of the line at P3_Q"},
      {"P3_DELTAF", "counts", "P3_MAXF - P3_PREDF"}};
  if (type == "DARK") return kDark;
  return type == "MPF" ? kMultiPhase : kFlash;
}

bool IsMeasured(double value) { return std::isfinite(value) && std::abs(value) < 1e38; }

std::string PhaseName(int code) {
  switch (code) {
    case 3:
      return "flash";
    case 4:
      return "phase 1";
    case 5:
      return "phase 2";
    case 6:
      return "phase 3";
    case 12:
      return "dark, before far red";
    case 13:
      return "dark, far red";
    case 14:
      return "dark, after far red";
    default:
      return "margin";
  }
}
