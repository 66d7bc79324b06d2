#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

// What a soak has done and seen, by attack. Several threads write to it.
class SoakReport {
 public:
  enum What { kRows, kEvents, kSettings };

  // What follows is seen under this attack.
  void Begin(const std::string& attack);

  // So many more were found right.
  void Checked(What what, std::uint64_t count = 1);
  // The head's, now.
  void Uses(double mebibytes, std::size_t descriptors);
  // How long a healthy client waited for a row.
  void Waited(std::chrono::milliseconds wait);
  // Something is wrong. Says so at once.
  void Fail(const std::string& what);

  bool HasFailed() const;
  // One line that says how far it has come.
  std::string Progress() const;
  std::string Table() const;

 private:
  struct Line {
    int times = 0;
    std::map<What, std::uint64_t> checked;
    double mebibytes = 0;
    std::size_t descriptors = 0;
    std::chrono::milliseconds wait{};
    std::vector<std::string> failures;
  };

  mutable std::mutex mutex;
  std::vector<std::string> order;
  std::map<std::string, Line> lines;
  std::string attack;
  const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};
