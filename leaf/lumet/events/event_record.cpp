#include "leaf/lumet/events/event_record.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <ostream>
#include <sstream>
#include <utility>

#include "common/number_format.h"
#include "configurable/json_printer_visitor.h"

namespace {

void WriteName(std::ostream& out, const char* name) { out << "\n\"" << name << "\":"; }

void WriteInteger(std::ostream& out, const char* name, std::int64_t value) {
  WriteName(out, name);
  out << value << ",";
}

void WriteNumber(std::ostream& out, const char* name, double value, int precision = 6) {
  std::array<char, 32> text;
  WriteName(out, name);
  out.write(text.data(), PutGeneral(text.data(), value, precision) - text.data());
  out << ",";
}

void WriteString(std::ostream& out, const char* name, const std::string& text) {
  WriteName(out, name);
  out << "\"" << text << "\",";
}

const char* TypeOf(EventAnalysis::Kind kind, FlashMode flash_mode) {
  switch (kind) {
    case EventAnalysis::kFlash:
      return flash_mode == FlashMode::kZero        ? "ZERO"
             : flash_mode == FlashMode::kInduction ? "INDUCTION"
                                                   : "RECT";
    case EventAnalysis::kMultiPhase:
      return "MPF";
    case EventAnalysis::kDark:
      return "DARK";
    case EventAnalysis::kNone:
      break;
  }
  return "UNKNOWN";
}

// Protocol: the date has no separators.
void WriteMoment(std::ostream& out, double seconds) {
  const auto whole = static_cast<std::time_t>(seconds);
  struct tm local = {};
  localtime_r(&whole, &local);
  std::array<char, 32> text = {};
  std::strftime(text.data(), text.size(), "%Y%m%d", &local);
  WriteString(out, "DATE", text.data());
  std::strftime(text.data(), text.size(), "%H:%M:%S", &local);
  WriteString(out, "TIME", text.data());
  WriteNumber(out, "TIMESTAMP", seconds, 11);
}

void WriteSettings(std::ostream& out, const ConfigCfgTavo& cfg, EventAnalysis::Kind kind,
                   FlashMode flash_mode) {
  JSONPrinterVisitor printer(out);
  if (kind == EventAnalysis::kMultiPhase)
    cfg.Multiphaseflash().accept_const(printer);
  else if (kind == EventAnalysis::kDark)
    cfg.Darkpulse().accept_const(printer);
  else if (kind == EventAnalysis::kFlash && flash_mode == FlashMode::kInduction)
    cfg.Inductionflash().accept_const(printer);
  else if (kind == EventAnalysis::kFlash && flash_mode != FlashMode::kZero)
    cfg.Rectflash().accept_const(printer);
}

void WriteResults(std::ostream& out, const EventAnalysis& result,
                  const EventRecord::Context& context) {
  switch (result.kind) {
    case EventAnalysis::kFlash:
    case EventAnalysis::kMultiPhase:
      WriteNumber(out, "FMAX", result.FMax());
      WriteNumber(out, "QMAX", result.q_max);
      WriteInteger(out, "MODRATE", context.flash_modrate);
      break;
    case EventAnalysis::kDark:
      WriteNumber(out, "FMIN", result.dark.min);
      WriteNumber(out, "QMIN", result.q_min);
      WriteInteger(out, "MODRATE", context.dark_modrate);
      break;
    case EventAnalysis::kNone:
      break;
  }
  if (result.kind != EventAnalysis::kMultiPhase) return;
  WriteNumber(out, "P1_MAXF", result.p1.max);
  WriteNumber(out, "P2_SLP", result.p2_slope);
  WriteNumber(out, "P2_INT", result.p2_intercept);
  WriteNumber(out, "P2_R2", result.p2_r2);
  WriteNumber(out, "P2_SLP_SE", result.p2_slope_se);
  WriteNumber(out, "P2_INT_SE", result.p2_intercept_se);
  WriteNumber(out, "P2_DQDT", result.p2_dqdt);
  WriteNumber(out, "P3_Q", result.p3_q);
  WriteNumber(out, "P3_MAXF", result.p3.max);
  WriteNumber(out, "P3_PREDF", result.p3_predicted_f);
  WriteNumber(out, "P3_DELTAF", result.P3DeltaF());
}

// Room for the number of any sample, with its comma, and for as much as is moved at once.
constexpr std::size_t kNumberRoom = 16;
using NumberText = std::array<char, kNumberRoom>;
constexpr std::size_t kPieceSamples = 4096;
static_assert(EventSamples::kBlock % kPieceSamples == 0, "a piece is of one block");
// The name of an array, and what ends it or the record.
constexpr std::size_t kNameRoom = 32;

// Writes the text of each number that `value(i)` gives. Numbers often are as they were before.
template <class Value, class Put>
char* WriteNumbers(char* to, std::size_t from, std::size_t count, Value value, Put put) {
  NumberText text = {};
  std::size_t length = 0;
  auto last = value(from);
  for (std::size_t i = from; i < from + count; ++i) {
    const auto number = value(i);
    if (length == 0 || number != last) {
      char* end = put(text.data(), number);
      *end++ = ',';
      length = static_cast<std::size_t>(end - text.data());
      last = number;
    }
    std::memcpy(to, text.data(), text.size());
    to += length;
  }
  return to;
}

// Floats are compared by their bits, which tells zeros apart and takes no floating point.
template <class Value>
char* WriteFloats(char* to, std::size_t from, std::size_t count, Value value) {
  return WriteNumbers(
      to, from, count, [&](std::size_t i) { return std::bit_cast<std::uint32_t>(value(i)); },
      [](char* at, std::uint32_t bits) { return PutFloat(at, std::bit_cast<float>(bits)); });
}

template <std::array<float, EventSamples::kBlock> EventSamples::Block::*kChannel>
char* WriteChannel(char* to, const EventSamples::Block& block, std::size_t from, std::size_t count,
                   double) {
  return WriteFloats(to, from, count, [&](std::size_t i) { return (block.*kChannel)[i]; });
}

char* WriteSeconds(char* to, const EventSamples::Block& block, std::size_t from, std::size_t count,
                   double start) {
  for (std::size_t i = from; i < from + count; ++i) {
    to = PutGeneral(to, block.time[i] - start);
    *to++ = ',';
  }
  return to;
}

char* WriteFarRed(char* to, const EventSamples::Block& block, std::size_t from, std::size_t count,
                  double) {
  return WriteFloats(to, from, count, [&](std::size_t i) {
    return (block.pfd[i] - block.redmodavg[i]) * block.farredfrac[i];
  });
}

char* WriteCodes(char* to, const EventSamples::Block& block, std::size_t from, std::size_t count,
                 double) {
  return WriteNumbers(
      to, from, count, [&](std::size_t i) { return block.code[i]; },
      [](char* at, std::uint16_t code) { return std::to_chars(at, at + 5, code).ptr; });
}

}  // namespace

const EventRecord::Array EventRecord::kArrays[] = {
    {"SECS", WriteSeconds},
    {"LUMET", WriteChannel<&EventSamples::Block::lumet>},
    {"DC", WriteChannel<&EventSamples::Block::dc>},
    {"PFD", WriteChannel<&EventSamples::Block::pfd>},
    {"REDMODAVG", WriteChannel<&EventSamples::Block::redmodavg>},
    {"FARRED", WriteFarRed},
    {"CODE", WriteCodes},
};

EventRecord::EventRecord(EventSamples event, const ConfigTavo& tavo, const Context& context)
    : samples(std::move(event)), piece(kNameRoom + kPieceSamples * kNumberRoom) {
  const EventAnalysis result = AnalyseEvent(samples);
  kind = result.kind;
  std::ostringstream out;
  out << "{";
  WriteInteger(out, "EVENT_ID", context.event_id);
  WriteString(out, "DEVICE", tavo.Factory().Serialnumber().get());
  WriteMoment(out, samples.Start());
  WriteString(out, "TYPE", TypeOf(kind, context.flash_mode));
  WriteSettings(out, tavo.Cfg(), kind, context.flash_mode);
  WriteResults(out, result, context);
  members = std::move(out).str();
  for (const Array& one : kArrays)
    if (one.write != WriteFarRed || kind == EventAnalysis::kDark) arrays.push_back(&one);
}

void EventRecord::Rewind() {
  begun = false;
  array = 0;
  sample = 0;
}

std::string_view EventRecord::Next() {
  if (!std::exchange(begun, true)) return members;
  if (array == arrays.size()) return {};
  const Array& current = *arrays[array];
  char* to = piece.data();
  const auto put = [&to](std::string_view text) { to = std::copy(text.begin(), text.end(), to); };
  if (sample == 0) {
    put("\n\"");
    put(current.name);
    put("\":[");
  }
  const std::size_t count = std::min(kPieceSamples, samples.size() - sample);
  to = current.write(to, samples.BlockOf(sample), sample % EventSamples::kBlock, count,
                     samples.Start());
  sample += count;
  if (sample == samples.size()) {
    --to;  // the last comma
    sample = 0;
    put(++array == arrays.size() ? "]\n}\n" : "],");
  }
  return {piece.data(), static_cast<std::size_t>(to - piece.data())};
}
