#include "leaf/lumet/board/system_settings.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <sstream>
#include <stdexcept>

#include "common/steps.h"
#include "common/timestamp.h"

namespace {

// Three numbers with `separator` between them. False if `text` is anything else.
bool ReadTriple(const std::string& text, char separator, int& first, int& second, int& third) {
  std::istringstream in(text);
  char between = 0;
  char then = 0;
  in >> first >> between >> second >> then >> third;
  return in && between == separator && then == separator;
}

// Whether the calendar of the head, 1989 to 2099, has this day.
bool IsDate(int year, int month, int day) {
  const Timestamp there(year, month, day, 0, 0, 0);
  return there.GetYear() == year && there.GetMonth() == month && there.GetDay() == day;
}

bool IsTimeOfDay(int hour, int minute, int second) {
  return hour >= 0 && hour < 24 && minute >= 0 && minute < 60 && second >= 0 && second < 60;
}

// The moment of a local date and time.
std::time_t MomentOf(const std::string& date, const std::string& time) {
  struct tm local = {};
  if (!ReadTriple(date, '-', local.tm_year, local.tm_mon, local.tm_mday) ||
      !IsDate(local.tm_year, local.tm_mon, local.tm_mday))
    throw std::runtime_error("Invalid date format (should be YYYY-MM-DD): " + date);
  if (!ReadTriple(time, ':', local.tm_hour, local.tm_min, local.tm_sec) ||
      !IsTimeOfDay(local.tm_hour, local.tm_min, local.tm_sec))
    throw std::runtime_error("Invalid time format (should be HH:MM:SS): " + time);
  local.tm_year -= 1900;
  local.tm_mon -= 1;
  local.tm_isdst = -1;
  return mktime(&local);
}

}  // namespace

void SystemSettings::FillInZones(ConfigTavo& tavo) const {
  ConfigTimezone& zone = tavo.Cfg().Clock().Zone();
  if (zone.choices().size() >= 2) return;
  std::stringstream names;
  const char* separator = "";
  for (const std::string& name : system_clock.Zones()) {
    names << separator << name;
    separator = "|";
  }
  std::ostringstream errors;
  zone.read_doctype(names, errors);
}

void SystemSettings::FillIn(ConfigTavo& tavo) const {
  ConfigCfgClock& clock = tavo.Cfg().Clock();
  const std::vector<std::string>& zones = clock.Zone().choices();
  const auto zone = std::find(zones.begin(), zones.end(), system_clock.WantedZone());
  if (zone != zones.end()) clock.Zone().set(static_cast<int>(zone - zones.begin()));
  clock.Ptp().set(ptp_service.GetMode());
  clock.set_changed(false);

  ConfigCfgNetwork& settings = tavo.Cfg().Network();
  const NetworkConfig::Values& values = network.Get();
  settings.Name().set(values.host_name);
  settings.Configuration().set(values.dhcp ? ConfigAutoManual::Auto : ConfigAutoManual::Manual);
  settings.Ipaddress().set(values.address);
  settings.Netmask().set(values.netmask);
  settings.Gateway().set(values.gateway);
  settings.set_changed(false);
}

void SystemSettings::Apply(ConfigTavo& tavo) {
  Steps steps;
  if (tavo.Cfg().Network().has_changed()) steps.Run([&] { ApplyNetwork(tavo.Cfg().Network()); });
  if (tavo.Cfg().Clock().has_changed()) steps.Run([&] { ApplyClock(tavo.Cfg().Clock()); });
  steps.ThrowFirstFailure();
}

void SystemSettings::SaveAgain() {
  network.SaveAgain();
  ptp_service.SaveAgain();
  system_clock.SaveAgain();
}

void SystemSettings::ApplyNetwork(ConfigCfgNetwork& settings) {
  network.set({settings.Name().get(), settings.Configuration().get() == ConfigAutoManual::Auto,
               settings.Ipaddress().get(), settings.Netmask().get(), settings.Gateway().get()});
}

void SystemSettings::ApplyClock(ConfigCfgClock& settings) {
  Steps steps;
  if (settings.Ptp().has_changed()) steps.Run([&] { ptp_service.Set(settings.Ptp().get()); });
  if (settings.Time().has_changed() || settings.Date().has_changed())
    steps.Run([&] { SetClock(MomentOf(settings.Date().get(), settings.Time().get())); });
  if (settings.Zone().has_changed())
    steps.Run([&] { system_clock.SetZone(settings.Zone().text()); });
  if (settings.TimeT().has_changed()) steps.Run([&] { SetClock(settings.TimeT().get()); });
  steps.ThrowFirstFailure();
}

void SystemSettings::SetClock(std::time_t seconds) {
  if (ptp_service.GetMode() == PtpConfig::kSlaveOnly) return;
  // The text has its own line feed. A time beyond every calendar has no text.
  std::array<char, 64> text = {};
  const char* shown = ctime_r(&seconds, text.data());
  std::cout << "Set clock to: " << (shown != nullptr ? shown : "\n");
  system_clock.SetTime(seconds);
}
