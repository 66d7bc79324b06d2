#include "leaf/lumet/events/event_recorder.h"

#include <array>
#include <cstdint>
#include <ctime>
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
                  const EventRecorder::Context& context) {
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

}  // namespace

std::size_t EventRecorder::RecordRoom() const {
  constexpr std::size_t kMembers = 4096;
  // Six numbers of up to 13 characters, the code, and their commas.
  constexpr std::size_t kSample = std::size_t{6} * 14 + 6;
  return kMembers + event_buffer.size() * kSample;
}

namespace {

// Writes `value(i)` for each place of `column`, and frees the column.
template <class Column, class Value>
void WriteArray(std::ostream& out, const char* name, Column& column, Value value) {
  constexpr std::ptrdiff_t kLongest = 32;  // with what PutGeneral writes beyond its end
  std::array<char, 4096> piece;
  char* to = piece.data();
  WriteName(out, name);
  *to++ = '[';
  const char* separator = "";
  for (std::size_t i = 0; i < column.size(); ++i) {
    if (*separator != '\0') *to++ = *separator;
    separator = ",";
    to = PutGeneral(to, value(i));
    if (piece.data() + piece.size() - to > kLongest) continue;
    out.write(piece.data(), to - piece.data());
    to = piece.data();
  }
  *to++ = ']';
  out.write(piece.data(), to - piece.data());
  Column().swap(column);
}

}  // namespace

EventAnalysis::Kind EventRecorder::WriteEvent(std::ostream& out, const ConfigTavo& tavo,
                                              const Context& context) {
  EventSamples samples = std::exchange(event_buffer, {});
  const double t0 = samples.time.front();
  const EventAnalysis result = AnalyseEvent(samples);
  out << "{";
  WriteInteger(out, "EVENT_ID", context.event_id);
  WriteString(out, "DEVICE", tavo.Factory().Serialnumber().get());
  WriteMoment(out, t0);
  WriteString(out, "TYPE", TypeOf(result.kind, context.flash_mode));
  WriteSettings(out, tavo.Cfg(), result.kind, context.flash_mode);
  WriteResults(out, result, context);

  const auto write_channel = [&](const char* name, std::vector<float>& channel) {
    WriteArray(out, name, channel, [&](std::size_t i) { return channel[i]; });
    out << ",";
  };
  WriteArray(out, "SECS", samples.time, [&](std::size_t i) { return samples.time[i] - t0; });
  out << ",";
  write_channel("LUMET", samples.lumet);
  write_channel("DC", samples.dc);
  std::vector<float> farred;
  if (result.kind == EventAnalysis::kDark) {
    farred = std::move(samples.farredfrac);
    for (std::size_t i = 0; i < farred.size(); ++i)
      farred[i] = (samples.pfd[i] - samples.redmodavg[i]) * farred[i];
  }
  std::vector<float>().swap(samples.farredfrac);
  write_channel("PFD", samples.pfd);
  write_channel("REDMODAVG", samples.redmodavg);
  if (result.kind == EventAnalysis::kDark) write_channel("FARRED", farred);
  WriteArray(out, "CODE", samples.code, [&](std::size_t i) { return samples.code[i]; });
  out << "\n}\n";
  return result.kind;
}
