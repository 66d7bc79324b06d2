// What a head costs when it starts, and while nothing happens: memory for each client that is
// connected, and for each that has been served, and how often the daemon wakes up. The daemon is
// measured alone, in a process of its own.

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/head.h"
#include "client/console.h"
#include "client/lines.h"

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

// Has everybody served: each client alone with an answer of many kilobytes, and all at once with
// the rows of as many samples as one read of the processor brings.
void Serve(Head& head, const std::vector<std::unique_ptr<LineClient>>& clients) {
  constexpr int kSamples = 390;
  for (const auto& client : clients) {
    client->Send("&query;\n");
    while (client->ReadLine().find("<ack>") == std::string::npos) {
    }
  }
  RecordWriter records;
  std::array<WireSample, WireBatch::kSlots> batch;
  for (WireSample& sample : batch) sample.code = kMeasuring;
  for (std::size_t i = 0; i < kSamples; i += batch.size()) records.Batch(StampNow(), batch);
  head.SignalProcessor().Send(records);
  for (const auto& client : clients)
    for (int i = 0; i < kSamples; ++i) client->ReadLineThatBegins("DATA\t");
}

// Bytes that each client takes once it has been served and leaves the head in peace.
long BytesPerServedClient() {
  constexpr int kServed = 1000;
  // The daemon gives memory back a moment after it was last needed.
  constexpr auto kMoment = std::chrono::milliseconds(2500);
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kCaller);
  head.SignalProcessor().ReadPacket();
  std::vector<std::unique_ptr<LineClient>> clients;
  const auto memory_for = [&](int count) {
    while (std::ssize(clients) < count)
      clients.push_back(std::make_unique<LineClient>(head.Port()));
    Serve(head, clients);
    std::this_thread::sleep_for(kMoment);
    return head.Status("RssAnon");
  };
  const long before = memory_for(1);
  return (memory_for(1 + kServed) - before) * 1024 / kServed;
}

// Seconds that the threads of a process have run since its beginning.
double CpuSeconds(pid_t pid) {
  double nanoseconds = 0;
  for (const auto& thread :
       std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
    double of_thread = 0;
    std::ifstream(thread.path() / "schedstat") >> of_thread;
    nanoseconds += of_thread;
  }
  return nanoseconds * 1e-9;
}

// From exec to the first row, on files that a head has saved before.
struct StartCost {
  double cpu_seconds = 0;
  long kilobytes = 0;
};

StartCost MeasureStart(const std::string& root) {
  Head head(root, Head::PlayedBy::kCaller);
  LineClient client(head.Port());
  client.ReadLineThatBegins("DATADIAGH\t");
  RecordWriter records;
  WireSample sample;
  sample.code = kMeasuring;
  records.Sample(StampNow(), sample);
  head.SignalProcessor().Send(records);
  client.ReadLineThatBegins("DATA\t");
  return {CpuSeconds(head.Pid()), head.Status("VmRSS")};
}

// The middle of several, since one may meet a busy machine.
StartCost MedianStart() {
  const TemporaryDirectory root;
  std::array<StartCost, 21> starts;
  for (StartCost& start : starts) start = MeasureStart(root.Path());
  std::ranges::sort(starts, {}, &StartCost::cpu_seconds);
  return starts[starts.size() / 2];
}

}  // namespace

int main() {
  const StartCost start = MedianStart();
  std::cout << "CPU from exec to the first row, ms: " << start.cpu_seconds * 1e3 << "\n"
            << "resident after it, KiB:             " << start.kilobytes << "\n";
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
              << "bytes per served client:            " << BytesPerServedClient() << "\n"
              << "wake-ups per second, no samples:    " << WakeUpsPerSecond(head) << "\n";
  }
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kSimulator, {.bench = {"--rate", "10"}});
  head.WaitForLog("FPGA Version:");
  std::cout << "wake-ups per second, 10 samples/s:  " << WakeUpsPerSecond(head) << "\n";
}
