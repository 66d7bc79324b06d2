// Attacks a head on the bench for some minutes, while healthy clients watch that it loses nothing;
// or lets it measure for a simulated week. Says what it has seen, and ends with status 1 if
// something was wrong.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <exception>
#include <iostream>
#include <random>
#include <thread>
#include <vector>

#include "tests/soak_subject.h"

namespace {

using std::chrono::seconds;

void RunAttacks(SoakSubject& subject, SoakReport& report, double minutes, std::uint64_t seed) {
  const auto end = SoakClock::now() + std::chrono::duration<double, std::ratio<60>>(minutes);
  report.Begin("no attack");
  subject.Work(seconds(5));
  subject.CompareUse();
  std::vector<SoakAttack> attacks = SoakAttacks();
  std::mt19937_64 order(seed);
  while (SoakClock::now() < end) {
    std::ranges::shuffle(attacks, order);
    for (const SoakAttack& attack : attacks) {
      if (SoakClock::now() >= end) break;
      report.Begin(attack.name);
      attack.run(subject);
      subject.Recover();
      subject.CompareUse();
    }
  }
}

// Ten samples a second, and an event each quarter of an hour.
void RunWeek(SoakSubject& subject, SoakReport& report) {
  constexpr int kQuartersOfAWeek = 7 * 24 * 4;
  constexpr double kQuarter = 900;  // seconds
  report.Begin("a week");
  double next = subject.Rows().Time();
  for (int quarter = 0; quarter < kQuartersOfAWeek; ++quarter) {
    subject.StartNextEvent();
    next = std::max(next, subject.Rows().Time()) + kQuarter;
    subject.WorkUntil("a quarter of an hour", [&] { return subject.Rows().Time() >= next; });
    subject.CompareUse();
  }
}

int Run(const SoakSubject::Options& options, double minutes, bool week) {
  std::cout << "seed " << options.seed << std::endl;
  SoakReport report;
  report.Begin("the start");
  try {
    const std::jthread ticker = Repeating([&, next = SoakClock::now() + seconds(5)]() mutable {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      if (SoakClock::now() < next) return;
      report.PrintProgress();
      next += seconds(5);
    });
    SoakSubject subject(options, report);
    if (week)
      RunWeek(subject, report);
    else
      RunAttacks(subject, report, minutes, options.seed);
    subject.End();
  } catch (const std::exception& error) {
    report.Fail(error.what());
  }
  report.PrintTable();
  std::cout << "seed " << options.seed << (report.HasFailed() ? ": FAILED" : ": passed")
            << std::endl;
  return report.HasFailed() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    CLI::App app("Attacks a head on the bench, and checks that it loses nothing.", "soak");
    SoakSubject::Options options;
    options.seed = std::random_device()();
    double minutes = 10;
    bool week = false;
    app.add_option("MINUTES", minutes, "How long")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    app.add_option("--rate", options.rate, "Samples per second")
        ->check(CLI::Range(1000, 10'000))
        ->capture_default_str();
    app.add_option("--seed", options.seed, "Repeats the soak that printed this number");
    app.add_flag("--week", week, "A simulated week without attacks, as fast as it goes");
    CLI11_PARSE(app, argc, argv);
    // Each of them has its turn in a minute.
    options.attack =
        std::chrono::milliseconds(std::clamp(static_cast<int>(1000 * minutes), 500, 3000));
    if (week) {
      options.rate = 10;
      options.speed = "max";
    }
    // A broker that has given up its rights would outlive this.
    for (const int signo : {SIGINT, SIGTERM})
      std::signal(signo, [](int) { SoakSubject::Interrupt(); });
    return Run(options, minutes, week);
  } catch (const std::exception& error) {
    std::cerr << "soak: " << error.what() << "\n";
    return 1;
  }
}
