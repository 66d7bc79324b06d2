#pragma once

#include <memory>

#include "leaf/lumet/bounds.h"
#include "leaf/lumet/events/event_record.h"
#include "leaf/lumet/events/event_samples.h"
#include "leaf/lumet/link/sample.h"
#include "liborrel/doctavo/config_tavo.h"

// Gathers the samples of a flash or dark pulse for the record of what they show.
class EventRecorder {
 public:
  void Gather(const DataSample& sample) { event_buffer.Add(sample); }
  bool IsEmpty() const { return event_buffer.empty(); }
  // Whether there is no room for more samples: what comes next belongs to another event.
  bool IsFull() const { return event_buffer.size() >= bounds::kEventSamples; }

  // The record of what was gathered, with the settings in `tavo` that made it. Needs at least one
  // sample; the recorder is empty afterwards.
  std::unique_ptr<EventRecord> WriteEvent(const ConfigTavo& tavo,
                                          const EventRecord::Context& context);

 private:
  EventSamples event_buffer;
};
