#include "view/event_store.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr int kPlainMeasuring = 1;
constexpr double kSteadySeconds = 1;
constexpr std::size_t kMostBegun = 8;
constexpr std::size_t kMostEvents = 100;
constexpr std::size_t kMostBytes = 256 << 20;
// Of a curve for the eye. Longer ones are thinned to twice kEvenPoints at most.
constexpr std::size_t kMostPoints = 5000;
constexpr std::size_t kEvenPoints = 2000;

// Where the light of an event goes on: the first sample that is not of the margin before it.
std::size_t LightOn(const EventRecord::Curve& curve) {
  const auto found = std::find_if(curve.code.begin(), curve.code.end(),
                                  [first = curve.code.front()](int code) { return code != first; });
  return found == curve.code.end() ? 0 : static_cast<std::size_t>(found - curve.code.begin());
}

// Samples at even steps of time, and at even steps of its logarithm after light on.
std::vector<std::size_t> Pick(const EventRecord::Curve& curve) {
  const std::size_t size = curve.seconds.size();
  const std::size_t start = LightOn(curve);
  std::vector<std::size_t> picked;
  for (std::size_t i = 0; i < kEvenPoints; ++i)
    picked.push_back(i * (size - 1) / (kEvenPoints - 1));
  const double decades = std::log(static_cast<double>(size - start));
  for (std::size_t i = 0; i < kEvenPoints; ++i) {
    const double step = static_cast<double>(i) / kEvenPoints;
    picked.push_back(start + static_cast<std::size_t>(std::exp(decades * step)) - 1);
  }
  std::sort(picked.begin(), picked.end());
  picked.erase(std::unique(picked.begin(), picked.end()), picked.end());
  return picked;
}

template <class Value>
std::vector<Value> At(const std::vector<Value>& values, const std::vector<std::size_t>& indices) {
  std::vector<Value> found;
  found.reserve(indices.size());
  for (const std::size_t i : indices) found.push_back(values[i]);
  return found;
}

}  // namespace

void BeforeEvents::Saw(double time, int code, double F, double PFD) {
  if (code != kPlainMeasuring) {
    if (!in_event) {
      BeforeEvent before;
      for (const Sample& each : steady) {
        before.F += each.F;
        before.PFD += each.PFD;
      }
      before.rows = steady.size();
      before.F /= static_cast<double>(before.rows);
      before.PFD /= static_cast<double>(before.rows);
      begun.push_back({time, before});
      if (begun.size() > kMostBegun) begun.pop_front();
    }
    in_event = true;
    return;
  }
  if (in_event || (!steady.empty() && time < steady.back().time)) steady.clear();
  in_event = false;
  steady.push_back({time, F, PFD});
  while (steady.size() > 1 && steady.front().time < time - kSteadySeconds) steady.pop_front();
}

std::optional<BeforeEvent> BeforeEvents::Of(double timestamp) const {
  constexpr double kAsPrinted = 0.1;  // records tell it to a tenth of a second
  const auto found = std::find_if(begun.rbegin(), begun.rend(), [timestamp](const Begun& each) {
    return std::abs(each.time - timestamp) <= kAsPrinted && each.before.rows > 0;
  });
  if (found != begun.rend()) return found->before;
  return std::nullopt;
}

ReadEvent ReadEvent::Read(std::string record) {
  ReadEvent read;
  read.event = EventRecord::Parse(record);
  read.record = std::move(record);
  EventRecord::Curve& curve = read.event.curve;
  read.samples = curve.seconds.size();
  if (read.samples <= kMostPoints) return read;
  const std::vector<std::size_t> picked = Pick(curve);
  for (auto* values : {&curve.seconds, &curve.fluorescence, &curve.dc, &curve.pfd, &curve.redmodavg,
                       &curve.farred})
    if (!values->empty()) *values = At(*values, picked);
  curve.code = At(curve.code, picked);
  return read;
}

const EventStore::Kept& EventStore::Add(ReadEvent event, const BeforeEvents& before) {
  const auto known = before.Of(event.event.timestamp);
  events.push_back({std::move(event), ++last_key, known});
  if (events.size() > kMostEvents) events.pop_front();
  std::size_t bytes = 0;
  std::for_each(events.rbegin(), events.rend(), [&bytes](Kept& each) {
    bytes += each.record.size();
    if (bytes > kMostBytes) each.record = std::string();
  });
  return events.back();
}

const EventStore::Kept* EventStore::Find(int key) const {
  for (const Kept& each : events)
    if (each.key == key) return &each;
  return nullptr;
}
