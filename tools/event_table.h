#pragma once

#include <optional>
#include <string>

#include "client/event_record.h"
#include "tools/event_curve.h"
#include "tools/reference.h"
#include "tools/terminal.h"

// The results of events for a reader: lines of name, value, unit and meaning.

// A number with its standard error, both rounded to two digits of the error: "1427.7 ± 1.3". The
// number alone where there is no error above 0.
std::string WithError(double value, double error);

// Its type, number, head and time, and how much was sampled.
std::string Heading(const EventRecord& event);
std::string Extent(const EventRecord& event);
// Of light, with its unit.
std::string TimeOf(const FastRise::Step& step);
// When it was: local date and time.
std::string Moment(const EventRecord& event);

// The results in the record; for an induction also O, J, I and P.
void AddResults(const EventRecord& event, Table& table);
// Fm or Fm' of a flash; nothing if it has none.
std::optional<double> HighestF(const EventRecord& event);

// What follows from F before a flash, its FMAX and a reference.
struct Yields {
  double F = 0;
  std::optional<double> Fm_light;  // of the flash, counts; nothing if it has none
  std::optional<DarkReference> reference;
  bool is_reference = false;  // the flash is the reference itself
};
void AddYields(const Yields& yields, Table& table);

// The settings that made the event.
void AddSettings(const EventRecord& event, Table& table);
