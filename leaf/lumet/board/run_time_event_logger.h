#pragma once

#include <memory>
#include <string>

// Keeps counts that outlive the process: minutes of running, power cycles, and numbers of events.
// The counters are kept as the last line of a log that only grows, one JSON object each quarter of
// an hour and one at the end; a power cut loses what came since.
class RunTimeEventLogger {
 public:
  // Goes on from the last whole line of the log at `path`, and counts a power cycle. After a torn
  // line that still shows an event number, the next number is above it. A log that can't be read or
  // written goes unnoticed; each line that is due tries again.
  explicit RunTimeEventLogger(const std::string& path);
  ~RunTimeEventLogger();
  RunTimeEventLogger(const RunTimeEventLogger&) = delete;
  RunTimeEventLogger& operator=(const RunTimeEventLogger&) = delete;

  // Adds 1 to a counter and returns it; the first is 1.
  int NextValue(const std::string& key);

 private:
  class RunTimeEventLoggerImpl;
  std::unique_ptr<RunTimeEventLoggerImpl> impl;
};
