#pragma once

#include "configurable/configbuiltin.h"
#include "configurable/configurable_composite.h"

// Switches of the outgoing streams; one client's at a time.
class ConfigOutputTavo : public ConfigurableComposite {
 public:
  ConfigOutputTavo();

  ConfigurableBool& Waveforms() { return waveforms; }
  ConfigurableBool& Status() { return status; }
  ConfigurableBool& Dataclock() { return dataclock; }
  ConfigurableBool& Datatest() { return datatest; }
  ConfigurableBool& Datarawcapture() { return datarawcapture; }

 private:
  ConfigurableBool waveforms{"waveforms", false};
  ConfigurableBool status{"status", false};
  ConfigurableBool dataclock{"dataclock", false};
  ConfigurableBool datatest{"datatest", false};
  ConfigurableBool datarawcapture{"datarawcapture", false};
};
