#include "tools/event_table.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "client/event_results.h"
#include "tools/event_curve.h"

namespace {

// Settings of events by their names in a record.
constexpr Result kSettings[] = {
    {"OUTRATE", "Hz", "samples per second"},
    {"MARGIN", "samples", "before and after the event"},
    {"DURATION", "ms", "of the light"},
    {"PHASE1_DURATION", "ms", "full light"},
    {"PHASE2_DURATION", "ms", "the ramp"},
    {"PHASE3_DURATION", "ms", "full light again"},
    {"Q_RED_SETPOINT", "µmol/m²/s", "red light, unless light is set in percent"},
    {"D_RED_PERCENT", "%", "red light, where light is set in percent"},
    {"RAMP", "%", "how far the ramp goes down to the actinic light"},
    {"BEFORE", "s", "when far red goes on"},
    {"AFTER", "s", "when far red goes off"},
    {"Q_FARRED_SETPOINT", "µmol/m²/s", "far red, unless light is set in percent"},
    {"D_FARRED_PERCENT", "%", "far red, where light is set in percent"},
};

// The standard error of a result, 0 if the record tells none.
double ErrorOf(const EventRecord& event, const std::string& name, double value) {
  if (const auto error = event.Number(name + "_SE")) return *error;
  // FMAX of a multiphase flash is its intercept, or else a single sample.
  if (name == "FMAX" && event.fit && value == event.fit->intercept)
    return event.fit->intercept_error;
  return 0;
}

void AddFastRise(const FastRise& rise, Table& table) {
  for (const FastRise::Step& step : rise.steps) {
    std::string meaning = "F at " + TimeOf(step) + " of light";
    if (step.name != rise.steps.front().name && step.name != rise.steps.back().name)
      meaning += ", V " + NumberText(rise.V(step), 3);
    table.Add({step.name, NumberText(step.F, 5), "counts", meaning});
  }
  const double Fo = rise.steps.front().F;
  const double Fm = rise.steps.back().F;
  table.Add({"(P - O)/P", NumberText((Fm - Fo) / Fm, 4), "", "Fv/Fm of a dark-adapted leaf"});
}

}  // namespace

std::string WithError(double value, double error) {
  constexpr int kMostDecimals = 9;
  constexpr double kLargest = 1e9;
  if (!std::isfinite(value) || !std::isfinite(error) || !(error > 0)) return NumberText(value);
  char text[80];
  // The exponent after rounding: 0.0996 is 0.10.
  std::snprintf(text, sizeof text, "%.1e", error);
  const int decimals = 1 - std::atoi(text + std::strlen("1.3e"));
  if (decimals > kMostDecimals || std::abs(value) > kLargest || error > kLargest)
    return NumberText(value) + " ± " + NumberText(error, 2);
  // Where the second digit is before the point, it is rounded there.
  const double unit = std::pow(10, std::max(-decimals, 0));
  const int shown = std::max(decimals, 0);
  const auto rounded = [&](double number) {
    return decimals < 0 ? std::round(number / unit) * unit : number;
  };
  std::snprintf(text, sizeof text, "%.*f ± %.*f", shown, rounded(value), shown, rounded(error));
  return text;
}

std::string TimeOf(const FastRise::Step& step) {
  return step.time < 1e-3 ? NumberText(step.time * 1e6, 3) + " µs"
                          : NumberText(step.time * 1e3, 3) + " ms";
}

std::string Moment(const EventRecord& event) {
  std::string date = event.date;
  if (date.size() == 8) date.insert(6, "-").insert(4, "-");
  return date + " " + event.time;
}

std::string Heading(const EventRecord& event) {
  return event.type + " " + std::to_string(event.id) + " of " + event.device + ", " + Moment(event);
}

std::string Extent(const EventRecord& event) {
  return std::to_string(event.curve.seconds.size()) + " samples in " +
         NumberText(event.curve.seconds.back(), 4) + " s";
}

void AddResults(const EventRecord& event, Table& table) {
  for (const Result& result : Results(event.type)) {
    const std::string name = result.name;
    const auto value = event.Number(name);
    if (!value || name.ends_with("_SE")) continue;
    table.Add({name, IsMeasured(*value) ? WithError(*value, ErrorOf(event, name, *value)) : "none",
               result.unit, result.meaning});
  }
  if (const auto rise = FastRiseOf(event)) AddFastRise(*rise, table);
}

std::optional<double> HighestF(const EventRecord& event) {
  const auto fmax = event.Number("FMAX");
  return fmax && IsMeasured(*fmax) && *fmax > 0 ? fmax : std::nullopt;
}

void AddYields(const Yields& yields, Table& table) {
  const bool in_light = yields.Fm_light && !yields.is_reference;
  if (in_light)
    table.Add({"ΦPSII", NumberText(PhiPSII(yields.F, *yields.Fm_light), 4), "",
               "Fq'/Fm' = (Fm' - F)/Fm', from F and FMAX above"});
  if (!yields.reference) return;
  const DarkReference& reference = *yields.reference;
  const std::string of = ", reference of " + reference.taken;
  table.Add({"Fo", NumberText(reference.Fo), "counts",
             yields.is_reference ? "F above" : "F in the dark" + of});
  table.Add({"Fm", NumberText(reference.Fm), "counts",
             yields.is_reference ? "FMAX above" : "FMAX there"});
  table.Add({"Fv/Fm", NumberText(reference.FvFm(), 4), "", "(Fm - Fo)/Fm"});
  if (in_light)
    table.Add({"NPQ", NumberText(reference.NPQ(*yields.Fm_light), 4), "", "Fm/Fm' - 1"});
}

void AddSettings(const EventRecord& event, Table& table) {
  for (const Result& setting : kSettings)
    if (const auto value = event.Number(setting.name)) {
      // A dark pulse is long.
      const bool in_seconds = event.type == "DARK" && std::string(setting.name) == "DURATION";
      table.Add({setting.name, NumberText(*value), in_seconds ? "s" : setting.unit,
                 in_seconds ? "of the dark" : setting.meaning});
    }
}
