// What a sample costs the daemon, in instructions of user mode: from the read of its record to the
// sends to every client. The whole daemon is counted, in a process of its own, at two lengths; the
// difference is what the samples in between took. Timers don't count, except on other processors. A
// further client is the difference between many clients and one, for each of them.
//
// Usage: sample_path [armel|armhf] [FIGURE [PROFILE]]
//
// With the name of a preset for another processor the daemon of that build runs emulated and is
// counted there. With the name of a figure, such as "ties-250kHz", only that one is counted; with a
// file, what callgrind knows of the longer run is written there, or the count of each function on
// another processor.

#include <algorithm>
#include <array>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/head.h"
#include "benchmarks/callgrind.h"
#include "client/lines.h"

namespace {

// What changes from sample to sample.
enum class Stream {
  kRealistic,    // the signals; levels stand still
  kEveryColumn,  // those as well
  kTies,         // the signals, which end in ties of the seventh digit, as averages of counts do
  kSmall,        // the signals, below 1e-4
};

// How samples come: so many in each read of the processor.
struct Rate {
  const char* name;
  std::uint32_t period_us;
  int in_read;
  // Reads of the shorter and the longer run. The slow ones span whole seconds, since a few things
  // happen once in each.
  int fewer_reads;
  int more_reads;
};
constexpr Rate k250kHz = {"250kHz", 4, 390, 4, 24};
constexpr Rate k1kHz = {"1kHz", 1000, 10, 100, 300};
constexpr Rate k10Hz = {"10Hz", 100'000, 1, 50, 350};

constexpr std::array kProcessors = {"x86", "armhf", "armel"};

struct Figure {
  const char* name;
  Stream stream;
  const Rate& rate;
  int further_clients;  // 0 for the sample itself, with one client
  // Instructions on each processor that are to suffice; 0 if nothing was set.
  std::array<int, kProcessors.size()> goals;
};

constexpr Figure kFigures[] = {
    {"realistic-250kHz", Stream::kRealistic, k250kHz, 0, {1300, 1500, 2500}},
    {"every-column-250kHz", Stream::kEveryColumn, k250kHz, 0, {2000, 2300, 4000}},
    {"ties-250kHz", Stream::kTies, k250kHz, 0, {2200, 2600, 4500}},
    {"small-250kHz", Stream::kSmall, k250kHz, 0, {2200, 2600, 4500}},
    {"realistic-1kHz", Stream::kRealistic, k1kHz, 0, {1500}},
    {"realistic-10Hz", Stream::kRealistic, k10Hz, 0, {2500}},
    {"further-16-250kHz", Stream::kRealistic, k250kHz, 16, {60}},
    {"further-128-250kHz", Stream::kRealistic, k250kHz, 128, {60}},
    {"further-1000-250kHz", Stream::kRealistic, k250kHz, 1000, {60}},
    {"further-16-1kHz", Stream::kRealistic, k1kHz, 16, {100}},
    {"further-128-1kHz", Stream::kRealistic, k1kHz, 128, {100}},
    {"further-1000-1kHz", Stream::kRealistic, k1kHz, 1000, {100}},
    {"further-16-10Hz", Stream::kRealistic, k10Hz, 16, {450}},
    {"further-128-10Hz", Stream::kRealistic, k10Hz, 128, {450}},
    {"further-1000-10Hz", Stream::kRealistic, k10Hz, 1000, {450}},
};

WireSample SampleOf(Stream stream, const Rate& rate, int number) {
  WireSample sample;
  const auto drift = static_cast<float>(number % 997);
  sample.tick = static_cast<std::uint32_t>(number) * rate.period_us;
  sample.lumet = 400 + drift * 0.013F;
  sample.dc = 590 + drift * 0.0171F;
  sample.pc = 330 + drift * 0.0137F;
  sample.red_dac = 20000;
  sample.blue_dac = 2000;
  sample.modred_dac = 8000;
  sample.modulation_rate = 1000;
  sample.code = 1;
  if (stream == Stream::kEveryColumn) {
    sample.red_dac += drift * 1.03F;
    sample.blue_dac += drift * 0.71F;
    sample.farred_dac = 100 + drift * 0.37F;
    sample.modred_dac += drift * 0.53F;
  }
  if (stream == Stream::kTies) {
    const auto quarters = static_cast<float>(number * 2 % 997 * 2 + 1) / 4;
    sample.lumet = 50'000 + quarters;
    sample.dc = 40'000 + quarters;
    sample.pc = 30'000 + quarters;
  }
  if (stream == Stream::kSmall) {
    sample.lumet *= 1e-7F;
    sample.dc *= 1e-7F;
    sample.pc *= 1e-7F;
  }
  return sample;
}

// The processor's records carry the time at which they were passed on.
RecordTime StampOf(const WireSample& sample) {
  return {1'700'000'000 + sample.tick / 1'000'000,
          static_cast<std::int32_t>(sample.tick % 1'000'000 * 1000)};
}

RecordWriter ReadOf(Stream stream, const Rate& rate, int first) {
  RecordWriter records;
  std::vector<WireSample> batch;
  for (int number = first; number < first + rate.in_read; ++number) {
    const WireSample sample = SampleOf(stream, rate, number);
    if (rate.in_read == 1) {
      records.Sample(StampOf(sample), sample);
      continue;
    }
    batch.push_back(sample);
    if (batch.size() < WireBatch::kSlots) continue;
    records.Batch(StampOf(sample), batch);
    batch.clear();
  }
  return records;
}

// Counts daemons of one processor.
class Counter {
 public:
  Counter(std::string processor, std::string profile)
      : processor(std::move(processor)), profile(std::move(profile)) {}

  double PerSample(Stream stream, const Rate& rate, int clients) const {
    const long fewer = Count(stream, rate, clients, rate.fewer_reads);
    const long more = Count(stream, rate, clients, rate.more_reads);
    return static_cast<double>(more - fewer) /
           ((rate.more_reads - rate.fewer_reads) * rate.in_read);
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
    if (head.Stop() != 0) throw std::runtime_error("the head failed");
    if (processor != kProcessors[0] && !profile.empty())
      std::filesystem::copy_file(log, profile, std::filesystem::copy_options::overwrite_existing);
    return CountIn(log);
  }

  // A counted head is slow, and there may be a thousand clients.
  static constexpr Timeout kPatience = std::chrono::seconds(60);

  std::string processor;
  std::string profile;
};

double Measure(const Figure& figure, const Counter& counter) {
  if (figure.further_clients == 0) return counter.PerSample(figure.stream, figure.rate, 1);
  const double all = counter.PerSample(figure.stream, figure.rate, 1 + figure.further_clients);
  return (all - counter.PerSample(figure.stream, figure.rate, 1)) / figure.further_clients;
}

void Print(const Figure& figure, std::size_t processor, const Counter& counter) {
  std::cout << std::left << std::setw(20) << figure.name << std::right << std::setw(9)
            << std::setprecision(figure.further_clients > 0 ? 1 : 0) << Measure(figure, counter);
  if (figure.goals[processor] > 0)
    std::cout << std::setw(9) << figure.goals[processor];
  else
    std::cout << std::setw(9) << "-";
  std::cout << std::endl;
}

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
    const std::string only = arguments.empty() ? "" : arguments[0];
    const Counter counter(kProcessors[processor], arguments.size() < 2 ? "" : arguments[1]);
    bool any = false;
    std::cout << std::fixed << "instructions a sample on " << kProcessors[processor]
              << ", and the goal\n";
    for (const Figure& figure : kFigures) {
      if (!only.empty() && only != figure.name) continue;
      Print(figure, processor, counter);
      any = true;
    }
    if (!any) throw std::runtime_error("there is no figure \"" + only + "\"");
  } catch (const std::exception& error) {
    std::cerr << "sample_path: " << error.what() << "\n";
    return 1;
  }
}
