#include "view/thinner.h"

void Thinner::Put(const std::vector<double>& row, std::size_t f_column) {
  const double time = row.front();
  // Times have six decimals, so steps of the spacing itself may look a little shorter.
  const bool is_slow = time < last_time || time - last_time >= 0.95 * spacing;
  last_time = time;
  f = f_column;
  if (is_slow || time - span_start >= 2 * spacing) Release();
  if (is_slow) return sink(row);
  if (least.empty()) {
    span_start = time;
    least = highest = row;
  } else {
    if (row[f] < least[f]) least = row;
    if (row[f] > highest[f]) highest = row;
  }
}

void Thinner::Release() {
  if (least.empty()) return;
  const bool rises = least.front() < highest.front();
  sink(rises ? least : highest);
  if (least.front() != highest.front()) sink(rises ? highest : least);
  least.clear();
}
