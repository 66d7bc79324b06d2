// What a head costs when it starts, and while nothing happens: memory for each client that is
// connected, and for each that has been served, and how often the daemon wakes up. The daemon is
// measured alone, in a process of its own.

#include <algorithm>
#include <array>
#include <chrono>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/head.h"
#include "benchmarks/cpu_time.h"
#include "benchmarks/figure.h"
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

void TellMemory(const char* name, const char* meaning, long bytes, long limit) {
  Tell(WithLimit({.name = name,
                  .meaning = meaning,
                  .kind = Figure::Kind::kMemory,
                  .unit = "bytes",
                  .ours = static_cast<double>(bytes)},
                 static_cast<double>(limit)));
}

void TellWakeUps(const char* name, const char* meaning, const Head& head) {
  Tell({.name = name, .meaning = meaning, .unit = "wake-ups/s", .ours = WakeUpsPerSecond(head)});
}

}  // namespace

int main() {
  const StartCost start = MedianStart();
  Tell(WithLimit({.name = "start-cpu",
                  .meaning = "CPU from exec to the first row",
                  .kind = Figure::Kind::kTime,
                  .unit = "ms",
                  .ours = start.cpu_seconds * 1e3},
                 15));
  TellMemory("start-memory", "resident then", start.kilobytes * 1024, 10 << 20);
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
    TellMemory("idle-client", "an idle client", kilobytes * 1024 / kClients, 0);
    TellMemory("served-client", "a client that has been served", BytesPerServedClient(), 4096);
    TellWakeUps("idle-wake-ups", "no samples", head);
  }
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kSimulator, {.bench = {"--rate", "10"}});
  head.WaitForLog("FPGA Version:");
  TellWakeUps("wake-ups", "10 samples a second", head);
}
