#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <iomanip>
#include <iostream>
#include <map>
#include <mutex>
#include <string>
#include <vector>

// What a soak has done and seen, by attack. Several threads write to it.
class SoakReport {
 public:
  // What follows is seen under this attack.
  void Begin(const std::string& name) {
    const std::lock_guard guard(mutex);
    attack = name;
    if (++lines[attack].times == 1) order.push_back(attack);
  }

  // Notes a figure of what was found right: rows, events or settings.
  using Count = std::uint64_t;
  struct Line {
    int times = 0;
    Count rows = 0;
    Count events = 0;
    Count settings = 0;
    std::chrono::milliseconds wait{};  // the longest of a healthy client for a row
    double mebibytes = 0;              // the most that the head used
    std::size_t descriptors = 0;
    std::vector<std::string> failures = {};
  };
  void Checked(Count Line::*what, Count count = 1) {
    const std::lock_guard guard(mutex);
    lines[attack].*what += count;
  }
  // Notes a figure of which the highest counts.
  template <class Figure>
  void Saw(Figure Line::*what, Figure figure) {
    const std::lock_guard guard(mutex);
    lines[attack].*what = std::max(lines[attack].*what, figure);
  }
  // Something is wrong. Says so at once.
  void Fail(const std::string& what) {
    const std::lock_guard guard(mutex);
    lines[attack].failures.push_back(what);
    has_failed = true;
    std::cout << "FAILED during '" << attack << "': " << what << std::endl;
  }
  bool HasFailed() const { return has_failed; }

  // Says how far the present attack has come.
  void PrintProgress() const {
    const std::lock_guard guard(mutex);
    Print(attack, "goes on");
  }

  void PrintTable() const {
    const std::lock_guard guard(mutex);
    std::cout << "\n";
    Row("attack", "times", "rows", "events", "settings", "wait, ms", "MiB", "open files",
        "verdict");
    for (const std::string& name : order) {
      Print(name, lines.at(name).failures.empty() ? "held" : "FAILED");
      for (const std::string& failure : lines.at(name).failures)
        std::cout << "    " << failure << "\n";
    }
    std::cout << "So many rows, events and settings were found right. The others are the worst "
                 "figures.\n";
  }

 private:
  static void Row(const std::string& first, const auto&... cells) {
    std::cout << std::left << std::setw(26) << first << std::right;
    ((std::cout << std::setw(11) << cells), ...);
    std::cout << std::endl;
  }
  void Print(const std::string& name, const char* verdict) const {
    const Line& line = lines.at(name);
    std::cout << std::fixed << std::setprecision(1);
    Row(name, line.times, line.rows, line.events, line.settings, line.wait.count(), line.mebibytes,
        line.descriptors, verdict);
  }

  mutable std::mutex mutex;
  std::atomic<bool> has_failed = false;
  std::vector<std::string> order;
  std::map<std::string, Line> lines;
  std::string attack;
};
