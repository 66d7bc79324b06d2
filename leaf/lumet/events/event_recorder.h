#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "leaf/lumet/bounds.h"
#include "leaf/lumet/events/event_analysis.h"
#include "leaf/lumet/events/event_samples.h"
#include "leaf/lumet/light/flash_mode.h"
#include "leaf/lumet/link/sample.h"
#include "liborrel/doctavo/config_tavo.h"

// Gathers the samples of a flash or dark pulse, and writes what they tell as one JSON text.
class EventRecorder {
 public:
  // What the head knows of the event beside its samples.
  struct Context {
    int event_id;
    FlashMode flash_mode;
    unsigned flash_modrate;  // in force, Hz
    unsigned dark_modrate;
  };

  void Gather(const DataSample& sample) { event_buffer.Add(sample); }
  bool IsEmpty() const { return event_buffer.empty(); }
  // What comes after as many samples as this is another event's.
  bool IsFull() const { return event_buffer.size() >= bounds::kEventSamples; }

  // Writes the record of what was gathered, with the settings of `tavo` that made it. Needs one
  // sample at least, and is empty then: a column of samples goes as soon as it is written. Each
  // member stands on a line of its own; results come in single precision, numbers with six
  // significant digits.
  EventAnalysis::Kind WriteEvent(std::ostream& out, const ConfigTavo& tavo, const Context& context);
  // Bytes that the text of the record will take at most.
  std::size_t RecordRoom() const;

 private:
  EventSamples event_buffer;
};
