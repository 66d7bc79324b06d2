#pragma once

#include "configurable/child.h"
#include "liborrel/units.h"

// A saturating flash of one level.
class ConfigCfgRectangularFlash : public ConfigurableComposite {
 public:
  ConfigCfgRectangularFlash() : ConfigurableComposite("rectflash") {}

  IntegerLeaf Outrate{this, "outrate", units::kHz, "Samples per second", 1, 1, 10000};
  IntegerLeaf Margin{this, "margin", units::kPoints, "Samples before and after the flash", 0,
                     0,    100};
  IntegerLeaf Duration{this, "duration", units::kMs, "Length of the flash", 0, 0, 3000};
  FloatLeaf QRedSetpoint{this, "Q_red_setpoint", units::kPFD,
                         "Flux of red light, unless light is set in percent", 0.0F};
  FloatLeaf DRedPercent{this, "D_red_percent", units::kPercent,
                        "Red light where light is set in percent", 0.0F};
};

// A multiphase flash: full light, a ramp down by `ramp`, and full light again.
class ConfigCfgMultiPhaseFlash : public ConfigurableComposite {
 public:
  ConfigCfgMultiPhaseFlash() : ConfigurableComposite("multiphaseflash") {}

  IntegerLeaf Outrate{this, "outrate", units::kHz, "Samples per second", 1, 1, 10000};
  IntegerLeaf Margin{this, "margin", units::kPoints, "Samples before and after the flash", 0,
                     0,    100};
  IntegerLeaf Phase1Duration{
      this, "phase1_duration", units::kMs, "Length of the first phase, at full light", 0, 0, 3000};
  IntegerLeaf Phase2Duration{
      this, "phase2_duration", units::kMs, "Length of the second phase, the ramp", 0, 0, 3000};
  IntegerLeaf Phase3Duration{
      this, "phase3_duration", units::kMs, "Length of the third phase, at full light", 0, 0, 3000};
  FloatLeaf QRedSetpoint{this, "Q_red_setpoint", units::kPFD,
                         "Flux of red light at full light, unless light is set in percent", 0.0F};
  FloatLeaf DRedPercent{this, "D_red_percent", units::kPercent,
                        "Red light at full light where light is set in percent", 0.0F};
  FloatLeaf Ramp{this,
                 "ramp",
                 units::kPercent,
                 "How far the ramp goes down: 0 stays at full light, 100 ends at the actinic light",
                 0.0F,
                 0.0F,
                 100.0F,
                 false};
};

// A flash for the induction curve, at the full modulation rate.
class ConfigCfgInductionFlash : public ConfigurableComposite {
 public:
  ConfigCfgInductionFlash() : ConfigurableComposite("inductionflash") {}

  IntegerLeaf Margin{this,
                     "margin",
                     units::kPoints,
                     "Samples before the flash; ten thousand times as many after it",
                     0,
                     0,
                     100};
  IntegerLeaf Duration{this, "duration", units::kMs, "Length of the flash", 0, 0, 3000};
  FloatLeaf QRedSetpoint{this, "Q_red_setpoint", units::kPFD,
                         "Flux of red light, unless light is set in percent", 0.0F};
  FloatLeaf DRedPercent{this, "D_red_percent", units::kPercent,
                        "Red light where light is set in percent", 0.0F};
};

// A dark pulse, with far-red light from `before` to `after` within it.
class ConfigCfgDarkPulse : public ConfigurableComposite {
 public:
  ConfigCfgDarkPulse() : ConfigurableComposite("darkpulse") {}

  IntegerLeaf Outrate{this, "outrate", units::kHz, "Samples per second", 1, 1, 10000};
  IntegerLeaf Duration{this, "duration", units::kSecs, "Length of the pulse", 0, 0};
  IntegerLeaf Margin{this, "margin", units::kPoints, "Samples before and after the pulse", 0,
                     0,    100};
  IntegerLeaf Before{
      this, "before", units::kSecs, "When far-red light goes on, from the start of the pulse",
      0,    0};
  IntegerLeaf After{this,
                    "after",
                    units::kSecs,
                    "When far-red light goes off, likewise; a second before its end at the latest",
                    0,
                    0};
  FloatLeaf QFarredSetpoint{this, "Q_farred_setpoint", units::kPFD,
                            "Flux of far-red light, unless light is set in percent", 0.0F};
  FloatLeaf DFarredPercent{this, "D_farred_percent", units::kPercent,
                           "Far-red light where light is set in percent", 0.0F};
};
