#include "leaf/lumet/light/zeroing.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <map>
#include <sstream>
#include <system_error>

#include "common/privilege_guard.h"
#include "common/safe_file.h"

void Zeroing::Arm(Callback callback) {
  zero_callback = callback;
  zero_sample_count = 0;
}

std::optional<std::string> Zeroing::ZeroDC0(double, float dc, float, std::uint16_t code) {
  return AddReading(doc.Conf().Cal().DC0(), dc, code);
}

std::optional<std::string> Zeroing::ZeroPc0(double, float, float pc, std::uint16_t code) {
  return AddReading(doc.Conf().Cal().Pc0(), pc, code);
}

std::optional<std::string> Zeroing::AddReading(ConfigurableInteger& zero, float reading,
                                               std::uint16_t code) {
  constexpr int kSettling = 4;
  constexpr double kLargest = 1e9;  // far beyond any detector
  if (code != kFlash || ++zero_sample_count <= kSettling) return std::nullopt;
  // Halves round away from zero.
  const double rounded = std::isnan(reading) ? 0 : std::round(double{reading});
  const int old_value = zero.get();
  const auto new_value = static_cast<int>(std::clamp(old_value + rounded, -kLargest, kLargest));
  std::cout << "old " << zero.name() << "=" << old_value << " new " << zero.name() << "="
            << new_value << "\n";
  zero_callback = nullptr;
  zero.set(new_value);
  return zero.name();
}

void Zeroing::LogCalibration(const Timestamp& time, const std::string& type) {
  ConfigCalTavo& cal = doc.Conf().Cal();
  doc.Conf().History().add(new ConfigCalRecordTavo(time, type, cal.DC0().get(), cal.Pc0().get()));
  CompactHistory();

  const PrivilegeGuard rights(machine);
  std::ostringstream log;
  std::error_code missing;
  const auto size = std::filesystem::file_size(calibration_log, missing);
  if (missing || size == 0) {
    log << "timestamp\ttype\t";
    for (const Configurable* zero : cal.children()) log << zero->name() << "\t";
    log << "\n";
  }
  log << time << "\t" << type << "\t";
  for (Configurable* zero : cal.children()) log << zero->value_text() << "\t";
  log << "\n";
  AppendToLog(calibration_log, log.str());
}

void Zeroing::CompactHistory() {
  ConfigCalHistoryTavo& history = doc.Conf().History();
  std::map<std::string, std::unique_ptr<ConfigCalRecordTavo>> latest;
  for (std::size_t i = history.size(); i-- > 0;) {
    const ConfigCalRecordTavo& record = history.child(i);
    const std::string type = record.Type().get();
    std::unique_ptr<ConfigCalRecordTavo>& kept = latest[type.substr(0, type.find(':'))];
    if (!kept)
      kept = std::make_unique<ConfigCalRecordTavo>(record.Time().get(), type, record.DC0().get(),
                                                   record.Pc0().get());
  }
  history.remove_all();
  for (auto& [key, record] : latest) history.add(record.release());
}
