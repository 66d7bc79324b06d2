#include "leaf/lumet/link/set_up_orders.h"

#include <algorithm>

void SetUpOrders::Keep(std::uint16_t code, std::span<const std::uint8_t> payload) {
  const std::size_t place = Place(code);
  if (place < in_force.size()) in_force[place].assign(payload.begin(), payload.end());
}

bool SetUpOrders::AnyOwed() const { return std::ranges::find(owed, true) != owed.end(); }

std::size_t SetUpOrders::Place(std::uint16_t code) {
  const auto* found = std::find(kCodes.begin(), kCodes.end(), static_cast<DSPCode>(code));
  return static_cast<std::size_t>(found - kCodes.begin());
}

void SetUpOrders::SetOwed(std::uint16_t code, bool is_owed) {
  const std::size_t place = Place(code);
  if (place < owed.size()) owed[place] = is_owed;
}
