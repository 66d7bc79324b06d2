// Draws the record of a flash or dark pulse.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>

#include "bench/child_process.h"
#include "bench/event_plot.h"
#include "common/text_file.h"

namespace {

std::string ReadAll(const std::string& path) {
  if (path == "-") return std::string(std::istreambuf_iterator<char>(std::cin), {});
  std::ifstream file(path);
  if (!file) throw std::runtime_error("unable to read " + path);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// The next record on the bus, however long it takes.
std::string NextOnBus(const std::string& host, int port) {
  ChildProcess subscriber({"mosquitto_sub", "-h", host, "-p", std::to_string(port), "-C", "1", "-t",
                           "nemra/tavo/output/DATAFLASHEVENT", "-t",
                           "nemra/tavo/output/DATADARKEVENT"});
  if (subscriber.Wait() != 0)
    throw std::runtime_error("unable to hear the bus on " + host + ", port " +
                             std::to_string(port));
  return subscriber.Output();
}

void Draw(const EventSeries& event, const std::string& path) {
  std::ostringstream drawing;
  if (!path.ends_with(".png")) {
    DrawSvg(event, drawing);
    return WriteFile(path, drawing.str());
  }
  WriteGnuplot(event, path, drawing);
  const std::string script = path + ".gnuplot";
  WriteFile(script, drawing.str());
  const int status = ChildProcess({"gnuplot", script}).Wait();
  unlink(script.c_str());
  if (status == 127) throw std::runtime_error("PNG needs gnuplot, which is not installed");
  if (status != 0) throw std::runtime_error("gnuplot failed");
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Draws the record of a flash or dark pulse, and prints its results as a table.",
               "lumet-plot");
  std::string input;
  std::string output;
  std::string host = "::1";
  int port = 1883;
  app.add_option("RECORD", input,
                 "File with one record, or - for standard input; without it the\n"
                 "next record on the bus is taken");
  app.add_option("-o,--output", output,
                 "Drawing to write: .svg, or .png where gnuplot is installed");
  app.add_option("--host", host, "Machine of the bus's broker")->capture_default_str();
  app.add_option("--port", port, "TCP port of the broker")
      ->check(CLI::Range(1, 65535))
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  try {
    const EventSeries event =
        EventSeries::Parse(input.empty() ? NextOnBus(host, port) : ReadAll(input));
    PrintResults(event, std::cout);
    if (!output.empty()) Draw(event, output);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "lumet-plot: " << error.what() << "\n";
    return 1;
  }
}
