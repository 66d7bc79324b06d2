// Shows what is in a recording of the link between a head and its processor, and cuts it.

#include <CLI/CLI.hpp>
#include <array>
#include <cmath>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <functional>
#include <iostream>
#include <limits>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "client/event_results.h"
#include "leaf/lumet/link/recording.h"
#include "tools/terminal.h"

namespace {

using Packets = std::vector<RecordedPacket>;

struct RecOptions {
  std::string input;
  std::string output;
  double from = 0;                                      // s
  double to = std::numeric_limits<double>::infinity();  // s
  bool records = false;
  bool settings = false;
};

double SecondsOf(const RecordedPacket& packet) { return static_cast<double>(packet.elapsed) / 1e6; }

std::string NameOf(std::uint16_t code) {
  static const std::map<DSPCode, std::string> kNames = {
      {DSPCode::PongRecord, "PongRecord"},
      {DSPCode::DebugTextRecord, "DebugTextRecord"},
      {DSPCode::InitTextRecord, "InitTextRecord"},
      {DSPCode::RequestVersion, "RequestVersion"},
      {DSPCode::VersionRecord, "VersionRecord"},
      {DSPCode::InfoTextRecord, "InfoTextRecord"},
      {DSPCode::BadCommandRecord, "BadCommandRecord"},
      {DSPCode::LegacyStatusRecord, "LegacyStatusRecord"},
      {DSPCode::WordListARecord, "WordListARecord"},
      {DSPCode::WordListBRecord, "WordListBRecord"},
      {DSPCode::FatalTextRecord, "FatalTextRecord"},
      {DSPCode::CounterRecord, "CounterRecord"},
      {DSPCode::WordListCRecord, "WordListCRecord"},
      {DSPCode::SetTimingConfig, "SetTimingConfig"},
      {DSPCode::SetBiasConfig, "SetBiasConfig"},
      {DSPCode::StartRectFlash, "StartRectFlash"},
      {DSPCode::StartMultiPhaseFlash, "StartMultiPhaseFlash"},
      {DSPCode::StartDarkPulse, "StartDarkPulse"},
      {DSPCode::BreakSequence, "BreakSequence"},
      {DSPCode::ResetSequencer, "ResetSequencer"},
      {DSPCode::DataSampleRecord, "DataSampleRecord"},
      {DSPCode::DataBatchRecord, "DataBatchRecord"},
      {DSPCode::WriteRegister, "WriteRegister"},
      {DSPCode::RegisterWrittenRecord, "RegisterWrittenRecord"},
      {DSPCode::ReadRegister, "ReadRegister"},
      {DSPCode::RegisterValueRecord, "RegisterValueRecord"},
      {DSPCode::StartRawCapture, "StartRawCapture"},
      {DSPCode::RawCaptureRecord, "RawCaptureRecord"},
      {DSPCode::SetOutputFormat, "SetOutputFormat"},
      {DSPCode::SetRedModulation, "SetRedModulation"},
      {DSPCode::StartInductionFlash, "StartInductionFlash"},
      {DSPCode::SetGpio, "SetGpio"},
      {DSPCode::SetTestVector, "SetTestVector"},
  };
  const auto found = kNames.find(static_cast<DSPCode>(code));
  if (found != kNames.end()) return found->second;
  std::ostringstream text;
  text << "0x" << std::hex << code;
  return text.str();
}

bool IsText(std::uint16_t code) {
  switch (static_cast<DSPCode>(code)) {
    case DSPCode::PongRecord:
    case DSPCode::DebugTextRecord:
    case DSPCode::InitTextRecord:
    case DSPCode::InfoTextRecord:
    case DSPCode::BadCommandRecord:
    case DSPCode::FatalTextRecord:
      return true;
    default:
      return false;
  }
}

// Its printable bytes.
std::string TextOf(std::span<const std::uint8_t> payload) {
  std::string text;
  for (const std::uint8_t byte : payload)
    if (byte >= ' ') text += static_cast<char>(byte);
  return text;
}

// A moment of the system's clock, in UTC.
std::string Moment(const RecordTime& time) {
  const std::time_t seconds = time.seconds;
  struct tm parts = {};
  gmtime_r(&seconds, &parts);
  std::array<char, 40> text = {};
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S UTC", &parts);
  return text.data();
}

// Calls `take(packet, header, sample)` for each sample.
void ForEachSample(const Packets& packets,
                   const std::function<void(const RecordedPacket&, const RecordHeader&,
                                            const WireSample&, std::uint32_t last_tick)>& take) {
  for (const RecordedPacket& packet : packets) {
    if (packet.direction != RecordedPacket::kFromProcessor) continue;
    ForEachRecord(packet.bytes, [&](const RecordHeader& header,
                                    std::span<const std::uint8_t> payload) {
      std::size_t count = 0;
      if (header.code == static_cast<std::uint16_t>(DSPCode::DataSampleRecord) &&
          payload.size() >= WireSample::kSize)
        count = 1;
      if (header.code == static_cast<std::uint16_t>(DSPCode::DataBatchRecord) &&
          payload.size() > WireBatch::kCountOffset)
        count = std::min<std::size_t>(payload[WireBatch::kCountOffset], WireBatch::kSlots);
      if (count == 0) return;
      const std::uint32_t last = WireSample::Decode(&payload[(count - 1) * WireSample::kSize]).tick;
      for (std::size_t i = 0; i < count; ++i)
        take(packet, header, WireSample::Decode(&payload[i * WireSample::kSize]), last);
    });
  }
}

std::string Listed(const std::map<std::string, std::size_t>& counts) {
  std::string text;
  for (const auto& [name, count] : counts)
    text += (text.empty() ? "" : "; ") + std::to_string(count) + " " + name;
  return text.empty() ? "none" : text;
}

std::string PhaseOf(std::uint16_t code) {
  if (code == kMeasuring) return "measuring";
  const bool is_known =
      (code >= kBeforeFlash && code <= kAfterFlash) || (code >= kBeforeDark && code <= kAfterDark);
  return is_known ? PhaseName(code) : "unknown code " + std::to_string(code);
}

std::string EventOf(std::uint16_t code) {
  if (code == kFlash) return "flash of one level";
  if (code >= kPhase1 && code <= kPhase3) return "multiphase flash";
  return code >= kDarkBeforeFarRed && code <= kDarkAfterFarRed ? "dark pulse" : "";
}

// What the samples of a recording are, by their codes.
struct Sampled {
  struct Event {
    std::string name;
    double start = 0;  // s
    double end = 0;    // s
    std::size_t samples = 0;
  };

  explicit Sampled(const Packets& packets) {
    bool within = false;
    ForEachSample(packets, [&](const RecordedPacket& packet, const RecordHeader& header,
                               const WireSample& sample, std::uint32_t) {
      if (!began) began = header.time;
      ++phases[PhaseOf(sample.code)];
      ++count;
      if (sample.code != kMeasuring && !within) events.push_back({"", SecondsOf(packet), 0, 0});
      within = sample.code != kMeasuring;
      if (!within) return;
      Event& event = events.back();
      ++event.samples;
      event.end = SecondsOf(packet);
      if (event.name.empty()) event.name = EventOf(sample.code);
    });
  }

  std::size_t count = 0;
  std::map<std::string, std::size_t> phases;
  std::vector<Event> events;
  std::optional<RecordTime> began;
};

std::string At(double seconds) { return "at " + NumberText(seconds, 7) + " s"; }

void PrintInfo(const RecOptions& options, const Packets& packets) {
  const Sampled sampled(packets);
  Table table;
  table.Add({"recording", options.input + ", " +
                              std::to_string(std::filesystem::file_size(options.input)) +
                              " bytes, " + std::to_string(packets.size()) + " packets"});
  if (!packets.empty())
    table.Add({"time", NumberText(SecondsOf(packets.front()), 7) + " to " +
                           NumberText(SecondsOf(packets.back()), 7) + " s" +
                           (sampled.began ? ", from " + Moment(*sampled.began) : "")});
  std::map<std::string, std::size_t> sent;
  std::map<std::string, std::size_t> commands;
  std::vector<std::string> said;
  std::vector<std::string> settings;
  for (const RecordedPacket& packet : packets) {
    if (packet.direction == RecordedPacket::kSettings) {
      const RecordedSettings file = RecordedSettings::Of(packet);
      settings.push_back(file.name + " " + At(SecondsOf(packet)) + ", " +
                         std::to_string(file.text.size()) + " bytes");
      continue;
    }
    const bool is_command = packet.direction == RecordedPacket::kToProcessor;
    ForEachRecord(packet.bytes, [&](const RecordHeader& header,
                                    std::span<const std::uint8_t> payload) {
      ++(is_command ? commands : sent)[NameOf(header.code)];
      if (!is_command && IsText(header.code))
        said.push_back(NameOf(header.code) + " " + At(SecondsOf(packet)) + ": " + TextOf(payload));
    });
  }
  table.Add({"samples", std::to_string(sampled.count) + ": " + Listed(sampled.phases)});
  for (const Sampled::Event& event : sampled.events)
    table.Add({"event", (event.name.empty() ? "unknown" : event.name) + " " + At(event.start) +
                            " to " + NumberText(event.end, 7) + " s, " +
                            std::to_string(event.samples) + " samples"});
  table.Add({"processor", Listed(sent)});
  table.Add({"head", Listed(commands)});
  for (const std::string& text : said) table.Add({"text", text});
  if (settings.empty())
    settings.emplace_back("none: recorded before recordings held them, or the head did not start");
  for (const std::string& text : settings) table.Add({"settings", text});
  std::cout << table.Text();
}

// Each sample on a line.
void DumpSamples(const Packets& packets, std::ostream& out) {
  out << "ELAPSED,TIME,TICK,CODE,LUMET,DC,PC,REDDAC,BLUEDAC,FARREDDAC,MODREDDAC,MODRATE,FLAGS\n";
  ForEachSample(packets, [&](const RecordedPacket& packet, const RecordHeader& header,
                             const WireSample& sample, std::uint32_t last_tick) {
    // The record is stamped when its last sample is there.
    const std::uint32_t before = last_tick - sample.tick;
    std::array<char, 80> time = {};
    std::snprintf(time.data(), time.size(), "%.6f,%.6f,%u,%u", SecondsOf(packet),
                  header.time.InSeconds() - before / 1e6, sample.tick, sample.code);
    out << time.data();
    for (const float value : {sample.lumet, sample.dc, sample.pc, sample.red_dac, sample.blue_dac,
                              sample.farred_dac, sample.modred_dac})
      out << "," << NumberText(value, 9);
    out << "," << sample.modulation_rate << "," << sample.flags << "\n";
  });
}

// Each record in either direction on a line, with its text or, for others, its bytes.
void DumpRecords(const Packets& packets, std::ostream& out) {
  out << "ELAPSED,FROM,RECORD,BYTES,CONTENT\n";
  for (const RecordedPacket& packet : packets) {
    if (packet.direction == RecordedPacket::kSettings) continue;
    const char* const from =
        packet.direction == RecordedPacket::kFromProcessor ? "processor" : "head";
    ForEachRecord(
        packet.bytes, [&](const RecordHeader& header, std::span<const std::uint8_t> payload) {
          out << NumberText(SecondsOf(packet), 10) << "," << from << "," << NameOf(header.code)
              << "," << payload.size() << ",";
          if (IsText(header.code)) {
            std::string text = TextOf(payload);
            for (std::size_t at = 0; (at = text.find('"', at)) != std::string::npos; at += 2)
              text.insert(at, 1, '"');
            out << '"' << text << '"';
          } else {
            constexpr std::string_view kDigits = "0123456789abcdef";
            for (const std::uint8_t byte : payload) out << kDigits[byte >> 4] << kDigits[byte & 15];
          }
          out << "\n";
        });
  }
}

void DumpSettings(const Packets& packets, std::ostream& out) {
  for (const RecordedPacket& packet : packets) {
    if (packet.direction != RecordedPacket::kSettings) continue;
    const RecordedSettings file = RecordedSettings::Of(packet);
    out << "<!-- " << file.name << " " << At(SecondsOf(packet)) << " -->\n" << file.text;
    if (!file.text.ends_with('\n')) out << "\n";
  }
}

// Whether the processor says in it what it is.
bool IsGreeting(const RecordedPacket& packet) {
  bool greets = false;
  ForEachRecord(packet.bytes, [&](const RecordHeader& header, std::span<const std::uint8_t>) {
    greets |= header.code == static_cast<std::uint16_t>(DSPCode::InitTextRecord) ||
              header.code == static_cast<std::uint16_t>(DSPCode::VersionRecord);
  });
  return greets && packet.direction == RecordedPacket::kFromProcessor;
}

// The packets of a span of time. What holds before it, the settings and what the processor is,
// comes first.
Packets Cut(const Packets& packets, double from, double to) {
  Packets before;
  std::map<std::string, RecordedPacket> settings;
  Packets within;
  for (const RecordedPacket& packet : packets) {
    const double seconds = SecondsOf(packet);
    if (seconds > to) break;
    if (seconds >= from)
      within.push_back(packet);
    else if (packet.direction == RecordedPacket::kSettings)
      settings[RecordedSettings::Of(packet).name] = packet;
    else if (IsGreeting(packet))
      before.push_back(packet);
  }
  const std::uint64_t start = within.empty() ? 0 : within.front().elapsed;
  for (const auto& [name, packet] : settings) before.push_back(packet);
  for (RecordedPacket& packet : before) packet.elapsed = start;
  before.insert(before.end(), within.begin(), within.end());
  return before;
}

Packets Read(const RecOptions& options) {
  try {
    return ReadRecording(options.input);
  } catch (const std::exception& error) {
    throw FileError(error.what());
  }
}

void Info(const RecOptions& options) {
  PrintInfo(options, Read(options));
  Flush();
}

void Dump(const RecOptions& options) {
  Packets packets = Read(options);
  std::erase_if(packets, [&](const RecordedPacket& packet) {
    return SecondsOf(packet) < options.from || SecondsOf(packet) > options.to;
  });
  if (options.records)
    DumpRecords(packets, std::cout);
  else if (options.settings)
    DumpSettings(packets, std::cout);
  else
    DumpSamples(packets, std::cout);
  Flush();
}

void CutFile(const RecOptions& options) {
  const Packets packets = Cut(Read(options), options.from, options.to);
  std::error_code missing;
  if (std::filesystem::equivalent(options.input, options.output, missing))
    throw FileError(options.output + " is the recording itself");
  if (packets.empty())
    throw FileError("the recording has nothing from " + NumberText(options.from) + " to " +
                    NumberText(options.to) + " s");
  try {
    RecordingWriter writer(options.output);
    // Time begins anew.
    for (const RecordedPacket& packet : packets)
      writer.Write(packet.elapsed - packets.front().elapsed, packet.direction, packet.bytes);
  } catch (const std::exception& error) {
    throw FileError(error.what());
  }
}

}  // namespace

int main(int argc, char** argv) try {
  std::ios::sync_with_stdio(false);
  std::signal(SIGPIPE, SIG_IGN);
  CLI::App app(
      "Shows what is in a recording of the link between a head and its processor, as lumet-bench\n"
      "makes it with --record, and cuts it.",
      "lumet-rec");
  app.set_version_flag("--version", "lumet-rec " LUMET_VERSION);
  app.require_subcommand(1);
  RecOptions options;
  std::function<void(const RecOptions&)> act;
  const auto add = [&](const char* name, const char* help, void (*run)(const RecOptions&)) {
    CLI::App* const command = app.add_subcommand(name, help);
    command->callback([&act, run] { act = run; });
    command->add_option("FILE", options.input, "The recording")->required();
    return command;
  };
  const auto add_span = [&](CLI::App* command) {
    command->add_option("--from", options.from, "Start, seconds after that of the recording");
    command->add_option("--to", options.to, "End, likewise");
  };
  add("info", "Print times, samples by phase, events, commands, texts and settings", Info);
  CLI::App* const dump = add("dump", "Print the samples as CSV", Dump);
  add_span(dump);
  CLI::Option* const records =
      dump->add_flag("--records", options.records, "Print each record of either side instead");
  dump->add_flag("--settings", options.settings, "Print the settings instead")->excludes(records);
  CLI::App* const cut =
      add("cut", "Write a part of it as a recording, with the settings in force then", CutFile);
  cut->add_option("OUTPUT", options.output, "The recording to write")->required();
  add_span(cut);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kMisused;
  }
  return RunTool("lumet-rec", [&] { act(options); });
} catch (const std::exception& error) {
  std::cerr << "lumet-rec: " << error.what() << "\n";
  return kFailed;
}
