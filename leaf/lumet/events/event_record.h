#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "common/long_text.h"
#include "leaf/lumet/events/event_analysis.h"
#include "leaf/lumet/events/event_samples.h"
#include "leaf/lumet/light/flash_mode.h"
#include "liborrel/doctavo/config_tavo.h"

// What the samples of an event show, as one JSON text. Each member is on a line of its own; results
// are in single precision, numbers have six significant digits.
//
// The samples are analysed at once, and the settings are those of that moment. The texts of the
// samples, which take more memory than these themselves, are made piece by piece.
class EventRecord : public LongText {
 public:
  // What the head knows about the event besides its samples.
  struct Context {
    int event_id;
    FlashMode flash_mode;
    unsigned flash_modrate;  // in force, Hz
    unsigned dark_modrate;
  };

  // There must be at least one sample.
  EventRecord(EventSamples event, const ConfigTavo& tavo, const Context& context);

  EventAnalysis::Kind Kind() const { return kind; }

  std::string_view Next() override;
  void Rewind() override;
  std::size_t Bytes() const override { return samples.Bytes(); }

 private:
  // An array of the record: its name, and what writes numbers of so many samples of a block, from
  // this place on, each with a comma after it. Returns the end.
  struct Array {
    const char* name;
    char* (*write)(char* to, const EventSamples::Block& block, std::size_t from, std::size_t count,
                   double start);
  };
  static const Array kArrays[];

  EventSamples samples;
  EventAnalysis::Kind kind = EventAnalysis::kNone;
  std::string members;               // all before the arrays
  std::vector<const Array*> arrays;  // those of this kind
  // What comes next: the other members, an array from this sample on, or nothing.
  bool begun = false;
  std::size_t array = 0;
  std::size_t sample = 0;
  std::vector<char> piece;
};
