#pragma once

#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/broker.h"
#include "bench/free_port.h"
#include "bench/head.h"
#include "common/temporary_directory.h"
#include "tests/soak_report.h"
#include "tests/soak_witness.h"

// A head under attack: the bench with all that surrounds it, healthy clients that watch it, and the
// ordinary work that goes on meanwhile.
class SoakSubject {
 public:
  struct Options {
    std::uint64_t seed = 1;
    int rate = 10'000;                       // samples per second
    std::string speed = "1";                 // of simulated time
    int count_every = 5000;                  // samples between two counts of rows
    std::chrono::milliseconds attack{3000};  // about how long each goes on
  };
  // Ends it soon, as a failure. For signal handlers.
  static void Interrupt() { interrupted = 1; }

  // Starts all of it, and gives the head its settings. `report` must outlive this.
  SoakSubject(const Options& options, SoakReport& report);

  // Lets time pass, with flashes, dark pulses, zeroings and settings, and looks at everything.
  void Work(std::chrono::milliseconds time);
  // Only looks.
  void Look();
  // Ends the head, and starts it again and again while the power fails. The last thing to do.
  void End();

  // Ends excuses once the head is again as it should be: samples come and are counted right, and
  // the bus is there.
  void Recover();
  // Waits until the head uses no more than it did after its warm-up, which the first call notes.
  void CompareUse();
  // Works until `done`; fails with `awaited` at the deadline.
  bool WorkUntil(const std::string& awaited, const std::function<bool()>& done);

  // What surrounds the head. `faults` are lines of the bench's environment.
  std::chrono::milliseconds Some() const { return options.attack; }
  void SetProcessor(const std::string& faults);
  void SetDisk(const std::string& state);  // of disk_layer.cpp; "" for a healthy one
  std::string Path() const { return root.Path(); }
  int Port() const { return head->Port(); }
  bool HasLogged(std::string_view text) { return head->HasLogged(text); }
  int BrokerPort() const { return broker_port; }
  void StartBroker();
  Broker& TheBroker() { return *broker; }

  // A document within `tavo`, and its answer.
  void Send(const std::string& inside) const;
  // Checks that what was acknowledged is in the file, now or after a while.
  void CheckFile(std::chrono::milliseconds patience);
  void StartEvent(const std::string& command) const;
  // Of each kind in turn. Work does so where simulated time is that of the clock.
  void StartNextEvent();
  void JudgeEvents();
  std::size_t TakeLongestEvent() { return bus_witness->TakeLongest(); }
  const RowWitness& Rows() const { return *row_witness; }

  SoakExcuses excuses;
  SoakReport& report;
  std::mt19937_64 random;
  static constexpr double kMostMebibytes = 64;  // that the head may use

 private:
  void StartHead();
  void SetByConsole();
  void SetByBus();
  double Mebibytes() const;
  std::size_t Descriptors() const;

  const Options options;
  const TemporaryDirectory root;
  const TemporaryDirectory outside;  // what the head does not write
  const FreePort broker_port;
  std::unique_ptr<Broker> broker;
  std::unique_ptr<Head> head;
  std::unique_ptr<RowWitness> row_witness;
  std::unique_ptr<BusWitness> bus_witness;

  bool disk_is_bad = false;
  std::map<std::string, std::string> acknowledged;  // values by their names
  std::vector<SeenEvent> unjudged;
  std::size_t next_event = 0;
  double usual_mebibytes = 0;
  std::size_t usual_descriptors = 0;

  using Moment = SoakClock::time_point;
  inline static volatile std::sig_atomic_t interrupted = 0;
  Moment next_event_at = {};
  Moment next_console_at = {};
  Moment next_bus_at = {};
};

// What a head meets. Each attack takes some seconds, and leaves the surroundings as they were.
struct SoakAttack {
  const char* name;
  void (*run)(SoakSubject& subject);
};

const std::vector<SoakAttack>& SoakAttacks();
