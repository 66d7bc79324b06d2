#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

// Numbers in little-endian bytes, whatever the processor's own order and alignment rules.

inline std::uint16_t GetU16(const std::uint8_t* at) {
  return static_cast<std::uint16_t>(at[0] | at[1] << 8);
}

inline std::uint32_t GetU32(const std::uint8_t* at) {
  return std::uint32_t{at[0]} | std::uint32_t{at[1]} << 8 | std::uint32_t{at[2]} << 16 |
         std::uint32_t{at[3]} << 24;
}

inline float GetF32(const std::uint8_t* at) { return std::bit_cast<float>(GetU32(at)); }

inline void PutU16(std::uint8_t* at, std::uint16_t value) {
  at[0] = static_cast<std::uint8_t>(value);
  at[1] = static_cast<std::uint8_t>(value >> 8);
}

inline void PutU32(std::uint8_t* at, std::uint32_t value) {
  for (std::size_t i = 0; i < 4; ++i) at[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

inline void PutF32(std::uint8_t* at, float value) {
  PutU32(at, std::bit_cast<std::uint32_t>(value));
}
