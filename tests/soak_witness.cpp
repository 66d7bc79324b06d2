#include "tests/soak_witness.h"

#include <poll.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>

#include "leaf/lumet/link/sample.h"

namespace {

using Clock = std::chrono::steady_clock;

// Beyond these, a wait of a healthy client for a row is slow, and a fault. A processor leaves out
// what nobody has taken for a second, and says nothing of it; so a slow machine costs samples.
constexpr auto kSlowWait = std::chrono::milliseconds(800);
constexpr auto kLongestWait = std::chrono::seconds(5);
// After a slow wait, the head may set its time of the samples anew.
constexpr auto kTimeToSettle = std::chrono::seconds(10);

bool Wait(int descriptor, short events) {
  constexpr int kPauseMs = 50;
  struct pollfd entry = {descriptor, events, 0};
  return poll(&entry, 1, kPauseMs) > 0;
}

}  // namespace

WitnessThread::WitnessThread(std::function<void()> turn)
    : thread([turn = std::move(turn)](const std::stop_token& stop) {
        while (!stop.stop_requested()) turn();
      }) {}

RowWitness::RowWitness(int port, const SoakExcuses& excuses, SoakReport& report)
    : client(port), excuses(excuses), report(report), thread([this] { Turn(); }) {}

void RowWitness::Turn() {
  constexpr auto kPause = std::chrono::milliseconds(50);
  if (is_lost) return std::this_thread::sleep_for(kPause);
  try {
    Wait(client.Descriptor(), POLLIN);
    while (const auto message = client.Take()) {
      if (const auto* row = std::get_if<DataRow>(&*message)) Take(*row);
      if (const auto* row = std::get_if<MessageRow>(&*message)) Take(*row);
    }
  } catch (const NoConnection& error) {
    is_lost = true;
    report.Fail(std::string("a healthy client: ") + error.what());
  } catch (const ClientError& error) {
    if (!excuses.rows) report.Fail(std::string("a healthy client: ") + error.what());
  }
}

void RowWitness::Came() {
  const auto now = Clock::now();
  const auto wait = now - last_row;
  last_row = now;
  if (excuses.rows) return;
  if (wait > kSlowWait) last_slow = now;
  constexpr auto kWorthALine = std::chrono::milliseconds(5);
  if (wait < kWorthALine) return;
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(wait);
  report.Waited(ms);
  if (wait > kLongestWait)
    report.Fail("a healthy client waited " + std::to_string(ms.count()) + " ms for a row");
}

void RowWitness::Take(const DataRow& row) {
  Came();
  ++rows;
  const double now = row.values.front();
  const int code = static_cast<int>(row.values.back());
  if (now <= time && !excuses.rows && last_count && Clock::now() - last_slow > kTimeToSettle)
    report.Fail("the time of a row is not after that of the one before it: " + row.line);
  time = now;
  in_event = code != kMeasuring;
  if (code != kMeasuring) {
    if (!event) event.emplace().start = now;
    ++event->samples;
  }
  if (event && (excuses.rows || excuses.bus)) event->is_whole = false;
  if (!event || code != kMeasuring) return;
  event->seen = Clock::now();
  const std::lock_guard guard(mutex);
  events.push_back(*std::exchange(event, std::nullopt));
}

void RowWitness::Take(const MessageRow& row) {
  constexpr std::string_view kStart = "DSP: ";
  if (!row.text.starts_with(kStart) || !row.text.ends_with(" samples sent")) return;
  const std::uint64_t count = std::strtoull(row.text.c_str() + kStart.size(), nullptr, 10);
  const std::uint64_t came = std::exchange(rows, 0);
  const auto before = std::exchange(last_count, count);
  if (excuses.rows) {
    last_count.reset();
  } else if (before && count - *before == came) {
    ++times_counted;
    report.Checked(SoakReport::kRows, came);
  } else if (before) {
    report.Fail("a healthy client got " + std::to_string(came) + " rows of " +
                std::to_string(count - *before) + " samples");
  }
}

std::vector<SeenEvent> RowWitness::TakeEvents() {
  const std::lock_guard guard(mutex);
  return std::exchange(events, {});
}

BusWitness::BusWitness(int broker_port, SoakReport& report)
    : options{.port = broker_port,
              .topics = {bus_topic::kFlash, bus_topic::kDark},
              .timeout = std::chrono::seconds(2)},
      report(report),
      thread([this] { Turn(); }) {}

void BusWitness::Turn() {
  try {
    if (!bus) bus = std::make_unique<BusClient>(options);
    is_connected = true;
    Wait(bus->Descriptor(), bus->Events());
    while (const auto message = bus->Take()) {
      const EventRecord record = message->Event();
      const std::lock_guard guard(mutex);
      records.push_back({.start = record.timestamp, .samples = record.curve.code.size()});
      longest = std::max<std::size_t>(longest, record.curve.code.size());
      constexpr std::size_t kKept = 100;
      if (records.size() > kKept) records.pop_front();
    }
  } catch (const NoConnection&) {
    is_connected = false;
    bus.reset();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  } catch (const TimedOut&) {
    bus.reset();
  } catch (const ClientError& error) {
    report.Fail(std::string("on the bus: ") + error.what());
  }
}

std::optional<std::size_t> BusWitness::SamplesOfEvent(double start) {
  // Records tell tenths of a second.
  constexpr double kSame = 0.11;
  const std::lock_guard guard(mutex);
  const auto found = std::ranges::find_if(
      records, [&](const SeenEvent& record) { return std::fabs(record.start - start) < kSame; });
  return found == records.end() ? std::nullopt : std::optional(found->samples);
}
