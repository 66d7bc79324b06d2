#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "common/machine.h"
#include "common/poll_processor.h"
#include "leaf/lumet/board/sensors.h"

// Reads the sensors once a second, through the kernel's files. A sensor that the kernel has lost is
// set up again, at each pass for as long as it is missing.
class HWMon : public PollTimer {
 public:
  // `i2c_devices` is where the kernel shows the devices of its I2C buses. `machine` must outlive
  // this.
  HWMon(const std::string& i2c_devices, const Machine& machine);

  // One pass over all sensors. One that can't be read keeps its last value.
  void Expired() override;
  const char* GetName() override { return "HWMon"; }

  // The kernel's directories of the sensors.
  std::vector<std::string> DevicePaths() const;

  const BoardTemperatures& Temperatures() const { return temperatures; }
  // The highest of the latest pass, and never below 0.
  float MaxTemperature() const { return max_temperature; }

 private:
  struct Sensor {
    std::string bus_path;
    std::string device_path;
    std::string_view chip;
    std::string address_text;
  };
  void EnsureDevice(const Sensor& sensor) const;

  const Machine& machine;
  std::array<Sensor, kSensors.size()> sensors;
  BoardTemperatures temperatures = {};
  float max_temperature = 0;
};
