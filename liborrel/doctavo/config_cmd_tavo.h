#pragma once

#include "configurable/child.h"
#include "liborrel/units.h"

// Commands. The document resets them before each request, so that true is always a change.
class ConfigCmdTavo : public ConfigurableComposite {
 public:
  ConfigCmdTavo() : ConfigurableComposite("cmd") {}

  BoolLeaf Rect{this, "rect", units::kNone, "Starts a rectangular flash", false};
  BoolLeaf Mpf{this, "mpf", units::kNone, "Starts a multiphase flash", false};
  BoolLeaf Induction{this, "induction", units::kNone, "Starts an induction flash", false};
  BoolLeaf Dark{this, "dark", units::kNone, "Starts a dark pulse", false};
  BoolLeaf ZeroDc0{this, "zero_dc0", units::kNone,
                   "Takes the reading of the detector in the dark into DC0", false};
  BoolLeaf ZeroPc0{this, "zero_pc0", units::kNone,
                   "Takes the reading of the light sensor in the dark into Pc0", false};
  BoolLeaf Break{this, "break", units::kNone, "Ends the running flash or dark pulse", false};
  BoolLeaf Reset{this, "reset", units::kNone, "Returns the signal processor to plain measuring",
                 false};
  BoolLeaf Reboot{this, "reboot", units::kNone, "Restarts the machine", false};
  BoolLeaf Rawcapture{this, "rawcapture", units::kNone, "Starts a capture of raw detector data",
                      false};
  BoolLeaf Redmodon{this, "redmodon", units::kNone,
                    "Switches the modulation of red measuring light on", false};
  BoolLeaf Redmodoff{this, "redmodoff", units::kNone,
                     "Switches the modulation of red measuring light off", false};
  BoolLeaf Testvecton{this, "testvecton", units::kNone, "Replaces the detectors by a test vector",
                      false};
  BoolLeaf Testvectoff{this, "testvectoff", units::kNone, "Returns to the detectors", false};
};
