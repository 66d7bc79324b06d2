#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/platform.h"
#include "common/poll_processor.h"

// The temperature sensors of the head's boards, in the order in which they are read and shown.
struct SensorPlace {
  std::string_view name;
  unsigned bus;
  unsigned address;
  std::string_view chip;
};
constexpr std::array<SensorPlace, 5> kSensors = {{
    {"TDigital", 1, 0x49, "lm75"},
    {"TPreamp", 1, 0x4A, "lm75"},
    {"TPowerSupply", 1, 0x4B, "lm75"},
    {"TDrive", 1, 0x4C, "lm75"},
    {"TLEDTile", 1, 0x4D, "lm75"},
}};

// °C, 0 until they are read.
using BoardTemperatures = std::array<float, kSensors.size()>;

// Reads the sensors once a second, through the kernel's files. A sensor that the kernel has lost is
// set up again, at each pass for as long as it is missing.
class HWMon : public PollTimer {
 public:
  // `where` must outlive this.
  explicit HWMon(const Platform& where);

  // One pass over all sensors. One that can't be read keeps its last value.
  void Expired() override;
  const char* GetName() override { return "HWMon"; }

  // The kernel's directories of the sensors.
  std::vector<std::string> DevicePaths() const;

  const BoardTemperatures& Temperatures() const { return temperatures; }
  // The highest, and never below 0.
  float MaxTemperature() const;

 private:
  struct Sensor {
    std::string bus_path;
    std::string device_path;
    std::string_view chip;
    std::string address_text;
  };
  void EnsureDevice(const Sensor& sensor) const;

  const Platform& platform;
  std::array<Sensor, kSensors.size()> sensors;
  BoardTemperatures temperatures = {};
};
