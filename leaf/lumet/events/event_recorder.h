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

// Gathers the samples of a flash or dark pulse, and writes what they show as one JSON text.
class EventRecorder {
 public:
  // What the head knows about the event besides its samples.
  struct Context {
    int event_id;
    FlashMode flash_mode;
    unsigned flash_modrate;  // in force, Hz
    unsigned dark_modrate;
  };

  void Gather(const DataSample& sample) { event_buffer.Add(sample); }
  bool IsEmpty() const { return event_buffer.empty(); }
  // Whether there is no room for more samples: what comes next belongs to another event.
  bool IsFull() const { return event_buffer.size() >= bounds::kEventSamples; }

  // Writes the record of what was gathered, with the settings in `tavo` that made it. Needs at
  // least one sample, and is empty afterwards: a column of samples is freed as soon as it is
  // written. Each member is on a line of its own; results are in single precision, numbers have six
  // significant digits.
  EventAnalysis::Kind WriteEvent(std::ostream& out, const ConfigTavo& tavo, const Context& context);
  // Bytes that the text of the record will take at most.
  std::size_t RecordRoom() const;

 private:
  EventSamples event_buffer;
};
