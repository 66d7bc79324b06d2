#pragma once

#include <optional>
#include <string>
#include <vector>

// A simulated leaf: the chlorophyll fluorescence of photosystem II (PSII) under changing light.
//
// Three pools take the electrons that light sets free, one behind the other: the primary acceptor
// QA of each reaction centre, plastoquinone (PQ), and the acceptors of photosystem I (PSI), which
// carbon fixation empties. With A, P and X the reduced fractions of each, at a photon flux Q:
//
//   dA/dt = sigma Q (1 - A) - k_AP A (1 - P)
//   n_P dP/dt = k_AP A (1 - P) - k_PX P (1 - X) - k_farred Q_farred P
//   n_X dX/dt = k_PX P (1 - X) - k_X s X
//
// A reaction centre with reduced QA is closed. Filling one pool after the other gives the O-J-I-P
// rise of strong light on its time scale: J after a few ms, I near 30 ms, P within half a second.
// Closed centres pass excitation on to open ones (connectivity p), and fluorescence is
// F = Fo' + (Fm' - Fo') V with V = (1 - p) A / (1 - p A). Non-photochemical quenching N follows
// light slowly and lowers both ends: Fm' = Fm / (1 + N), Fo' = Fo / (Fv/Fm + Fo/Fm'). So does s,
// the light activation of carbon fixation.
//
// Sources: Joliot & Joliot 1964, C. R. Acad. Sci. 258:4622 (connectivity); Strasser et al. 1995,
// Photochem. Photobiol. 61:32 (O-J-I-P); Bilger & Björkman 1990, Photosynth. Res. 25:173 (N);
// Oxborough & Baker 1997, Photosynth. Res. 54:135 (Fo').
class Leaf {
 public:
  struct Parameters {
    double fo = 0.2;              // of Fm, which is 1: Fv/Fm is 1 - fo
    double sigma = 0.2;           // m² per µmol: centres closed per photon flux, 1/s
    double k_ap = 1000;           // 1/s
    double k_px = 250;            // 1/s
    double k_x = 160;             // 1/s with carbon fixation fully active
    double k_farred = 2;          // m² per µmol
    double n_p = 8;               // electrons that PQ takes, per centre
    double n_x = 12;              // the same for the acceptors of PSI
    double connectivity = 0.5;    // p
    double n_max = 2.5;           // N in the strongest light
    double n_half = 700;          // µmol/m²/s at which N goes half way
    double acidity_time = 8;      // s
    double n_rise = 60;           // s
    double n_fall = 240;          // s
    double activation_half = 80;  // µmol/m²/s
    double activation_time = 90;  // s
    double activation_dark = 0.05;
    // Light in which the leaf has been for long, µmol/m²/s.
    double adapted_to = 0;
  };

  // A leaf by its name; nothing for a name that is not known.
  static std::optional<Leaf> Named(const std::string& name);
  static std::vector<std::string> Names();

  explicit Leaf(const Parameters& leaf_parameters);

  // Lets time pass under constant light, both in µmol/m²/s: what PSII absorbs, and far red, which
  // works on PSI alone.
  void Advance(double seconds, double q, double q_farred);

  // Relative to Fm of the rested leaf. 0 where there is no leaf.
  double Fluorescence() const;
  double Fm() const { return 1 / (1 + quenching); }
  double Fo() const;

 private:
  void StepPools(double dt, double q, double q_farred);

  Parameters parameters;
  double qa = 0;          // A
  double pq = 0;          // P
  double psi = 0;         // X
  double acidity = 0;     // 0..1
  double quenching = 0;   // N
  double activation = 0;  // s
};
