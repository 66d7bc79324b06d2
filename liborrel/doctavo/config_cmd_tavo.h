#pragma once

#include "configurable/configbuiltin.h"
#include "configurable/configurable_composite.h"

// Commands. The document resets them ahead of each request, so that true is always a change.
class ConfigCmdTavo : public ConfigurableComposite {
 public:
  ConfigCmdTavo();

  ConfigurableBool& Rect() { return rect; }
  ConfigurableBool& Mpf() { return mpf; }
  ConfigurableBool& Induction() { return induction; }
  ConfigurableBool& Dark() { return dark; }
  ConfigurableBool& ZeroDc0() { return zero_dc0; }
  ConfigurableBool& ZeroPc0() { return zero_pc0; }
  ConfigurableBool& Break() { return break_command; }
  ConfigurableBool& Reset() { return reset_command; }
  ConfigurableBool& Reboot() { return reboot; }
  ConfigurableBool& Rawcapture() { return rawcapture; }
  ConfigurableBool& Redmodon() { return redmodon; }
  ConfigurableBool& Redmodoff() { return redmodoff; }
  ConfigurableBool& Testvecton() { return testvecton; }
  ConfigurableBool& Testvectoff() { return testvectoff; }

 private:
  ConfigurableBool rect{"rect", false};
  ConfigurableBool mpf{"mpf", false};
  ConfigurableBool induction{"induction", false};
  ConfigurableBool dark{"dark", false};
  ConfigurableBool zero_dc0{"zero_dc0", false};
  ConfigurableBool zero_pc0{"zero_pc0", false};
  ConfigurableBool break_command{"break", false};
  ConfigurableBool reset_command{"reset", false};
  ConfigurableBool reboot{"reboot", false};
  ConfigurableBool rawcapture{"rawcapture", false};
  ConfigurableBool redmodon{"redmodon", false};
  ConfigurableBool redmodoff{"redmodoff", false};
  ConfigurableBool testvecton{"testvecton", false};
  ConfigurableBool testvectoff{"testvectoff", false};
};
