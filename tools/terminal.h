#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// What a command-line tool says, and how it is stopped.

// A number with so many significant digits.
std::string NumberText(double number, int digits = 6);

// A text between the quotes of JSON, escaped.
std::string JsonText(std::string_view text);
// A number as JSON; null for what JSON has no number for, such as "nan".
std::string JsonNumber(const std::string& text);

// Lines with aligned columns. Widths are those of letters, not bytes.
class Table {
 public:
  void Add(std::vector<std::string> cells) { lines.push_back(std::move(cells)); }
  // Each line begins with `indent`.
  std::string Text(std::string_view indent = "") const;

 private:
  std::vector<std::vector<std::string>> lines;
};

// A line that changes in place, on standard error. It shows only if that is a terminal, and is
// wiped at the end.
class Progress {
 public:
  Progress();
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Shows a text, ten times a second at most.
  void Show(const std::string& text);
  void Wipe();

 private:
  bool is_shown;
  bool is_wiped = true;
  double last = 0;
};

// A file that can't be read or written.
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Writes a whole file in one step, or to standard output for "-". Throws FileError.
void WriteOutput(const std::string& path, const std::string& text);

// From now on SIGINT and SIGTERM end waits instead of the program.
void CatchInterrupts();
bool IsInterrupted();

// Writes out what has been printed. Throws OutputClosed when nobody reads it any longer, and
// FileError when it can't be written.
void Flush();
class OutputClosed {};
