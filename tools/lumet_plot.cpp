// Draws the record of a flash or dark pulse.

#include <CLI/CLI.hpp>
#include <cmath>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "client/bus.h"
#include "tools/event_plot.h"

namespace {

std::string ReadAll(const std::string& path) {
  if (path == "-") return {std::istreambuf_iterator<char>(std::cin), {}};
  std::ifstream file(path);
  if (!file) throw std::runtime_error("unable to read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The next record on the bus.
EventRecord NextOnBus(const std::string& host, int port, Timeout timeout) {
  BusClient bus({.host = host, .port = port, .topics = {bus_topic::kFlash, bus_topic::kDark}});
  bus.SetWaitLimit(timeout);
  return bus.NextEvent();
}

}  // namespace

int main(int argc, char** argv) try {
  CLI::App app("Draws the record of a flash or dark pulse, and prints its results as a table.",
               "lumet-plot");
  app.set_version_flag("--version", "lumet-plot " LUMET_VERSION);
  std::string input;
  std::string output;
  std::string host = "::1";
  int port = BusOptions().port;
  double seconds = 0;
  app.add_option("RECORD", input,
                 "File with one record, or - for standard input; without it the\n"
                 "next record on the bus is taken");
  app.add_option("-o,--output", output,
                 "Drawing to write: .svg, or .png where gnuplot is installed");
  app.add_option("--host", host, "Machine of the bus's broker")->capture_default_str();
  app.add_option("--port", port, "TCP port of the broker")
      ->check(CLI::Range(1, 65535))
      ->capture_default_str();
  app.add_option("--timeout", seconds, "Seconds to wait for the record, no limit by default")
      ->check(CLI::Range(0.1, 1e6));
  CLI11_PARSE(app, argc, argv);
  const Timeout timeout = seconds > 0 ? Timeout(std::llround(seconds * 1000)) : kNoLimit;
  const EventRecord event =
      input.empty() ? NextOnBus(host, port, timeout) : EventRecord::Parse(ReadAll(input));
  PrintResults(event, std::cout);
  if (!output.empty()) DrawFile(event, output);
  return 0;
} catch (const std::exception& error) {
  std::cerr << "lumet-plot: " << error.what() << "\n";
  return 1;
}
