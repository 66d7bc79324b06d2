// What a sample costs the daemon, in instructions of user mode: from the read of its record to the
// sends to every client. The whole daemon is counted, in a process of its own, at two lengths; the
// difference is what the samples in between took. Timers don't count, except on other processors. A
// further client is the difference between many clients and one, for each of them. An event is
// gathered, sent to a client row by row, and published on a bus.
//
// Usage: sample_path [armel|armhf] [--kept | FIGURE...] [--profile=FILE]
//
// With the name of a preset for another processor the daemon of that build runs emulated and is
// counted there. With names of figures, such as "ties-250kHz", only those are counted; with a file,
// what callgrind knows of the last run is written there, or the count of each function on another
// processor.

#include <algorithm>
#include <array>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "bench/broker.h"
#include "bench/free_port.h"
#include "bench/head.h"
#include "benchmarks/callgrind.h"
#include "benchmarks/figure.h"
#include "benchmarks/stream.h"
#include "client/bus.h"
#include "client/lines.h"

namespace {

constexpr std::array kProcessors = {"x86", "armhf", "armel"};
using Goals = std::array<int, kProcessors.size()>;

// How long the counted runs are. The slow ones span whole seconds, since a few things happen once
// in each.
struct Course {
  const char* name;
  const char* meaning;
  const Rate& rate;
  int fewer_reads;
  int more_reads;
};
constexpr Course kFast = {"250kHz", "250 kHz, 390 a read", k250kHz, 4, 24};
constexpr Course kMiddle = {"1kHz", "1 kHz, 10 a read", k1kHz, 100, 300};
constexpr Course kSlow = {"10Hz", "10 Hz, single", k10Hz, 50, 1050};

struct StreamName {
  const char* name;
  const char* meaning;
};
StreamName NameOf(Stream stream) {
  switch (stream) {
    case Stream::kRealistic:
      return {"realistic", "realistic"};
    case Stream::kEveryColumn:
      return {"every-column", "every column changes"};
    case Stream::kTies:
      return {"ties", "ties"};
    case Stream::kSmall:
      return {"small", "below 1e-4"};
    case Stream::kFlash:
      break;
  }
  return {"event", "event"};
}

// A sample, with so many clients.
struct OfSample {
  const Course& course;
  Stream stream;
  int clients;
  Goals goals;  // instructions on each processor that are to suffice; 0 if nothing was set
};
constexpr OfSample kOfSamples[] = {
    {kFast, Stream::kRealistic, 1, {1300, 1500, 2500}},
    {kFast, Stream::kEveryColumn, 1, {2000, 2300, 4000}},
    {kFast, Stream::kTies, 1, {2200, 2600, 4500}},
    {kFast, Stream::kSmall, 1, {2200, 2600, 4500}},
    {kMiddle, Stream::kRealistic, 1, {1500}},
    {kMiddle, Stream::kEveryColumn, 1, {}},
    {kMiddle, Stream::kTies, 1, {}},
    {kSlow, Stream::kRealistic, 1, {2500}},
    {kSlow, Stream::kEveryColumn, 1, {}},
    {kSlow, Stream::kTies, 1, {}},
    {kFast, Stream::kRealistic, 128, {}},
    {kFast, Stream::kEveryColumn, 128, {}},
    {kMiddle, Stream::kRealistic, 128, {}},
    {kMiddle, Stream::kEveryColumn, 128, {}},
    {kSlow, Stream::kRealistic, 128, {}},
    {kSlow, Stream::kEveryColumn, 128, {}},
};

// One client more, where there are so many.
constexpr int kFurther[] = {16, 128, 1000};
struct OfFurtherClient {
  const Course& course;
  Goals goals;
};
constexpr OfFurtherClient kOfFurtherClients[] = {{kFast, {60}}, {kMiddle, {100}}, {kSlow, {450}}};

// An event of as many samples as 20 reads bring.
constexpr int kReadsOfEvent = 20;

// Counts daemons of one processor.
class Counter {
 public:
  Counter(std::string processor, std::string profile)
      : processor(std::move(processor)), profile(std::move(profile)) {}

  // Each is counted once, however often it is asked for.
  double PerSample(const Course& course, Stream stream, int clients) {
    const auto [known, is_new] = counted.try_emplace({course.name, stream, clients});
    if (is_new)
      known->second = PerTurn([&](int reads) { return Count(stream, course.rate, clients, reads); },
                              course.fewer_reads, course.more_reads) /
                      course.rate.in_read;
    return known->second;
  }
  double PerEvent() const {
    return PerTurn([this](int events) { return CountEvents(events); }, 1, 3);
  }

 private:
  // A head whose instructions are in `log` once it has ended.
  HeadOptions Counted(const std::string& log) const {
    if (processor == kProcessors[0]) {
      // The loop without what it does at certain times, whatever the samples.
      std::vector<std::string> options = {"--toggle-collect=PollProcessor::Process(int)",
                                          "--toggle-collect=*::Expired()"};
      if (!profile.empty()) options.push_back("--callgrind-out-file=" + profile);
      return {.wrapper = CallgrindWords(log, options)};
    }
    const std::string builds = LUMET_BUILDS "/";
    return {.program = {"qemu-arm", "-L", builds + "sysroot/" + processor, "-plugin",
                        LUMET_INSTRUCTION_COUNTER ",out=" + log,
                        builds + processor + "/lumet-bench"}};
  }

  long Count(Stream stream, const Rate& rate, int clients, int reads) const {
    const TemporaryDirectory root;
    const std::string log = root.Path() + "/counted";
    Head head(root.Path(), Head::PlayedBy::kCaller, Counted(log));
    std::vector<std::unique_ptr<LineClient>> readers;
    for (int i = 0; i < clients; ++i)
      readers.push_back(std::make_unique<LineClient>(head.Port(), "::1", kPatience));
    for (auto& reader : readers) reader->ReadLineThatBegins("DATADIAGH");
    for (int read = 0; read < reads; ++read) {
      RecordWriter records = ReadOf(stream, rate, read * rate.in_read);
      head.SignalProcessor().Send(records);
      for (auto& reader : readers)
        for (int row = 0; row < rate.in_read; ++row) reader->ReadLineThatBegins("DATA\t");
    }
    return CountOf(head, log);
  }

  long CountEvents(int events) const {
    const TemporaryDirectory root;
    const FreePort port;
    const Broker broker(root.Path() + "/broker", port);
    const std::string log = root.Path() + "/counted";
    HeadOptions options = Counted(log);
    options.bench = {"--broker", "[::1]:" + std::to_string(port)};
    Head head(root.Path(), Head::PlayedBy::kCaller, options);
    BusClient({.port = port, .timeout = kPatience}).WaitForHead();
    BusClient bus({.port = port, .topics = {bus_topic::kFlash}, .timeout = kPatience});
    LineClient reader(head.Port(), "::1", kPatience);
    reader.ReadLineThatBegins("DATADIAGH");
    int number = 0;
    const auto send = [&](Stream stream, int reads) {
      for (int read = 0; read < reads; ++read, number += k250kHz.in_read) {
        RecordWriter records = ReadOf(stream, k250kHz, number);
        head.SignalProcessor().Send(records);
        for (int row = 0; row < k250kHz.in_read; ++row) reader.ReadLineThatBegins("DATA\t");
      }
    };
    for (int event = 0; event < events; ++event) {
      send(Stream::kFlash, kReadsOfEvent);
      send(Stream::kRealistic, 1);
      bus.NextEvent();
    }
    return CountOf(head, log);
  }

  long CountOf(Head& head, const std::string& log) const {
    if (head.Stop() != 0) throw std::runtime_error("the head failed");
    if (processor != kProcessors[0] && !profile.empty())
      std::filesystem::copy_file(log, profile, std::filesystem::copy_options::overwrite_existing);
    return CountIn(log);
  }

  // A counted head is slow, and there may be a thousand clients.
  static constexpr Timeout kPatience = std::chrono::seconds(60);

  std::string processor;
  std::string profile;
  std::map<std::tuple<std::string, Stream, int>, double> counted;
};

void TellCount(Figure figure, int goal) {
  figure.unit = "instructions";
  Tell(WithLimit(std::move(figure), goal));
}

// The part that the arguments choose.
class Report {
 public:
  Report(std::size_t processor, Counter counter, Selection selection)
      : processor(processor), counter(std::move(counter)), selection(std::move(selection)) {}

  void TellAll() {
    for (const OfSample& one : kOfSamples) TellSample(one);
    for (const OfFurtherClient& one : kOfFurtherClients)
      for (const int clients : kFurther) TellFurtherClient(one, clients);
    if (processor == 0 && selection.Wants("event", true))
      TellCount({.name = "event",
                 .meaning = "event of " + std::to_string(kReadsOfEvent * k250kHz.in_read) +
                            " samples, rows and record",
                 .ours = counter.PerEvent()},
                0);
    selection.CheckNames();
  }

 private:
  void TellSample(const OfSample& one) {
    const StreamName stream = NameOf(one.stream);
    const bool alone = one.clients == 1;
    const std::string clients = std::to_string(one.clients);
    const std::string name =
        std::string(stream.name) + "-" + one.course.name + (alone ? "" : "-" + clients);
    if (!selection.Wants(name, true)) return;
    TellCount({.name = name,
               .meaning = std::string(one.course.meaning) + ", " + stream.meaning + ", " + clients +
                          (alone ? " client" : " clients"),
               .ours = counter.PerSample(one.course, one.stream, one.clients)},
              one.goals[processor]);
  }

  void TellFurtherClient(const OfFurtherClient& one, int clients) {
    const std::string name = "further-" + std::to_string(clients) + "-" + one.course.name;
    if (!selection.Wants(name)) return;
    const auto count = [&](int all) {
      return counter.PerSample(one.course, Stream::kRealistic, all);
    };
    TellCount({.name = name,
               .meaning = std::string(one.course.meaning) + ", each further client of " +
                          std::to_string(clients),
               .ours = (count(clients) - count(1)) / (clients - 1)},
              one.goals[processor]);
  }

  std::size_t processor;
  Counter counter;
  Selection selection;
};

}  // namespace

int main(int argc, char** argv) {
  try {
    std::vector<std::string> arguments(argv + 1, argv + argc);
    std::size_t processor = 0;
    if (!arguments.empty()) {
      const auto* const named = std::find(kProcessors.begin(), kProcessors.end(), arguments[0]);
      if (named != kProcessors.end()) {
        processor = static_cast<std::size_t>(named - kProcessors.begin());
        arguments.erase(arguments.begin());
      }
    }
    const std::string profile_option = "--profile=";
    std::string profile;
    if (!arguments.empty() && arguments.back().starts_with(profile_option)) {
      profile = arguments.back().substr(profile_option.size());
      arguments.pop_back();
    }
    Report(processor, Counter(kProcessors[processor], profile), Selection(arguments)).TellAll();
  } catch (const std::exception& error) {
    std::cerr << "sample_path: " << error.what() << "\n";
    return 1;
  }
}
