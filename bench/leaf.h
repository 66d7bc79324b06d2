#pragma once

#include <optional>
#include <string>
#include <vector>

// What a leaf lives in besides light, and how well it is.
struct Environment {
  double temperature = 25;  // °C
  double health = 1;        // share of PSII that light has not harmed, above 0
};

// A simulated leaf: the chlorophyll fluorescence of photosystem II (PSII) under changing light.
//
// Electrons that light sets free pass three pools: the primary acceptor QA of each reaction centre,
// plastoquinone (PQ), and the acceptors behind photosystem I (PSI), which carbon fixation empties.
// A, P and X are the reduced fractions of each. A centre with reduced QA is closed, and hands
// excitation on to open ones (connectivity p), so that the yield rises with the share
//   C = (1 - p) A / (1 - p A).
// With a photon flux Q, and per PSII:
//
//   QA       dA/dt = sigma' Q (1 - C) - J_AP
//   PQ   n_P dP/dt = J_AP - J_PX - k_ox P
//   PSI  n_X dX/dt = J_PX - k_X s X
//   QA to PQ       J_AP = k_AP (A (1 - P) (1 + K_m) / (1 - P + K_m) - P (1 - A) / K_eq)
//   PQ to PSI      J_PX = k_PX P w / (w + k_PX P)
//   drawn by PSI   w = u (1 - X) / (1 + u / k_P700),  u = k_PSI Q + k_farred Q_farred
//
// PQ binds at its site before it takes electrons (K_m), and gives some back (K_eq). PSI draws them
// only while it has light of its own; k_PSI is an apparent constant, well above what PSI absorbs,
// since plastocyanin keeps it supplied. So in the dark after light PQ stays reduced, and keeps part
// of the centres closed, until oxygen has taken its electrons in a few seconds (k_ox); far red,
// which works on PSI alone, takes them in some tenths of one.
//
// A closed centre does not give its full yield at once: R, which follows with reduced PQ, and E,
// which follows with the acceptors of PSI, have to rise first.
//
//   dR/dt = k_R A P² (1 - R) - k_open (1 - A) R      dE/dt = k_E X (1 - E) - k_rest E
//   F = Fo' + (Fm' - Fo') C (1 - phi_R (1 - R) - phi_E (1 - E))
//
// In strong light A, P with R, and X with E rise one after the other: the steps O-J, J-I and I-P.
//
// Non-photochemical quenching N follows light slowly, by way of the acidity of the lumen, and
// harmed centres quench too: Fm' = Fm / (N + 1 / health), Fo' = Fo / (Fv/Fm + Fo/Fm'). It takes
// from sigma what it takes from Fv/Fm: sigma' = sigma (Fv'/Fm') / (Fv/Fm). The light activation s
// of carbon fixation is slow as well. Temperature changes k_PX, k_X, and the light at which N goes
// halfway, all by exp(((25 - T_opt) / width)² - ((T - T_opt) / width)²).
//
// Sources:
// - C: Joliot & Joliot 1964, C. R. Acad. Sci. 258:4622. O-J-I-P: Strasser et al. 1995, Photochem.
//   Photobiol. 61:32.
// - A, P and electrons that come back: Stirbet et al. 1998, J. Theor. Biol. 193:131; Lazár 2003,
//   J. Theor. Biol. 220:469; the bound PQ: Zhu et al. 2005, Planta 223:114.
// - PSI that draws, electrons of PQ that oxygen takes, and N by way of the lumen: Ebenhöh et al.
//   2014, Phil. Trans. R. Soc. B 369:20130223; Matuszyńska et al. 2016, Biochim. Biophys. Acta
//   1857:1870.
// - A closed centre's lower yield at first, apart from QA: Samson & Bruce 1996, Biochim. Biophys.
//   Acta 1276:147; Magyar et al. 2018, Sci. Rep. 8:2755; Sipka et al. 2021, Plant Cell 33:1286; the
//   part that PQ has in it: Vernotte et al. 1979, Biochim. Biophys. Acta 545:519. Of the last step,
//   that it goes with the acceptors of PSI: Schansker et al. 2005, Biochim. Biophys. Acta 1706:250;
//   as a yield that follows them: Vredenberg 2011, BioSystems 103:138. That R goes with P² and E
//   with X is this model's own, the simplest form that keeps the steps apart.
// - N: Bilger & Björkman 1990, Photosynth. Res. 25:173; of harmed centres: Krause 1988, Physiol.
//   Plant. 74:566. Fo': Oxborough & Baker 1997, Photosynth. Res. 54:135.
// - Temperature: June et al. 2004, Funct. Plant Biol. 31:275.
class Leaf {
 public:
  // Rates are 1/s at 25 °C, and per PSII where they move electrons.
  struct Parameters {
    double fo = 0.2;              // of Fm, which is 1: Fv/Fm is 1 - fo
    double sigma = 0.467;         // m² per µmol: centres that light closes, 1/s per photon flux
    double connectivity = 0.115;  // p
    double k_ap = 845;
    double k_m = 0.073;  // K_m, of all PQ
    double k_eq = 4.5;   // K_eq
    double k_px = 310;
    double k_psi = 6;       // m² per µmol
    double k_p700 = 1100;   // the most that PSI can draw
    double k_farred = 0.8;  // m² per µmol
    double k_ox = 1.95;
    double k_x = 3700;  // with carbon fixation fully active
    double n_p = 5.2;   // electrons that PQ takes
    double n_x = 30;    // the same for the acceptors of PSI
    double phi_r = 0.278;
    double k_r = 197;
    double k_open = 117;
    double phi_e = 0.107;
    double k_e = 25;
    double k_rest = 0.02;
    double n_max = 2.5;           // N in the strongest light
    double n_half = 790;          // µmol/m²/s at which the acidity goes halfway
    double acidity_time = 8;      // s
    double n_rise = 60;           // s
    double n_fall = 240;          // s
    double activation_half = 80;  // µmol/m²/s
    double activation_time = 90;  // s
    double activation_dark = 0.0123;
    double health = 1;
    // Light in which the leaf has been for a long time, µmol/m²/s.
    double adapted_to = 0;
  };

  // A leaf by its name; nothing for a name that is not known.
  static std::optional<Leaf> Named(const std::string& name);
  static std::vector<std::string> Names();

  explicit Leaf(const Parameters& parameters);

  // Holds from now on. Its health multiplies that of the parameters.
  void SetEnvironment(const Environment& environment);

  // Lets time pass under constant light, both in µmol/m²/s: what both photosystems absorb, and far
  // red, which works on PSI alone. The outcome depends little on how the time is divided: the
  // fluorescence is within 0.2 % of Fm of what the finest steps give.
  void Advance(double seconds, double q, double q_farred);

  // Relative to Fm of the rested, healthy leaf. 0 where there is no leaf.
  double Fluorescence() const;
  // With all centres closed.
  double Fm() const { return 1 / (quenching + 1 / health); }
  // With all centres open.
  double Fo() const;

  // Reduced fractions.
  struct Pools {
    double qa = 0;   // A
    double pq = 0;   // P
    double psi = 0;  // X
  };

 private:
  struct Slopes;

  // Lets `longest` pass at most, less while the pools fill quickly; returns how much.
  double FillPools(double longest, double light, double light_psi);
  void FollowLight(double dt, double q);

  Parameters parameters;
  double health = 1;
  double warmth = 1;  // what temperature makes of the rates

  Pools pools;
  double step = 0.1;     // s, that the pools seem to allow next
  double ready = 0;      // R
  double energised = 0;  // E
  double acidity = 0;    // of the lumen, 0..1
  double quenching = 0;  // N
  double activation;     // s
};
