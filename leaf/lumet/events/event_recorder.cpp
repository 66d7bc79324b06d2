#include "leaf/lumet/events/event_recorder.h"

#include <utility>

std::unique_ptr<EventRecord> EventRecorder::WriteEvent(const ConfigTavo& tavo,
                                                       const EventRecord::Context& context) {
  return std::make_unique<EventRecord>(std::exchange(event_buffer, {}), tavo, context);
}
