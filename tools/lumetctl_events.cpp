// lumetctl's commands for flashes, dark pulses and zeros.

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <numeric>

#include "client/event_results.h"
#include "common/host_port.h"
#include "tools/event_plot.h"
#include "tools/event_table.h"
#include "tools/lumetctl.h"
#include "tools/reference.h"

namespace {

constexpr int kPlainMeasuring = 1;
// The record of an event is on the bus a moment after its last sample.
constexpr Timeout kLateRecord = std::chrono::seconds(5);

// Follows an event in the rows of a head.
class EventFollower {
 public:
  void Saw(const ConsoleMessage& message) {
    const auto* row = std::get_if<DataRow>(&message);
    if (row == nullptr || row->Name() != "DATA") return;
    const int code = static_cast<int>((*row)["CODE"]);
    const double time = (*row)["TIME"];
    if (code == kPlainMeasuring) {
      if (has_begun) has_ended = true;
      return;
    }
    if (!has_begun) began = time;
    has_begun = true;
    lasted = time - began;
    phase = PhaseName(code);
  }
  bool HasBegun() const { return has_begun; }
  bool HasEnded() const { return has_ended; }
  std::string Text(double expected_seconds) const {
    if (!has_begun) return "waiting for the first sample";
    if (has_ended) return "waiting for the record";
    std::string text = phase + ", " + NumberText(lasted, 3) + " s";
    return expected_seconds > 0 ? text + " of " + NumberText(expected_seconds, 3) + " s" : text;
  }

 private:
  bool has_begun = false;
  bool has_ended = false;
  double began = 0;
  double lasted = 0;
  std::string phase;
};

// F and PFD over some time of plain measuring.
struct Steady {
  double F = 0;
  double F_deviation = 0;
  double PFD = 0;
  std::size_t rows = 0;
};

Steady MeasureSteady(const Ctl& ctl, ConsoleClient& head, Timeout duration) {
  std::vector<double> f;
  double pfd = 0;
  Progress progress;
  const Deadline long_enough(duration);
  // At a slow rate one row may take longer than that.
  Listen(
      head, Deadline(std::max(ctl.timeout, duration)),
      [&](const ConsoleMessage& message) {
        const auto* row = std::get_if<DataRow>(&message);
        if (row == nullptr || row->Name() != "DATA") return true;
        if ((*row)["CODE"] != kPlainMeasuring)
          throw Failed("the head is in the middle of an event; try again after it");
        f.push_back((*row)["LUMET"]);
        pfd += (*row)["PFD"];
        return !long_enough.IsOver();
      },
      [&] {
        progress.Show("F before the flash: " + std::to_string(f.size()) + " samples");
        return f.empty() || !long_enough.IsOver();
      });
  if (IsInterrupted()) throw Failed("interrupted");
  if (f.empty()) throw TimedOut("the head sends no samples; see cfg/measure");
  Steady steady;
  steady.rows = f.size();
  const auto count = static_cast<double>(f.size());
  steady.F = std::accumulate(f.begin(), f.end(), 0.0) / count;
  double squares = 0;
  for (const double each : f) squares += (each - steady.F) * (each - steady.F);
  steady.F_deviation = f.size() > 1 ? std::sqrt(squares / (count - 1)) : 0;
  steady.PFD = pfd / count;
  return steady;
}

// What each command is about.
struct EventKind {
  const char* command;
  const char* branch;  // below "cfg"
  const char* type;    // in the record
  const char* topic;
  std::vector<const char*> durations;
  double unit;  // of these, in seconds
};

const EventKind& KindOf(const std::string& command) {
  static const EventKind kKinds[] = {
      {"rect", "rectflash", "RECT", bus_topic::kFlash.c_str(), {"duration"}, 1e-3},
      {"mpf",
       "multiphaseflash",
       "MPF",
       bus_topic::kFlash.c_str(),
       {"phase1_duration", "phase2_duration", "phase3_duration"},
       1e-3},
      {"induction", "inductionflash", "INDUCTION", bus_topic::kFlash.c_str(), {"duration"}, 1e-3},
      {"dark", "darkpulse", "DARK", bus_topic::kDark.c_str(), {"before", "duration", "after"}, 1}};
  for (const EventKind& kind : kKinds)
    if (command == kind.command) return kind;
  throw ClientError("there is no event " + Quoted(command));
}

double ExpectedSeconds(const Element& cfg, const EventKind& kind) {
  double sum = 0;
  for (const char* duration : kind.durations)
    sum += std::atof(cfg.At(kind.branch).At(duration).text.c_str());
  return sum * kind.unit;
}

std::string MeasuringLight(const Element& cfg) {
  const Element& measure = cfg.At("measure");
  const std::string& control = measure.At("control").text;
  if (control == "percent") return measure.At("D_modred_percent").text + " %";
  if (control == "setpoint") return measure.At("Q_modred_setpoint").text + " µmol/m²/s";
  return control;
}

// The members of a record without its arrays.
std::string JsonMembers(const EventRecord& event) {
  std::string text;
  for (const auto& [name, value] : event.values) {
    const auto* number = std::get_if<double>(&value);
    text += (text.empty() ? "" : ",") + JsonText(name) + ":" +
            (number == nullptr ? JsonText(std::get<std::string>(value))
                               : JsonNumber(NumberText(*number, name == "TIMESTAMP" ? 11 : 6)));
  }
  return text;
}

// A flash with what was measured before it, and what it is compared with.
class FlashReport {
 public:
  FlashReport(const EventRecord& event, const Steady& steady, std::string measuring_light,
              std::string reference_path, std::optional<DarkReference> reference, bool is_own)
      : event(event),
        steady(steady),
        measuring_light(std::move(measuring_light)),
        reference_path(std::move(reference_path)),
        reference(std::move(reference)),
        is_own(is_own) {
    if (this->measuring_light != "off") Fm_light = HighestF(event);
  }

  void Print() const {
    Table table;
    const double F_error = steady.F_deviation / std::sqrt(static_cast<double>(steady.rows));
    table.Add({"F", WithError(steady.F, F_error), "counts",
               "mean of " + std::to_string(steady.rows) + " samples before it, in " +
                   NumberText(steady.PFD, 4) + " µmol/m²/s"});
    AddResults(event, table);
    AddYields({steady.F, Fm_light, reference, is_own}, table);
    std::cout << Heading(event) << ", " << Extent(event) << "\n" << table.Text("  ");
    if (is_own)
      std::cout << "Kept as the reference of " << event.device << " in " << reference_path << "\n";
  }

  void PrintJson() const {
    std::cout << "{" << JsonMembers(event) << ",\"F\":" << JsonNumber(NumberText(steady.F))
              << ",\"F_SD\":" << JsonNumber(NumberText(steady.F_deviation))
              << ",\"F_SAMPLES\":" << steady.rows
              << ",\"F_PFD\":" << JsonNumber(NumberText(steady.PFD));
    if (Fm_light) std::cout << ",\"PHI_PSII\":" << NumberText(PhiPSII(steady.F, *Fm_light));
    if (reference) {
      std::cout << ",\"FO\":" << NumberText(reference->Fo)
                << ",\"FM\":" << NumberText(reference->Fm)
                << ",\"FV_FM\":" << NumberText(reference->FvFm());
      if (Fm_light) std::cout << ",\"NPQ\":" << NumberText(reference->NPQ(*Fm_light));
      std::cout << ",\"REFERENCE\":" << JsonText(reference->taken);
    }
    std::cout << "}\n";
  }

  // What makes the comparison doubtful.
  void PrintDoubts() const {
    if (measuring_light == "off") {
      Warn("the measuring light is off (cfg/measure/control), so F means nothing");
    } else if (reference && !reference->measuring_light.empty() &&
               reference->measuring_light != measuring_light) {
      Warn("the measuring light is at " + measuring_light + ", and was at " +
           reference->measuring_light + " for the reference: Fo and Fm can't be compared");
    }
    constexpr double kDark = 2;  // µmol/m²/s; the measuring light alone gives less
    if (is_own && steady.PFD > kDark)
      Warn("the leaf was in " + NumberText(steady.PFD, 4) +
           " µmol/m²/s before the flash: it was not dark-adapted");
  }

 private:
  const EventRecord& event;
  Steady steady;
  std::string measuring_light;
  std::string reference_path;
  std::optional<DarkReference> reference;
  bool is_own;  // this flash is the reference
  std::optional<double> Fm_light;
};

// The reference for a flash, kept if it is one itself.
std::optional<DarkReference> ReferenceFor(const FlashOptions& options, const std::string& path,
                                          const EventRecord& event, const Steady& steady,
                                          const std::string& measuring_light) {
  if (options.is_dark_adapted) {
    DarkReference own{steady.F, event["FMAX"], event.device, "", measuring_light};
    own.taken = Moment(event);
    if (!IsMeasured(own.Fm) || own.Fm <= own.Fo || measuring_light == "off")
      throw Failed("FMAX (" + NumberText(own.Fm) + ") is not above F (" + NumberText(own.Fo) +
                   "), so this flash makes no reference");
    KeepReference(path, own);
    return own;
  }
  if (options.Fo) return DarkReference{*options.Fo, *options.Fm, "", "the command line", ""};
  // The reference that is kept by default may be missing; one that was asked for may not.
  auto kept = path.empty() ? std::nullopt : ReadReference(path);
  if (!kept && !options.reference.empty()) throw FileError("unable to read " + options.reference);
  return kept;
}

// Waits for the record of the event that has been ordered.
std::pair<BusMessage, EventRecord> WaitForRecord(const Ctl& ctl, ConsoleClient& head,
                                                 BusClient& bus, const EventKind& kind,
                                                 double expected_seconds) {
  EventFollower follower;
  std::optional<std::pair<BusMessage, EventRecord>> record;
  Progress progress;
  const std::string serial_number = head.Head().serial_number;
  // Its own time, and that for the first sample and the record.
  const Timeout longest =
      ctl.timeout + kLateRecord + Timeout(static_cast<Timeout::rep>(expected_seconds * 3000));
  const Deadline first(ctl.timeout);
  std::optional<Deadline> last;
  Listen(
      head, Deadline(longest),
      [&](const ConsoleMessage& message) {
        follower.Saw(message);
        return true;
      },
      [&] {
        while (auto message = bus.Take()) {
          if (message->topic != kind.topic) continue;
          EventRecord event = message->Event();
          if (event.type != kind.type || event.device != serial_number) continue;
          record.emplace(*std::move(message), std::move(event));
          return false;
        }
        if (follower.HasEnded() && !last) last.emplace(kLateRecord);
        progress.Show(follower.Text(expected_seconds));
        return !(last && last->IsOver()) && (follower.HasBegun() || !first.IsOver());
      });
  if (record) return *std::move(record);
  if (IsInterrupted()) throw Failed("interrupted; the head goes on with the event");
  if (!follower.HasBegun())
    throw TimedOut("the head took the order, but no sample of the event has come");
  const HostPort broker = ctl.Broker();
  throw TimedOut("the event is over, but its record did not come over the broker at " +
                 Place(broker.host, broker.port) +
                 "; the head may be on another one (--broker HOST:PORT)");
}

}  // namespace

void Order(ConsoleClient& head, const std::string& command) {
  const std::string path = "cmd/" + command;
  Setting known;
  known.path = path;
  const Assignment order = Assign(head, {known}, {{path, "true", {}, ""}}).front();
  const std::string words = "the head refused: " + command + ": " + order.refusal;
  if (order.setting.value != "true")
    throw Refused(order.refusal.empty() ? "the head has no command " + Quoted(command) : words);
  if (!order.refusal.empty()) Warn(words + "; it began all the same");
}

void Flash(const Ctl& ctl, const FlashOptions& options) {
  const EventKind& kind = KindOf(options.command);
  // What can't be drawn is known before the leaf sees the flash.
  if (!options.plot.empty()) CheckDrawing(options.plot);
  ConsoleClient head = ctl.Connect();
  BusClient bus = ctl.ConnectBus({kind.topic});
  const Element cfg = head.Get("cfg");
  const double expected_seconds = ExpectedSeconds(cfg, kind);
  if (!(expected_seconds > 0))
    throw Failed("the event would last no time: set " + std::string(kind.durations.front()) +
                 " and the like of cfg/" + kind.branch + " first");
  // A place for the reference is found before the leaf sees the flash.
  std::string path = options.reference;
  if (path.empty() && !options.Fo) path = ReferencePath(head.Head().serial_number);

  const Steady steady = MeasureSteady(ctl, head, options.before);
  Order(head, options.command);
  const auto [message, event] = WaitForRecord(ctl, head, bus, kind, expected_seconds);
  if (!options.save.empty()) WriteOutput(options.save, message.payload);
  const std::string light = MeasuringLight(cfg);
  const FlashReport report(event, steady, light, path,
                           ReferenceFor(options, path, event, steady, light),
                           options.is_dark_adapted);
  if (ctl.json)
    report.PrintJson();
  else
    report.Print();
  Flush();
  report.PrintDoubts();
  if (!options.plot.empty()) DrawFile(event, options.plot);
}

void Zero(const Ctl& ctl, const std::string& detector) {
  const std::string name = detector == "dc" ? "DC0" : "Pc0";
  ConsoleClient head = ctl.Connect();
  const std::string before = head.Get("cal/" + name).text;
  Order(head, "zero_" + detector + "0");
  EventFollower follower;
  Progress progress;
  Listen(head, Deadline(ctl.timeout), [&](const ConsoleMessage& message) {
    follower.Saw(message);
    progress.Show(follower.Text(0));
    return !follower.HasEnded();
  });
  progress.Wipe();
  if (IsInterrupted()) throw Failed("interrupted; the head goes on with the zero");
  if (!follower.HasEnded()) throw TimedOut("the head took the order, but the zero did not finish");
  const std::string after = head.Get("cal/" + name).text;
  const int reading = std::atoi(after.c_str()) - std::atoi(before.c_str());
  if (ctl.json)
    std::cout << "{\"path\":\"cal/" << name << "\",\"from\":" << JsonNumber(before)
              << ",\"to\":" << JsonNumber(after) << "}\n";
  else
    std::cout << name << " was " << before << ", is " << after << " counts (the reading was "
              << reading << ")\n";
  Flush();
}

void PrintEvents(const Ctl& ctl, const std::string& directory, Timeout duration,
                 std::size_t count) {
  if (!directory.empty() && mkdir(directory.c_str(), 0777) != 0 && errno != EEXIST)
    throw FileError("unable to make the directory " + directory);
  BusClient bus = ctl.ConnectBus({bus_topic::kFlash, bus_topic::kDark});
  const Deadline end(duration);
  std::size_t seen = 0;
  while (!IsInterrupted() && !end.IsOver()) {
    const auto message = bus.Take();
    if (!message) {
      end.WaitFor(bus.Descriptor(), bus.Events(), std::chrono::milliseconds(200));
      continue;
    }
    std::string file;
    try {
      const EventRecord event = message->Event();
      if (!directory.empty()) {
        file = directory + "/" + AsFileName(event.device) + "-" + AsFileName(event.date) + "-" +
               AsFileName(event.time) + "-" + std::to_string(event.id) + "-" +
               AsFileName(event.type) + ".json";
        WriteOutput(file, message->payload);
      }
      if (ctl.json) {
        std::cout << "{" << JsonMembers(event)
                  << (file.empty() ? "" : ",\"FILE\":" + JsonText(file)) << "}\n";
      } else {
        std::cout << Heading(event);
        for (const Result& result : Results(event.type))
          if (const auto value = event.Number(result.name); value && result.name[1] != '_')
            if (std::string(result.name).starts_with('F') ||
                std::string(result.name).starts_with('Q'))
              std::cout << ", " << result.name << " "
                        << (IsMeasured(*value) ? NumberText(*value) + " " + result.unit : "none");
        std::cout << (file.empty() ? "" : " → " + file) << "\n";
      }
    } catch (const NoConnection&) {
      throw;
    } catch (const ClientError& error) {
      Warn(error.what());
      continue;
    }
    Flush();
    if (++seen == count) return;
  }
}
