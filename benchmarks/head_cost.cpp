// What a head costs while nothing happens: memory for each client that is connected, and how often
// the daemon wakes up. The daemon is measured alone, in a process of its own.

#include <chrono>
#include <iostream>
#include <memory>
#include <thread>
#include <vector>

#include "bench/head.h"
#include "client/console.h"

namespace {

constexpr int kClients = 400;
constexpr int kSeconds = 5;

// Times that the daemon went to sleep and woke up, in each second.
double WakeUpsPerSecond(const Head& head) {
  const char* const counter = "voluntary_ctxt_switches";
  const long before = head.Status(counter);
  std::this_thread::sleep_for(std::chrono::seconds(kSeconds));
  return static_cast<double>(head.Status(counter) - before) / kSeconds;
}

}  // namespace

int main() {
  {
    const TemporaryDirectory root;
    Head head(root.Path(), Head::PlayedBy::kCaller);
    head.SignalProcessor().ReadPacket();
    const auto connect = [&] { return std::make_unique<ConsoleClient>(head.Port()); };
    // The first one warms the allocator.
    std::vector<std::unique_ptr<ConsoleClient>> clients;
    clients.push_back(connect());
    const long before = head.Status("RssAnon");
    for (int i = 0; i < kClients; ++i) clients.push_back(connect());
    const long kilobytes = head.Status("RssAnon") - before;
    std::cout << "bytes per idle client:              " << kilobytes * 1024 / kClients << "\n"
              << "wake-ups per second, no samples:    " << WakeUpsPerSecond(head) << "\n";
  }
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kSimulator, {.bench = {"--rate", "10"}});
  head.WaitForLog("FPGA Version:");
  std::cout << "wake-ups per second, 10 samples/s:  " << WakeUpsPerSecond(head) << "\n";
}
