#pragma once

#include <array>
#include <string_view>

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
