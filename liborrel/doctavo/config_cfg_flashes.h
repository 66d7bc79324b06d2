#pragma once

#include "configurable/configbuiltin.h"
#include "configurable/configurable_composite.h"

// A saturating flash of one level.
class ConfigCfgRectangularFlash : public ConfigurableComposite {
 public:
  ConfigCfgRectangularFlash();

  ConfigurableInteger& Outrate() { return outrate; }
  ConfigurableInteger& Margin() { return margin; }
  ConfigurableInteger& Duration() { return duration; }
  ConfigurableFloat& QRedSetpoint() { return q_red_setpoint; }
  ConfigurableFloat& DRedPercent() { return d_red_percent; }

 private:
  ConfigurableInteger outrate{"outrate", 1, 1, 10000};
  ConfigurableInteger margin{"margin", 0, 0, 100};
  ConfigurableInteger duration{"duration", 0, 0, 3000};
  ConfigurableFloat q_red_setpoint{"Q_red_setpoint", 0};
  ConfigurableFloat d_red_percent{"D_red_percent", 0};
};

// A multiphase flash: full light, a ramp down by `ramp`, and full light again.
class ConfigCfgMultiPhaseFlash : public ConfigurableComposite {
 public:
  ConfigCfgMultiPhaseFlash();

  ConfigurableInteger& Outrate() { return outrate; }
  ConfigurableInteger& Margin() { return margin; }
  ConfigurableInteger& Phase1Duration() { return phase1_duration; }
  ConfigurableInteger& Phase2Duration() { return phase2_duration; }
  ConfigurableInteger& Phase3Duration() { return phase3_duration; }
  ConfigurableFloat& QRedSetpoint() { return q_red_setpoint; }
  ConfigurableFloat& DRedPercent() { return d_red_percent; }
  ConfigurableFloat& Ramp() { return ramp; }

 private:
  ConfigurableInteger outrate{"outrate", 1, 1, 10000};
  ConfigurableInteger margin{"margin", 0, 0, 100};
  ConfigurableInteger phase1_duration{"phase1_duration", 0, 0, 3000};
  ConfigurableInteger phase2_duration{"phase2_duration", 0, 0, 3000};
  ConfigurableInteger phase3_duration{"phase3_duration", 0, 0, 3000};
  ConfigurableFloat q_red_setpoint{"Q_red_setpoint", 0};
  ConfigurableFloat d_red_percent{"D_red_percent", 0};
  ConfigurableFloat ramp{"ramp", 0, 0, 100, false};
};

// A flash for the induction curve, at the full modulation rate.
class ConfigCfgInductionFlash : public ConfigurableComposite {
 public:
  ConfigCfgInductionFlash();

  ConfigurableInteger& Margin() { return margin; }
  ConfigurableInteger& Duration() { return duration; }
  ConfigurableFloat& QRedSetpoint() { return q_red_setpoint; }
  ConfigurableFloat& DRedPercent() { return d_red_percent; }

 private:
  ConfigurableInteger margin{"margin", 0, 0, 100};
  ConfigurableInteger duration{"duration", 0, 0, 3000};
  ConfigurableFloat q_red_setpoint{"Q_red_setpoint", 0};
  ConfigurableFloat d_red_percent{"D_red_percent", 0};
};

// A dark pulse, with far-red light from `before` to `after` within it.
class ConfigCfgDarkPulse : public ConfigurableComposite {
 public:
  ConfigCfgDarkPulse();

  ConfigurableInteger& Outrate() { return outrate; }
  ConfigurableInteger& Duration() { return duration; }
  ConfigurableInteger& Margin() { return margin; }
  ConfigurableInteger& Before() { return before; }
  ConfigurableInteger& After() { return after; }
  ConfigurableFloat& QFarredSetpoint() { return q_farred_setpoint; }
  ConfigurableFloat& DFarredPercent() { return d_farred_percent; }

 private:
  ConfigurableInteger outrate{"outrate", 1, 1, 10000};
  ConfigurableInteger duration{"duration", 0, 0};
  ConfigurableInteger margin{"margin", 0, 0, 100};
  ConfigurableInteger before{"before", 0, 0};
  ConfigurableInteger after{"after", 0, 0};
  ConfigurableFloat q_farred_setpoint{"Q_farred_setpoint", 0};
  ConfigurableFloat d_farred_percent{"D_farred_percent", 0};
};
