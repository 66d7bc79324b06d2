// Draws the record of a flash or dark pulse.

#include <CLI/CLI.hpp>
#include <cmath>
#include <csignal>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>

#include "client/bus.h"
#include "client/lines.h"
#include "common/host_port.h"
#include "tools/event_curve.h"
#include "tools/event_plot.h"
#include "tools/event_table.h"

namespace {

struct PlotOptions {
  std::string input;
  std::string output;
  std::string host = BusOptions().host;
  int port = BusOptions().port;
  double seconds = 0;  // 0 for no limit
  std::string reference;
  std::optional<double> F;
  std::optional<double> Fo;
  std::optional<double> Fm;
};

void AddOptions(CLI::App& app, PlotOptions& options) {
  app.add_option("RECORD", options.input,
                 "File with one record, or - for standard input; without it the\n"
                 "next record on the bus is taken");
  app.add_option("-o,--output", options.output,
                 "Drawing to write: SVG, PNG or PDF by the ending of the name");
  app.add_option("--host", options.host, "Machine of the bus's broker")->capture_default_str();
  app.add_option("--port", options.port, "TCP port of the broker")
      ->check(CLI::Range(1, 65535))
      ->capture_default_str();
  app.add_option("--timeout", options.seconds,
                 "Seconds to wait for the record, no limit by default")
      ->check(CLI::Range(0.1, 1e6));
  app.add_option("--f", options.F, "F before the flash, counts; by default that of its margin")
      ->check(CLI::PositiveNumber);
  CLI::Option* const reference =
      app.add_option("--reference", options.reference,
                     "File of the reference that lumetctl has kept; by default the\n"
                     "last one of the head, if there is one");
  CLI::Option* const Fo = app.add_option("--fo", options.Fo, "Fo of the reference, counts")
                              ->check(CLI::PositiveNumber)
                              ->excludes(reference);
  CLI::Option* const Fm =
      app.add_option("--fm", options.Fm, "Fm of the reference, counts")->check(CLI::PositiveNumber);
  Fo->needs(Fm);
  Fm->needs(Fo);
}

std::string ReadAll(const std::string& path) {
  if (path == "-") return {std::istreambuf_iterator<char>(std::cin), {}};
  std::ifstream file(path);
  if (!file) throw FileError("unable to read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

// The next record on the bus.
EventRecord NextOnBus(const PlotOptions& options) {
  BusClient bus({.host = options.host,
                 .port = options.port,
                 .topics = {bus_topic::kFlash, bus_topic::kDark}});
  std::cerr << "lumet-plot: waiting for the next flash or dark pulse on the broker at "
            << Place(options.host, options.port) << "; Ctrl-C ends this\n"
            << "lumet-plot: the bus keeps no records of those that have passed. To start one and "
               "draw it: lumetctl flash mpf -o FILE\n";
  bus.SetWaitLimit(options.seconds > 0 ? Timeout(std::llround(options.seconds * 1000)) : kNoLimit);
  return bus.NextEvent();
}

std::optional<DarkReference> ReferenceFor(const PlotOptions& options, const EventRecord& event) {
  if (options.Fo) return DarkReference{*options.Fo, *options.Fm, "", "the command line", ""};
  if (!options.reference.empty()) {
    if (auto reference = ReadReference(options.reference)) return reference;
    throw FileError("unable to read " + options.reference);
  }
  return KeptReference(event.device);
}

void Plot(const PlotOptions& options) {
  if (!options.output.empty()) CheckDrawing(options.output);
  const EventRecord event =
      options.input.empty() ? NextOnBus(options) : EventRecord::Parse(ReadAll(options.input));
  Table table;
  std::optional<double> F = options.F;
  if (const auto before = BeforeOf(event)) {
    if (!F) F = before->F;
    table.Add({"F", WithError(before->F, before->F_error), "counts",
               "mean of " + std::to_string(before->samples) + " samples in the margin, in " +
                   NumberText(before->PFD, 4) + " µmol/m²/s, of which " +
                   NumberText(before->measuring, 4) + " are measuring light"});
  }
  if (options.F) table.Add({"F", NumberText(*options.F), "counts", "the command line"});
  AddResults(event, table);
  const auto Fm_light = HighestF(event);
  if (F && Fm_light && event.type != "ZERO")
    AddYields({*F, Fm_light, ReferenceFor(options, event)}, table);
  table.Add({""});
  AddSettings(event, table);
  std::cout << Heading(event) << ", " << Extent(event) << "\n" << table.Text("  ");
  Flush();
  if (!options.output.empty()) DrawFile(event, options.output);
}

}  // namespace

int main(int argc, char** argv) try {
  std::signal(SIGPIPE, SIG_IGN);
  CLI::App app("Draws the record of a flash or dark pulse, and prints its results as a table.",
               "lumet-plot");
  app.set_version_flag("--version", "lumet-plot " LUMET_VERSION);
  PlotOptions options;
  AddOptions(app, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kMisused;
  }
  return RunTool("lumet-plot", [&] { Plot(options); });
} catch (const std::exception& error) {
  std::cerr << "lumet-plot: " << error.what() << "\n";
  return kFailed;
}
