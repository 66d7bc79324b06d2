#pragma once

#include "configurable/child.h"
#include "liborrel/units.h"

// Switches of the outgoing streams, of one client at a time.
class ConfigOutputTavo : public ConfigurableComposite {
 public:
  ConfigOutputTavo() : ConfigurableComposite("output") {}

  BoolLeaf Waveforms{this, "waveforms", units::kNone,
                     "Waveform rows, of which this head makes none", false};
  BoolLeaf Status{this, "status", units::kNone, "DATASTAT rows", false};
  BoolLeaf Dataclock{this, "dataclock", units::kNone,
                     "Data clock rows, of which this head makes none", false};
  BoolLeaf Datatest{this, "datatest", units::kNone, "DATATEST rows; a client begins with them on",
                    false};
  BoolLeaf Datarawcapture{this, "datarawcapture", units::kNone, "DATAFLRAW rows", false};
};
