#include "benchmarks/performance_page.h"

#include <algorithm>
#include <ostream>
#include <sstream>
#include <string_view>

namespace {

std::string OtherText(const Figure& figure) {
  if (figure.other.empty()) return "";
  if (figure.other == kLimit) return ShortNumber(figure.theirs) + " " + figure.unit;
  return figure.other +
         (figure.kind == Figure::Kind::kTime ? "" : ": " + ShortNumber(figure.theirs));
}

// A time as a share of a limit would tell the time.
bool IsBareTime(const Figure& figure) {
  return figure.kind == Figure::Kind::kTime && (figure.other.empty() || figure.other == kLimit);
}

std::string OursText(const Figure& figure) {
  if (IsBareTime(figure)) return figure.Misses() ? "not kept" : "kept";
  if (figure.kind == Figure::Kind::kTime) return "";
  return ShortNumber(figure.ours);
}

std::string RatioText(const Figure& figure) {
  return figure.other.empty() || IsBareTime(figure) ? "" : ShortNumber(figure.Ratio());
}

void WriteParagraph(std::ostream& out, const std::string& text) {
  constexpr std::size_t kWidth = 120;
  std::istringstream words(text);
  std::string line;
  for (std::string word; words >> word; line += word) {
    if (line.size() + 1 + word.size() > kWidth) {
      out << "\n" << line;
      line.clear();
    }
    if (!line.empty()) line += " ";
  }
  out << "\n" << line << "\n";
}

void WriteFigures(std::ostream& out, const Section& section) {
  out << "| figure | ours | the other's or the limit | ratio | at most |\n"
      << "|---|---:|---:|---:|---:|\n";
  for (const Figure& figure : section.figures) {
    if (IsBareTime(figure) && figure.other.empty()) continue;  // nothing to tell without the time
    out << "| " << figure.meaning << (IsBareTime(figure) ? "" : ", " + figure.unit) << " | "
        << OursText(figure) << " | " << OtherText(figure) << " | " << RatioText(figure) << " | "
        << (figure.most > 0 ? ShortNumber(figure.most) : "") << " |\n";
  }
}

void WriteCount(std::ostream& out, const std::vector<Figure>& figures, const std::string& name) {
  const auto figure = std::ranges::find(figures, name, &Figure::name);
  if (figure == figures.end()) {
    out << " | |";
    return;
  }
  out << " " << ShortNumber(figure->ours) << " | "
      << (figure->other.empty() ? "" : ShortNumber(figure->theirs)) << " |";
}

void WriteProcessors(std::ostream& out, const Section& section) {
  out << "| figure | x86 | limit |";
  for (const auto& other : section.others) out << " " << other.processor << " | limit |";
  out << "\n|---|---:|---:|";
  for (std::size_t i = 0; i < section.others.size(); ++i) out << "---:|---:|";
  out << "\n";
  for (const Figure& figure : section.figures) {
    out << "| " << figure.meaning << " |";
    WriteCount(out, section.figures, figure.name);
    for (const auto& other : section.others) WriteCount(out, other.figures, figure.name);
    out << "\n";
  }
}

}  // namespace

void WritePage(std::ostream& out, const std::vector<Section>& sections) {
  out << "# What a head costs\n";
  WriteParagraph(
      out,
      "`./dev perf --page` has measured all of this and written this page; `./dev perf` prints "
      "the same as one table, times included. A ratio is ours by the other's, or by the limit, "
      "and *at most* is the ratio that is to suffice. Times belong to one machine and are left "
      "out: of a time that has a limit the page says whether it is kept, and of one that "
      "another program takes for the same work, in the same run, the ratio.");
  WriteParagraph(
      out,
      "Instructions are those of user mode, counted, so that each run gives the same figure. "
      "The program is counted at two lengths, and the difference is what the turns in between "
      "took. `./dev perf --check` counts a choice of them again, and fails when one is more "
      "than 3 % worse than `benchmarks/baseline.txt` says, which `./dev perf --keep` writes "
      "anew.");
  for (const Section& section : sections) {
    out << "\n## " << section.title << "\n";
    WriteParagraph(out, section.how);
    out << "\n";
    if (section.others.empty())
      WriteFigures(out, section);
    else
      WriteProcessors(out, section);
  }
}
