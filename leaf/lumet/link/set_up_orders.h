#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "leaf/lumet/link/dsp_records.h"

// What sets the signal processor up, as it was ordered last, and which of these orders are owed to
// it: those that it has to get again.
class SetUpOrders {
 public:
  // Keeps the payload of a command that sets the processor up; ignores others.
  void Keep(std::uint16_t code, std::span<const std::uint8_t> payload);

  // These ignore commands that set nothing up.
  void Owe(std::uint16_t code) { SetOwed(code, true); }
  void Forgive(std::uint16_t code) { SetOwed(code, false); }
  void OweAll() { owed.fill(true); }
  bool AnyOwed() const;

  // Calls `send(code, payload)` for each order that is owed and was ever given, light last. None is
  // owed any longer, unless `send` owes it again.
  template <class Send>
  void SendOwed(Send send) {
    for (std::size_t place = 0; place < kCodes.size(); ++place)
      if (std::exchange(owed[place], false) && !in_force[place].empty())
        send(static_cast<std::uint16_t>(kCodes[place]), std::span(in_force[place]));
  }

 private:
  // In the order in which they are sent again.
  static constexpr std::array kCodes = {DSPCode::SetOutputFormat,  DSPCode::SetBiasConfig,
                                        DSPCode::SetRedModulation, DSPCode::SetTestVector,
                                        DSPCode::SetGpio,          DSPCode::SetTimingConfig};
  // The place of a code in these; their number for other codes.
  static std::size_t Place(std::uint16_t code);
  void SetOwed(std::uint16_t code, bool is_owed);

  // By place; empty if there is none.
  std::array<std::vector<std::uint8_t>, kCodes.size()> in_force;
  std::array<bool, kCodes.size()> owed = {};
};
