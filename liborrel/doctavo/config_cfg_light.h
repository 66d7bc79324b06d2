#pragma once

#include "configurable/child.h"
#include "liborrel/doctavo/tavo_choices.h"
#include "liborrel/units.h"

// Actinic light.
class ConfigLightSourceTavo : public ConfigurableComposite {
 public:
  ConfigLightSourceTavo() : ConfigurableComposite("lightsource") {}

  Child<ConfigLightSourceModeTavo> Control{
      this, "control", units::kNone,
      "How actinic light is set: off, by percent, held at a flux, or set to a flux once",
      ConfigLightSourceModeTavo::Off};
  FloatLeaf QSetpoint{this, "Q_setpoint", units::kPFD,
                      "Flux at the leaf that is wanted, measuring light included", 0.0F};
  FloatLeaf RedMix{this, "red_mix", units::kNone,
                   "Share of red in the flux, relative to the other two", 0.0F};
  FloatLeaf BlueMix{this, "blue_mix", units::kNone,
                    "Share of blue in the flux, relative to the other two", 0.0F};
  FloatLeaf FarredMix{this, "farred_mix", units::kNone,
                      "Share of far red in the flux, relative to the other two", 0.0F};
  FloatLeaf Transmittance{this,         "transmittance",
                          units::kNone, "Transmittance of the light path, by which PFD is scaled",
                          1.0F,         0.0F,
                          1.0F,         false};
  FloatLeaf DRedPercent{this,
                        "D_red_percent",
                        units::kPercent,
                        "Red light in percent of its range",
                        0.0F,
                        0.0F,
                        100.0F,
                        false};
  FloatLeaf DBluePercent{this,
                         "D_blue_percent",
                         units::kPercent,
                         "Blue light in percent of its range",
                         0.0F,
                         0.0F,
                         100.0F,
                         false};
  FloatLeaf DFarredPercent{this,
                           "D_farred_percent",
                           units::kPercent,
                           "Far-red light in percent of its range",
                           0.0F,
                           0.0F,
                           100.0F,
                           false};
};

// Measuring light, its modulation, and the rate of samples.
class ConfigCfgMeasure : public ConfigurableComposite {
 public:
  ConfigCfgMeasure() : ConfigurableComposite("measure") {}

  Child<ConfigControlMode> Control{this, "control", units::kNone,
                                   "How measuring light is set: off, by percent, or by its flux",
                                   ConfigControlMode::Off};
  IntegerLeaf Outrate{
      this,       "outrate",
      units::kHz, "Samples per second; the nearest rate that the modulation allows is taken",
      1,          1,
      10000};
  Child<ConfigModRate> DarkModrate{this, "dark_modrate", units::kHz, "Modulation rate in the dark",
                                   0};
  Child<ConfigModRate> LightModrate{this, "light_modrate", units::kHz,
                                    "Modulation rate in actinic light", 0};
  Child<ConfigModRate> FlashModrate{this, "flash_modrate", units::kHz,
                                    "Modulation rate in rectangular and multiphase flashes", 0};
  FloatLeaf QModredSetpoint{this, "Q_modred_setpoint", units::kPFD,
                            "Flux of measuring light in its pulses", 0.0F};
  FloatLeaf DModredPercent{this,
                           "D_modred_percent",
                           units::kPercent,
                           "Measuring light in percent of its range",
                           0.0F,
                           0.0F,
                           100.0F,
                           false};
};

// Capture of raw detector data.
class ConfigCfgRawDataCapture : public ConfigurableComposite {
 public:
  ConfigCfgRawDataCapture() : ConfigurableComposite("rawdatacapture") {}

  Child<ConfigRawCaptureStart> When{this, "when", units::kNone, "What a capture waits for",
                                    ConfigRawCaptureStart::Now};
  IntegerLeaf Size{
      this, "size", units::kNone, "How much to capture, as the signal processor counts it", 0, 0};
};
