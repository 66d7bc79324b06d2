#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/poll_processor.h"
#include "common/stream_file.h"

// Finds the addresses of a host without keeping the loop waiting.
//
// The system's own look-up waits for as long as a name service takes, half a minute for one that
// hangs. So each name is looked up by a thread of its own, which does nothing else: it touches no
// object of the loop, takes no signals, and ends by itself, also long after this is gone. What it
// has found comes back on the loop. An address needs no thread.
class HostLookup : private PollItem {
 public:
  // In numbers, in the order of the system's preference: "::1", "fe80::1%eth0", "10.0.0.1". Empty
  // if the name has none, or nobody knows them.
  using Addresses = std::vector<std::string>;

  HostLookup();
  ~HostLookup() override;

  // Hands the addresses of `host` to `found`, once: before it returns if `host` is an address, on
  // the loop otherwise. A look-up that is under way is given up.
  void Start(const std::string& host, std::function<void(const Addresses&)> found);
  // `found` is no longer called.
  void Cancel();
  bool IsRunning() const { return answer != nullptr; }

 private:
  struct Answer;

  int GetFD() override { return done.GetFD(); }
  void HandleEvents(int revents) override;
  const char* GetName() override { return "HostLookup"; }

  std::shared_ptr<Answer> answer;  // shared with the thread; null while nothing is looked up
  StreamFileBase done;             // at its end when the thread has answered
  std::function<void(const Addresses&)> found;
};
