// What a sample costs the daemon alone, in instructions: from the read of its record to the write
// of its row to every client. The daemon runs under callgrind, in a process of its own, at two
// lengths; the difference is what the samples in between took. Two streams: in the realistic one
// the signal columns change and levels stand still, in the worst case every column changes. The
// baseline is the row alone, composed by a plain string stream.
//
// With the name of a preset for another processor, armel or armhf, the daemon of that build runs
// emulated and is counted there, without a baseline.

#include <array>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/head.h"
#include "client/console.h"

namespace {

// Averages of counts are multiples of a quarter: six digits of them end in ties.
enum class Stream { kRealistic, kWorst, kTies };

// Another processor, whose emulated daemon is counted; empty for this machine's own.
std::string other_processor;

WireSample SampleOf(Stream stream, int number) {
  WireSample sample;
  const auto drift = static_cast<float>(number % 997);
  sample.tick = static_cast<std::uint32_t>(number) * 1000;
  sample.lumet = 400 + drift * 0.013F;
  sample.dc = 590 + drift * 0.0171F;
  sample.pc = 330 + drift * 0.0137F;
  sample.red_dac = 20000;
  sample.blue_dac = 2000;
  sample.modred_dac = 8000;
  sample.modulation_rate = 1000;
  sample.code = 1;
  if (stream == Stream::kWorst) {
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
  return sample;
}

long CountedIn(const std::string& log) {
  std::ifstream file(log);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  const std::string marker = "Collected : ";
  const std::size_t at = text.find(marker);
  if (at == std::string::npos) throw std::runtime_error("there is no count: " + text);
  return std::stol(text.substr(at + marker.size()));
}

std::vector<std::string> Callgrind(const std::string& log) {
  return {"valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", "--log-file=" + log};
}

// A head whose instructions are in `log` once it has ended.
HeadOptions Counted(const std::string& log) {
  if (other_processor.empty()) return {.wrapper = Callgrind(log)};
  const std::string builds = LUMET_BUILDS "/";
  return {.program = {"qemu-arm", "-L", builds + "sysroot/" + other_processor, "-plugin",
                      LUMET_INSTRUCTION_COUNTER ",out=" + log,
                      builds + other_processor + "/lumet-bench"}};
}

long DaemonInstructions(Stream stream, int clients, int packets) {
  constexpr int kInPacket = 390;
  const TemporaryDirectory root;
  const std::string log = root.Path() + "/callgrind";
  Head head(root.Path(), Head::PlayedBy::kCaller, Counted(log));
  std::vector<std::unique_ptr<ConsoleClient>> readers;
  for (int i = 0; i < clients; ++i) readers.push_back(std::make_unique<ConsoleClient>(head.Port()));
  std::array<WireSample, WireBatch::kSlots> batch;
  int number = 0;
  for (int packet = 0; packet < packets; ++packet) {
    RecordWriter records;
    for (int i = 0; i < kInPacket / 10; ++i) {
      for (WireSample& sample : batch) sample = SampleOf(stream, number++);
      records.Batch(StampNow(), batch);
    }
    head.SignalProcessor().Send(records);
    for (auto& reader : readers)
      for (int row = 0; row < kInPacket; ++row) reader->NextData();
  }
  if (head.Stop() != 0) throw std::runtime_error("the head failed");
  return CountedIn(log);
}

double DaemonPerSample(Stream stream, int clients) {
  constexpr int kShort = 4;
  constexpr int kLong = 24;
  return static_cast<double>(DaemonInstructions(stream, clients, kLong) -
                             DaemonInstructions(stream, clients, kShort)) /
         ((kLong - kShort) * 390);
}

// The baseline: rows of as many columns, with the formatted operators alone.
void ComposeByStream(int rows) {
  std::size_t bytes = 0;
  for (int number = 0; number < rows; ++number) {
    const WireSample sample = SampleOf(Stream::kWorst, number);
    std::ostringstream row;
    row << "DATA\t" << std::fixed << std::setprecision(6) << 1.7e9 + number * 1e-3 << "\t"
        << std::defaultfloat << 0U << "\t";
    for (const float value :
         {sample.lumet, sample.dc, sample.pc, sample.pc * 1.1F, sample.modred_dac * 1e-3F,
          sample.red_dac / 23000, sample.blue_dac / 23000, sample.farred_dac / 23000,
          sample.red_dac, sample.blue_dac, sample.farred_dac, sample.modred_dac})
      row << double{value} << "\t";
    row << int{sample.code} << "\t";
    unsigned sum = 0;
    for (const char byte : row.str()) sum += static_cast<unsigned char>(byte);
    row << std::setfill('0') << std::setw(3) << sum % 256 << "\n";
    bytes += row.str().size();
  }
  if (bytes == 0) throw std::runtime_error("no rows");
}

double BaselinePerRow(const std::string& program) {
  const TemporaryDirectory root;
  const std::string log = root.Path() + "/callgrind";
  const auto count = [&](int rows) {
    std::string command;
    for (const std::string& word : Callgrind(log)) command += word + " ";
    command += "'" + program + "' " + std::to_string(rows);
    if (std::system(command.c_str()) != 0) throw std::runtime_error("failed: " + command);
    return CountedIn(log);
  };
  constexpr int kShort = 200;
  constexpr int kLong = 2200;
  return static_cast<double>(count(kLong) - count(kShort)) / (kLong - kShort);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::string argument = argc == 2 ? argv[1] : "";
    if (argument == "armel" || argument == "armhf") {
      other_processor = argument;
    } else if (!argument.empty()) {
      ComposeByStream(std::stoi(argument));
      return 0;
    }
    const double baseline = other_processor.empty() ? BaselinePerRow(argv[0]) : 0;
    std::cout << std::fixed << std::setprecision(0);
    if (baseline > 0)
      std::cout << "instructions for one row by a string stream: " << baseline << "\n";
    std::cout << "instructions of the daemon per sample"
              << (baseline > 0 ? "" : " on " + other_processor) << ":\n";
    for (const Stream stream : {Stream::kRealistic, Stream::kWorst, Stream::kTies}) {
      for (const int clients : {1, 16}) {
        const double daemon = DaemonPerSample(stream, clients);
        std::cout << (stream == Stream::kRealistic ? "  realistic, "
                      : stream == Stream::kWorst   ? "  worst case, "
                                                   : "  ties, ")
                  << std::setw(2) << clients << " clients: " << std::setw(6) << daemon;
        if (baseline > 0)
          std::cout << std::setprecision(1) << ", 1/" << baseline / daemon << std::setprecision(0);
        std::cout << std::endl;
      }
    }
  } catch (const std::exception& error) {
    std::cerr << "sample_path: " << error.what() << "\n";
    return 1;
  }
}
