#pragma once

#include <array>
#include <cstdint>

#include "liborrel/doctavo/doc_tavo.h"

// Holds actinic light at a wanted photon flux by a slow PI loop on measured PFD.
//
// Fed one sample at a time while the head is plainly measuring; events pause it. Reads its settings
// from the document, which must outlive it, and follows their changes.
class LumetLightController : public ConfigurableListener {
 public:
  // If `verbose`, each update is printed on standard output.
  LumetLightController(DocTavo& doc, bool verbose);
  ~LumetLightController() override;
  LumetLightController(const LumetLightController&) = delete;
  LumetLightController& operator=(const LumetLightController&) = delete;

  void item_changed(const ConfigurableEvent& event) override;

  // Takes one PFD reading, in µmol/m²/s. Returns true when the drive changed and the timing
  // settings must be sent again.
  bool Step(float measured_pfd);

  // DAC counts, 0..65535, for channel 0 red, 1 blue, 2 far red.
  unsigned short GetDac(unsigned channel) const;
  // All three.
  std::array<std::uint16_t, 3> GetDacs() const { return {GetDac(0), GetDac(1), GetDac(2)}; }

 private:
  static constexpr float kOff = -1;

  void LoadZeros();
  void ComputeMix();
  void LoadSettings();

  DocTavo& _doc;
  std::uint16_t _dac_max = 65535;
  float _gain = 0.1F;
  float _integral_time = 0.1F;
  // Keeps the integral term where it is across a change of rate.
  float _integral_scale = 1;
  float _dac_fraction = kOff;  // of Qmax
  float _setpoint = 0;         // µmol/m²/s
  float Qmax = 0;              // µmol/m²/s at a fraction of 1, for the mix
  float _err_sum = 0;          // since the last update
  std::uint32_t _err_count = 0;
  std::uint32_t _samples_per_update = 1;
  std::uint32_t _outrate = 1;  // Hz, as requested
  float _Q_err_integrator = 0;
  // Red, blue, far red.
  std::array<float, 3> _mix = {};  // DAC counts at a fraction of 1
  std::array<float, 3> _zero = {};
  bool _enabled = false;
  bool _verbose;
};
