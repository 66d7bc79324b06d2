#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "client/bus.h"
#include "client/console.h"
#include "tests/soak_report.h"

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
  std::chrono::steady_clock::time_point seen = std::chrono::steady_clock::now();
};

// A thread that runs `turn` again and again, until this ends.
class WitnessThread {
 public:
  explicit WitnessThread(std::function<void()> turn);

 private:
  std::jthread thread;
};

// A healthy console client, which reads every row. The processor says from time to time how many
// samples it has sent: between two such rows stand as many rows of samples, to the last one.
class RowWitness {
 public:
  // Both must outlive this.
  RowWitness(int port, const SoakExcuses& excuses, SoakReport& report);

  // How often the number of rows has been found right.
  std::uint64_t TimesCounted() const { return times_counted; }
  // Time of the latest sample.
  double Time() const { return time; }
  bool IsInEvent() const { return in_event; }
  // Those that have ended since the last call.
  std::vector<SeenEvent> TakeEvents();

 private:
  void Turn();
  void Take(const DataRow& row);
  void Take(const MessageRow& row);
  // Judges the wait for a row.
  void Came();

  ConsoleClient client;
  const SoakExcuses& excuses;
  SoakReport& report;
  std::atomic<std::uint64_t> times_counted = 0;
  std::atomic<double> time = 0;
  std::atomic<bool> in_event = false;

  std::uint64_t rows = 0;                   // since the latest count
  std::optional<std::uint64_t> last_count;  // none if it is not to be compared with the next
  std::optional<SeenEvent> event;           // that goes on
  std::chrono::steady_clock::time_point last_row = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point last_slow = {};
  bool is_lost = false;

  std::mutex mutex;
  std::vector<SeenEvent> events;
  WitnessThread thread;  // last, since it uses all the others
};

// A healthy client of the bus, which hears the records of events. It comes back with the broker.
class BusWitness {
 public:
  explicit BusWitness(int broker_port, SoakReport& report);

  bool IsConnected() const { return is_connected; }
  // The number of samples in the record of the event that began at this time, if it has come.
  std::optional<std::size_t> SamplesOfEvent(double start);
  // The number of samples in the longest record so far.
  std::size_t LongestEvent() const { return longest; }

 private:
  void Turn();

  const BusOptions options;
  SoakReport& report;
  std::unique_ptr<BusClient> bus;
  std::atomic<bool> is_connected = false;
  std::atomic<std::size_t> longest = 0;
  std::mutex mutex;
  std::deque<SeenEvent> records;
  WitnessThread thread;
};
