#pragma once

#include <chrono>
#include <stdexcept>
#include <string>
#include <string_view>

// How long a wait may take.
using Timeout = std::chrono::milliseconds;
constexpr Timeout kDefaultTimeout = std::chrono::seconds(20);
// For a wait that ends by itself alone.
constexpr Timeout kNoLimit = Timeout::max();

// What goes wrong between a program and a head, in words for its user.
class ClientError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Nobody answers, or no longer.
class NoConnection : public ClientError {
 public:
  using ClientError::ClientError;
};

// A head has refused a request; the text holds its own words.
class Refused : public ClientError {
 public:
  using ClientError::ClientError;
};

// A wait that ended in vain. The text says what was waited for, and what came instead.
class TimedOut : public ClientError {
 public:
  using ClientError::ClientError;
};

// The end of a wait that begins now.
class Deadline {
 public:
  explicit Deadline(Timeout timeout);

  // Waits until poll(2) finds one of `events`, an error or a hang-up on `fd`, but at most until the
  // end, and at most `pause`. False if it finds none. Throws ErrnoError.
  bool WaitFor(int fd, short events, Timeout pause = kNoLimit) const;
  bool IsOver() const { return Left() <= Timeout::zero(); }
  // Throws TimedOut: "waited 20 s for `awaited`; `instead`".
  [[noreturn]] void Fail(const std::string& awaited, const std::string& instead) const;

 private:
  Timeout Left() const;

  Timeout allowed;
  std::chrono::steady_clock::time_point start;
};

// A text as it is shown in an error: between quotes, cut where it is long.
std::string Quoted(std::string_view text);
