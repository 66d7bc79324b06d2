#include "benchmarks/figure.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace {

constexpr int kMeaningWidth = 72;
constexpr int kOursWidth = 10;
constexpr int kOtherWidth = 26;
constexpr int kRatioWidth = 9;

std::string OtherText(const Figure& figure) {
  return figure.other.empty() ? "-" : figure.other + " " + ShortNumber(figure.theirs);
}

}  // namespace

Figure WithLimit(Figure figure, double limit) {
  if (limit > 0) {
    figure.other = kLimit;
    figure.theirs = limit;
    figure.most = 1;
  }
  return figure;
}

void Tell(const Figure& figure) {
  if (isatty(STDOUT_FILENO) != 0) {
    PrintRow(std::cout, figure);
  } else {
    std::cout << figure.name << '\t' << static_cast<char>(figure.kind) << '\t' << figure.unit
              << '\t' << std::setprecision(std::numeric_limits<double>::max_digits10) << figure.ours
              << '\t' << figure.other << '\t' << figure.theirs << '\t' << figure.most << '\t'
              << figure.meaning << '\n';
  }
  std::cout << std::flush;
}

std::vector<Figure> ReadFigures(const std::string& told) {
  std::vector<Figure> figures;
  std::istringstream lines(told);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::array<std::string, 7> field;
    for (std::string& text : field) std::getline(fields, text, '\t');
    Figure figure;
    if (field[1].size() != 1 || !std::getline(fields, figure.meaning))
      throw std::runtime_error("this is no figure: " + line);
    figure.name = field[0];
    figure.kind = static_cast<Figure::Kind>(field[1][0]);
    figure.unit = field[2];
    figure.ours = std::stod(field[3]);
    figure.other = field[4];
    figure.theirs = std::stod(field[5]);
    figure.most = std::stod(field[6]);
    figures.push_back(std::move(figure));
  }
  return figures;
}

std::string ShortNumber(double value) {
  const double size = std::abs(value);
  std::ostringstream text;
  text << std::fixed
       << std::setprecision(size >= 100    ? 0
                            : size >= 10   ? 1
                            : size >= 0.01 ? 2
                                           : 4)
       << value;
  return text.str();
}

void PrintHeading(std::ostream& out) {
  out << std::left << std::setw(kMeaningWidth) << "figure" << std::right << std::setw(kOursWidth)
      << "ours" << std::setw(kOtherWidth) << "the other's or the limit" << std::setw(kRatioWidth)
      << "ratio" << std::setw(kRatioWidth) << "at most" << '\n';
}

void PrintRow(std::ostream& out, const Figure& figure) {
  const auto ratio = [&](bool known, double value) {
    out << std::setw(kRatioWidth) << (known ? ShortNumber(value) : "-");
  };
  out << std::left << std::setw(kMeaningWidth) << figure.meaning + ", " + figure.unit << std::right
      << std::setw(kOursWidth) << ShortNumber(figure.ours) << std::setw(kOtherWidth)
      << OtherText(figure);
  ratio(!figure.other.empty(), figure.Ratio());
  ratio(figure.most > 0, figure.most);
  out << (figure.Misses() ? "  missed" : "") << '\n';
}

Selection::Selection(const std::vector<std::string>& arguments) {
  for (const std::string& argument : arguments) {
    if (argument == "--kept") {
      kept = true;
    } else {
      names.push_back(argument);
      unknown.push_back(argument);
    }
  }
}

bool Selection::Wants(const std::string& name, bool is_kept) {
  if (kept) return is_kept;
  std::erase(unknown, name);
  return names.empty() || std::ranges::find(names, name) != names.end();
}

void Selection::CheckNames() const {
  if (!unknown.empty()) throw std::runtime_error("there is no figure \"" + unknown[0] + "\"");
}
