#pragma once

#include <poll.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "client/bus.h"
#include "client/console.h"
#include "leaf/lumet/link/sample.h"
#include "tests/soak_report.h"

using SoakClock = std::chrono::steady_clock;

// What a soak itself has made impossible for a while, so that it is no fault of the head.
struct SoakExcuses {
  std::atomic<bool> rows = false;  // the processor's samples do not come as they were made
  std::atomic<bool> bus = false;   // what is published reaches nobody
};

// A flash or dark pulse, by the first of its samples.
struct SeenEvent {
  double start = 0;  // seconds of the system clock
  std::size_t samples = 0;
  bool is_whole = true;  // its samples and its record were to come
  SoakClock::time_point seen = SoakClock::now();
};

// Runs `turn` in a thread of its own, again and again until it is destroyed.
inline std::jthread Repeating(std::function<void()> turn) {
  return std::jthread([turn = std::move(turn)](const std::stop_token& stop) {
    while (!stop.stop_requested()) turn();
  });
}

inline void AwaitMessage(int descriptor, short events) {
  struct pollfd entry = {descriptor, events, 0};
  poll(&entry, 1, 50);
}

// A healthy console client, which reads every row. The processor says from time to time how many
// samples it has sent: between two such rows stand as many rows of samples, to the last one.
class RowWitness {
 public:
  // Both must outlive this.
  RowWitness(int port, const SoakExcuses& excuses, SoakReport& report)
      : client(port), excuses(excuses), report(report), thread(Repeating([this] { Turn(); })) {}

  // How often the number of rows has been found right.
  std::uint64_t TimesCounted() const { return times_counted; }
  // Time of the latest sample.
  double Time() const { return time; }
  bool IsInEvent() const { return in_event; }
  // Those that have ended since the last call.
  std::vector<SeenEvent> TakeEvents() {
    const std::lock_guard guard(mutex);
    return std::exchange(events, {});
  }

 private:
  // Beyond these, a wait for a row is slow, and a fault. A processor leaves out what nobody has
  // taken for a second, and says nothing of it; so a slow machine costs samples.
  static constexpr auto kSlowWait = std::chrono::milliseconds(800);
  static constexpr auto kLongestWait = std::chrono::seconds(5);
  // After a slow wait, the head may set its time of the samples anew.
  static constexpr auto kTimeToSettle = std::chrono::seconds(10);
  // The head may take a tick for one of the next turn of the processor's clock, until the next
  // full second.
  static constexpr double kTurn = 4294;  // seconds

  void Turn() {
    if (is_lost) return std::this_thread::sleep_for(std::chrono::milliseconds(50));
    try {
      AwaitMessage(client.Descriptor(), POLLIN);
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

  void Take(const DataRow& row) {
    JudgeWait();
    ++rows;
    const double now = row.values.front();
    const double back = time - now;
    if (!excuses.rows && back >= 0 && back < kTurn && last_count &&
        SoakClock::now() - last_slow > kTimeToSettle)
      report.Fail("the time of a row is not after that of the one before it: " +
                  std::to_string(time) + ", then " + row.line);
    time = now;
    in_event = static_cast<int>(row.values.back()) != kMeasuring;
    if (in_event) {
      if (!event) event.emplace().start = now;
      ++event->samples;
    }
    if (event && (excuses.rows || excuses.bus)) event->is_whole = false;
    if (!event || in_event) return;
    event->seen = SoakClock::now();
    const std::lock_guard guard(mutex);
    events.push_back(*std::exchange(event, std::nullopt));
  }

  void JudgeWait() {
    const auto now = SoakClock::now();
    const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(now - last_row);
    last_row = now;
    if (excuses.rows || wait < std::chrono::milliseconds(5)) return;
    if (wait > kSlowWait) last_slow = now;
    report.Saw(&SoakReport::Line::wait, wait);
    if (wait > kLongestWait)
      report.Fail("a healthy client waited " + std::to_string(wait.count()) + " ms for a row");
  }

  void Take(const MessageRow& row) {
    constexpr std::string_view kStart = "DSP: ";
    if (!row.text.starts_with(kStart) || !row.text.ends_with(" samples sent")) return;
    const std::uint64_t count = std::strtoull(row.text.c_str() + kStart.size(), nullptr, 10);
    const std::uint64_t came = std::exchange(rows, 0);
    const auto before = std::exchange(last_count, count);
    if (excuses.rows) {
      last_count.reset();
    } else if (before && count - *before == came) {
      ++times_counted;
      report.Checked(&SoakReport::Line::rows, came);
    } else if (before) {
      report.Fail("a healthy client got " + std::to_string(came) + " rows of " +
                  std::to_string(count - *before) + " samples");
    }
  }

  ConsoleClient client;
  const SoakExcuses& excuses;
  SoakReport& report;
  std::atomic<std::uint64_t> times_counted = 0;
  std::atomic<double> time = 0;
  std::atomic<bool> in_event = false;
  std::uint64_t rows = 0;                   // since the latest count
  std::optional<std::uint64_t> last_count;  // none if it is not to be compared with the next
  std::optional<SeenEvent> event;           // that goes on
  SoakClock::time_point last_row = SoakClock::now();
  SoakClock::time_point last_slow = {};
  bool is_lost = false;
  std::mutex mutex;
  std::vector<SeenEvent> events;
  std::jthread thread;  // last, since it uses all the others
};

// A healthy client of the bus, which hears the records of events. It comes back with the broker.
class BusWitness {
 public:
  BusWitness(int broker_port, SoakReport& report)
      : options{.port = broker_port,
                .topics = {bus_topic::kFlash, bus_topic::kDark},
                .timeout = std::chrono::seconds(2)},
        report(report),
        thread(Repeating([this] { Turn(); })) {}

  bool IsConnected() const { return is_connected; }
  // Whether a record of this event has come, with all its samples.
  bool HasRecordOf(const SeenEvent& event) {
    // Records tell tenths of a second.
    constexpr double kSameTime = 0.11;
    const std::lock_guard guard(mutex);
    return std::ranges::any_of(records, [&](const SeenEvent& record) {
      return record.samples == event.samples && std::fabs(record.start - event.start) < kSameTime;
    });
  }
  // The number of samples in the longest record since the last call.
  std::size_t TakeLongest() { return longest.exchange(0); }

 private:
  void Turn() {
    try {
      if (!bus) bus = std::make_unique<BusClient>(options);
      is_connected = true;
      AwaitMessage(bus->Descriptor(), bus->Events());
      while (const auto message = bus->Take()) Take(message->Event());
    } catch (const NoConnection&) {
      is_connected = false;
      bus.reset();
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    } catch (const TimedOut&) {
      // Neither is there one that stands still.
    } catch (const ClientError& error) {
      report.Fail(std::string("on the bus: ") + error.what());
    }
  }

  void Take(const EventRecord& record) {
    const std::lock_guard guard(mutex);
    records.push_back({.start = record.timestamp, .samples = record.curve.code.size()});
    longest = std::max<std::size_t>(longest, record.curve.code.size());
  }

  const BusOptions options;
  SoakReport& report;
  std::unique_ptr<BusClient> bus;
  std::atomic<bool> is_connected = false;
  std::atomic<std::size_t> longest = 0;
  std::mutex mutex;
  std::vector<SeenEvent> records;
  std::jthread thread;
};
