#include "leaf/lumet/board/hw_mon.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "common/privilege_guard.h"

namespace {

constexpr int kPeriodMs = 1000;

bool Exists(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored);
}

std::string Hex(const char* format, unsigned number) {
  std::array<char, 16> text = {};
  std::snprintf(text.data(), text.size(), format, number);
  return text.data();
}

}  // namespace

HWMon::HWMon(const std::string& i2c_devices, const Machine& machine)
    : PollTimer(kPeriodMs, true), machine(machine) {
  std::transform(kSensors.begin(), kSensors.end(), sensors.begin(), [&](const SensorPlace& place) {
    const std::string bus = std::to_string(place.bus);
    const std::string bus_path = i2c_devices + "/i2c-" + bus;
    return Sensor{bus_path, bus_path + "/" + bus + "-" + Hex("%04x", place.address), place.chip,
                  Hex("0x%x", place.address)};
  });
}

std::vector<std::string> HWMon::DevicePaths() const {
  std::vector<std::string> paths;
  for (const Sensor& sensor : sensors) paths.push_back(sensor.device_path);
  return paths;
}

void HWMon::Expired() {
  Extend(kPeriodMs);
  try {
    for (std::size_t i = 0; i < sensors.size(); ++i) {
      EnsureDevice(sensors[i]);
      std::ifstream input(sensors[i].device_path + "/temp1_input");
      float millidegrees = 0;
      if (input >> millidegrees) temperatures[i] = millidegrees / 1000.0F;
    }
  } catch (const std::exception& error) {
    std::cout << "HWMon: Error: Unable to read I2C device: " << error.what() << std::endl;
  }
  // Every sample asks for it.
  max_temperature = std::max(0.0F, *std::max_element(temperatures.begin(), temperatures.end()));
}

void HWMon::EnsureDevice(const Sensor& sensor) const {
  if (Exists(sensor.device_path + "/temp1_input")) return;
  const PrivilegeGuard rights(machine);
  if (Exists(sensor.device_path))
    std::ofstream(sensor.bus_path + "/delete_device") << sensor.address_text;
  std::ofstream(sensor.bus_path + "/new_device") << sensor.chip << " " << sensor.address_text;
}
