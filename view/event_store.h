#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>

#include "client/event_record.h"
#include "client/rows.h"

// F and PFD in the last second of plain measuring before an event.
struct BeforeEvent {
  double F = 0;  // counts, a mean
  double PFD = 0;
  std::size_t rows = 0;
};

// Follows the rows, and keeps what was measured before each of the last events.
class BeforeEvents {
 public:
  void Saw(double time, int code, double F, double PFD);
  // Of the event that began at this time, as its record tells it; nothing if it was not seen.
  std::optional<BeforeEvent> Of(double timestamp) const;

 private:
  struct Sample {
    double time;
    double F;
    double PFD;
  };
  struct Begun {
    double time;
    BeforeEvent before;
  };
  std::deque<Sample> steady;
  std::deque<Begun> begun;
  bool in_event = false;
};

// A record that has been read, with a curve for the eye.
struct ReadEvent {
  // Throws ClientError for what is no record. A long one takes seconds.
  static ReadEvent Read(std::string record);

  std::string record;  // as it came
  EventRecord event;   // its curve is thinned, evenly and by the logarithm of time after light on
  std::size_t samples = 0;
};

// The last hundred events. Those of high rate are large, so the whole records are kept of the
// latest alone, as far as they fit into a bound.
class EventStore {
 public:
  struct Kept : ReadEvent {
    int key;  // of this event, in this run of the program
    std::optional<BeforeEvent> before;
  };

  const Kept& Add(ReadEvent event, const BeforeEvents& before);
  // Null for one that is not kept.
  const Kept* Find(int key) const;
  const std::deque<Kept>& All() const { return events; }  // the oldest first

 private:
  std::deque<Kept> events;
  int last_key = 0;
};
