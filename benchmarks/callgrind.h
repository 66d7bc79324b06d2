#pragma once

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

// Instructions of a program that runs under callgrind, which counts those of user mode, or under
// the emulator with the plugin of instruction_counter.cpp. A program is counted at two lengths; the
// difference is what the turns in between took.

// The words that, put in front of a command, count its instructions into the file `log`; `options`
// are more of callgrind's.
inline std::vector<std::string> CallgrindWords(const std::string& log,
                                               const std::vector<std::string>& options = {}) {
  std::vector<std::string> words = {"valgrind", "--tool=callgrind",
                                    "--callgrind-out-file=/dev/null", "--log-file=" + log};
  words.insert(words.end(), options.begin(), options.end());
  return words;
}

// The count in `log` once the program has ended. Throws std::runtime_error if there is none.
inline long CountIn(const std::string& log) {
  std::ifstream file(log);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  const std::string marker = "Collected : ";
  const std::size_t at = text.find(marker);
  if (at == std::string::npos) throw std::runtime_error("there is no count: " + text);
  return std::stol(text.substr(at + marker.size()));
}

// Instructions of one turn, where `count(turns)` are those of a program that runs for so many.
template <class Count>
double PerTurn(Count count, int fewer, int more) {
  return static_cast<double>(count(more) - count(fewer)) / (more - fewer);
}
