#pragma once

#include <iosfwd>
#include <string>
#include <vector>

// What a benchmark has found out, the same for all of them, so that `perf` can gather it.
struct Figure {
  enum class Kind : char {
    kCounted = 'c',  // the same on every machine
    kMemory = 'm',
    kTime = 't',  // this machine's own, and noisy; only a ratio to another program's tells more
  };

  std::string name = {};     // a word, by which it can be asked for; no other figure has it
  std::string meaning = {};  // for people
  Kind kind = Kind::kCounted;
  std::string unit = {};
  double ours = 0;  // in `unit`
  // Whose value `theirs` is: kLimit, or another program's name; empty if there is none.
  std::string other = {};
  double theirs = 0;
  // The ratio of ours to theirs that is to suffice; 0 if nothing was set.
  double most = 0;

  double Ratio() const { return ours / theirs; }
  bool Misses() const { return most > 0 && Ratio() > most; }
};

inline constexpr const char* kLimit = "limit";

// The figure with a limit of its own; 0 means none.
Figure WithLimit(Figure figure, double limit);

// Tells a figure: one row of a table for a person at the terminal, a line for `perf` otherwise.
void Tell(const Figure& figure);
// The figures that a program has told. Throws std::runtime_error for anything else.
std::vector<Figure> ReadFigures(const std::string& told);

// A value as people read it: whole from a hundred on, three digits or so below.
std::string ShortNumber(double value);
void PrintHeading(std::ostream& out);
void PrintRow(std::ostream& out, const Figure& figure);

// Which figures a benchmark is to measure, by its arguments: those with the names given, those that
// are kept from change to change with --kept, and all without either.
class Selection {
 public:
  Selection(int argc, char** argv) : Selection(std::vector<std::string>(argv + 1, argv + argc)) {}
  explicit Selection(const std::vector<std::string>& arguments);

  bool Wants(const std::string& name, bool is_kept = false);
  // Throws std::runtime_error if a name was asked for that none of the figures has had.
  void CheckNames() const;

 private:
  std::vector<std::string> names;
  std::vector<std::string> unknown;
  bool kept = false;
};
