#include "tests/soak_report.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <sstream>

void SoakReport::Begin(const std::string& new_attack) {
  const std::lock_guard guard(mutex);
  attack = new_attack;
  if (++lines[attack].times == 1) order.push_back(attack);
}

void SoakReport::Checked(What what, std::uint64_t count) {
  const std::lock_guard guard(mutex);
  lines[attack].checked[what] += count;
}

void SoakReport::Uses(double mebibytes, std::size_t descriptors) {
  const std::lock_guard guard(mutex);
  Line& line = lines[attack];
  line.mebibytes = std::max(line.mebibytes, mebibytes);
  line.descriptors = std::max(line.descriptors, descriptors);
}

void SoakReport::Waited(std::chrono::milliseconds wait) {
  const std::lock_guard guard(mutex);
  lines[attack].wait = std::max(lines[attack].wait, wait);
}

void SoakReport::Fail(const std::string& what) {
  const std::lock_guard guard(mutex);
  lines[attack].failures.push_back(what);
  std::cout << "FAILED during '" << attack << "': " << what << std::endl;
}

bool SoakReport::HasFailed() const {
  const std::lock_guard guard(mutex);
  return std::ranges::any_of(lines,
                             [](const auto& entry) { return !entry.second.failures.empty(); });
}

std::string SoakReport::Progress() const {
  const std::lock_guard guard(mutex);
  std::map<What, std::uint64_t> sum;
  std::chrono::milliseconds wait{};
  for (const auto& [name, line] : lines) {
    for (const auto& [what, count] : line.checked) sum[what] += count;
    wait = std::max(wait, line.wait);
  }
  const auto passed =
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
  std::ostringstream out;
  out << std::setw(6) << passed.count() << " s: " << sum[kRows] << " rows, " << sum[kEvents]
      << " events, " << sum[kSettings] << " settings right; longest wait " << wait.count()
      << " ms; now " << attack;
  return out.str();
}

std::string SoakReport::Table() const {
  const std::lock_guard guard(mutex);
  std::ostringstream out;
  const auto row = [&](const auto&... cells) {
    constexpr int kFirst = 30;
    constexpr int kOther = 11;
    int width = -kFirst;
    const auto put = [&](const auto& cell) {
      out << (width < 0 ? std::left : std::right) << std::setw(width < 0 ? kFirst : kOther) << cell;
      width = kOther;
    };
    (put(cells), ...);
    out << "\n";
  };
  row("attack", "times", "rows", "events", "settings", "wait, ms", "MiB", "open files", "verdict");
  out << std::fixed << std::setprecision(1);
  for (const std::string& name : order) {
    const Line& line = lines.at(name);
    const auto checked = [&](What what) {
      const auto found = line.checked.find(what);
      return found == line.checked.end() ? 0 : found->second;
    };
    row(name, line.times, checked(kRows), checked(kEvents), checked(kSettings), line.wait.count(),
        line.mebibytes, line.descriptors, line.failures.empty() ? "held" : "FAILED");
    for (const std::string& failure : line.failures) out << "    " << failure << "\n";
  }
  out << "Rows, events and settings: so many were found right. Wait, MiB and open files: the "
         "worst\n"
         "wait of a healthy client for a row, and the most that the head used.\n";
  return out.str();
}
