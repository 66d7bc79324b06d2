#include "tools/terminal.h"

#include <json/json.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>

namespace {

volatile std::sig_atomic_t interrupted = 0;

void Interrupt(int) { interrupted = 1; }

// Letters, as far as each is one code point.
std::size_t WidthOf(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
    return (static_cast<unsigned char>(byte) & 0xc0) != 0x80;
  }));
}

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

std::string NumberText(double number, int digits) {
  char text[40];
  std::snprintf(text, sizeof text, "%.*g", digits, number);
  return text;
}

std::string JsonText(std::string_view text) {
  Json::StreamWriterBuilder builder;
  builder["emitUTF8"] = true;
  return Json::writeString(builder, Json::Value(std::string(text)));
}

std::string JsonNumber(const std::string& text) {
  char* end = nullptr;
  const double number = std::strtod(text.c_str(), &end);
  return text.empty() || *end != '\0' || !std::isfinite(number) ? "null" : text;
}

std::string Table::Text(std::string_view indent) const {
  std::vector<std::size_t> widths;
  for (const auto& line : lines) {
    widths.resize(std::max(widths.size(), line.size()));
    // The last cell of a line needs no padding.
    for (std::size_t i = 0; i + 1 < line.size(); ++i)
      widths[i] = std::max(widths[i], WidthOf(line[i]));
  }
  std::string text;
  for (const auto& line : lines) {
    std::string row(indent);
    for (std::size_t i = 0; i < line.size(); ++i) {
      row += line[i];
      if (i + 1 < line.size())
        row.append(widths[i] + 2 - std::min(widths[i] + 2, WidthOf(line[i])), ' ');
    }
    row.erase(row.find_last_not_of(' ') + 1);
    text += row + "\n";
  }
  return text;
}

Progress::Progress() : is_shown(isatty(STDERR_FILENO) != 0) {}

Progress::~Progress() { Wipe(); }

void Progress::Show(const std::string& text) {
  constexpr double kPause = 0.1;
  if (!is_shown || Now() - last < kPause) return;
  last = Now();
  is_wiped = false;
  std::cerr << "\r" << text << "\033[K" << std::flush;
}

void Progress::Wipe() {
  if (!is_wiped) std::cerr << "\r\033[K" << std::flush;
  is_wiped = true;
}

void WriteOutput(const std::string& path, const std::string& text) {
  if (path == "-") {
    std::cout << text;
    return Flush();
  }
  // Whoever waits for the file finds it whole.
  const std::string part = path + ".part";
  std::ofstream file(part, std::ios::binary);
  file << text;
  file.close();
  if (file && std::rename(part.c_str(), path.c_str()) == 0) return;
  const std::string reason = std::strerror(errno);
  std::remove(part.c_str());
  throw FileError("unable to write " + path + ": " + reason);
}

void CatchInterrupts() {
  struct sigaction action = {};
  action.sa_handler = Interrupt;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

bool IsInterrupted() { return interrupted != 0; }

void Flush() {
  if (std::cout.flush()) return;
  if (errno == EPIPE) throw OutputClosed();
  throw FileError(std::string("unable to write to standard output: ") + std::strerror(errno));
}
