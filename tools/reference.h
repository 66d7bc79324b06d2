#pragma once

#include <optional>
#include <string>

// What a dark-adapted leaf has shown, with which later flashes on the same leaf are compared, and
// the quantities that follow from it.

struct DarkReference {
  double Fo = 0;                // F of the leaf in the dark, counts
  double Fm = 0;                // F in a saturating flash there, counts
  std::string device;           // serial number of the head; empty if it came without one
  std::string taken;            // local time
  std::string measuring_light;  // its settings then, since F depends on them

  // Variable over maximal fluorescence, the yield of photosystem II in the dark (Kitajima and
  // Butler 1975).
  double FvFm() const { return (Fm - Fo) / Fm; }
  // Non-photochemical quenching in a flash that gives Fm' (Bilger and Björkman 1990).
  double NPQ(double Fm_light) const { return Fm / Fm_light - 1; }
};

// The yield of photosystem II in the light: F before the flash, Fm' in it (Genty et al. 1989).
inline double PhiPSII(double F, double Fm_light) { return (Fm_light - F) / Fm_light; }

// Where the reference of a head is kept: lumet/reference-SERIAL in the user's state directory.
// Throws FileError if there is no such directory.
std::string ReferencePath(const std::string& device);
// Throws FileError.
void KeepReference(const std::string& path, const DarkReference& reference);
// Nothing if there is no such file. Throws FileError for one that is not a reference.
std::optional<DarkReference> ReadReference(const std::string& path);
// A text as part of a file's name.
std::string AsFileName(const std::string& text);
