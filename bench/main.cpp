#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "bench/bench_instrument.h"
#include "bench/bench_settings.h"
#include "bench/broker.h"
#include "bench/environment_file.h"
#include "bench/leaf.h"
#include "bench/processor_link.h"
#include "bench/simulated_process.h"
#include "leaf/lumet/lumet_app.h"
#include "liborrel/doctavo/doc_tavo.h"

namespace {

int RunHead(const Instrument& instrument, const Machine& machine,
            std::vector<std::string>& lumet_options) {
  std::vector<char*> arguments = {const_cast<char*>("lumet")};
  for (std::string& option : lumet_options) arguments.push_back(option.data());
  const int count = static_cast<int>(arguments.size());
  arguments.push_back(nullptr);
  return RunLumet(instrument, machine, count, arguments.data());
}

// 0 for a text that is none.
double SpeedOf(const std::string& text) {
  if (text == "max") return LinkOptions::kMaxSpeed;
  char* end = nullptr;
  const double speed = std::strtod(text.c_str(), &end);
  return *end == '\0' && std::isfinite(speed) ? speed : 0;
}

struct BenchOptions {
  std::string root = DefaultBenchRoot();
  int console_port = 7246;
  std::optional<std::uint32_t> rate;
  std::uint64_t seed = 1;
  std::string leaf = "dark-adapted";
  std::string speed = "1";
  std::string record;
  std::string replay;
  int dsp_fd = -1;  // none
  int broker_port = 1883;
  bool no_broker = false;
  bool discovery = false;
  bool routes = false;
  bool print_tree = false;
  std::vector<std::string> lumet_options;
};

void AddOptions(CLI::App& app, BenchOptions& options) {
  app.add_option("--root", options.root, "Directory of the head's files")->capture_default_str();
  app.add_option("--console-port", options.console_port,
                 "TCP port for clients on ::1; 0 takes a free one")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  app.add_option("--rate", options.rate, "Sets the head to this many samples per second")
      ->check(CLI::Range(1, 10000));
  app.add_option("--seed", options.seed, "Seed of the noise")->capture_default_str();
  app.add_option("--leaf", options.leaf,
                 "What is in front of the head. Its temperature and health, and faults of the\n"
                 "processor, are in 'environment' in the bench's directory, to be changed at\n"
                 "any time")
      ->check(CLI::IsMember(Leaf::Names()))
      ->capture_default_str();
  app.add_option("--speed", options.speed,
                 "Simulated time runs this many times faster, or at 'max'")
      ->check([](const std::string& text) {
        return SpeedOf(text) > 0 ? std::string() : text + " is neither a number above 0 nor 'max'";
      })
      ->capture_default_str();
  app.add_option("--record", options.record, "File to which the link to the processor is recorded");
  app.add_option("--replay", options.replay,
                 "Recording that is played back instead of the simulation")
      ->check(CLI::ExistingFile);
  app.add_option("--dsp-fd", options.dsp_fd,
                 "Open descriptor, an end of a SOCK_SEQPACKET pair, on which\n"
                 "somebody else plays the processor");
  app.add_option("--broker-port", options.broker_port, "TCP port of the message bus's broker")
      ->check(CLI::Range(1, 65535))
      ->capture_default_str();
  app.add_flag("--no-broker", options.no_broker, "Start no broker where none listens on ::1");
  app.add_flag("--discovery", options.discovery,
               "Announce the head on the network of this machine, and look for its console unit");
  app.add_flag("--routes", options.routes,
               "Let the head remove routes of this machine, as it does on a head");
  app.add_flag("--print-tree", options.print_tree,
               "Print the settings of a new head, and the type of each, and run nothing");
  app.add_option("LUMET_OPTIONS", options.lumet_options,
                 "After --: options of lumet itself, such as -- -d");
}

void PrintTree() {
  DocTavo doc;
  doc.print_tree(std::cout) << "\n";
  doc.print_doctype_tree(std::cout) << "\n";
}

// What the processor's process does.
void PlayProcessor(int descriptor, const BenchOptions& options, const std::string& environment) {
  const LinkOptions link = {SpeedOf(options.speed), options.record, environment};
  if (!options.replay.empty()) return RunReplay(descriptor, options.replay, link);
  SimulatedDSP dsp(options.rate.value_or(10), options.seed, *Leaf::Named(options.leaf));
  RunSimulatedDSP(descriptor, dsp, link);
}

// Runs the head until it ends; returns its exit status.
int RunBench(BenchOptions& options) {
  Instrument instrument = BenchInstrument(options.root);
  Machine machine = BenchMachine(instrument);
  const std::string environment = options.root + "/environment";
  std::optional<SimulatedProcess> processor;
  if (options.dsp_fd < 0)
    processor.emplace([&](int descriptor) { PlayProcessor(descriptor, options, environment); });
  instrument.dsp_fd = processor ? processor->HeadDescriptor() : options.dsp_fd;
  instrument.console_port = options.console_port;
  instrument.broker_port = options.broker_port;
  instrument.discovery = options.discovery;
  if (options.routes) machine.delete_route = Machine().delete_route;
  std::optional<Broker> broker;
  // Options that only print or signal need none of this.
  instrument.console_listens = [&](int port) {
    if (processor) ProvideSettings(instrument, machine, options.rate);
    if (processor && options.replay.empty()) EnvironmentFile::Provide(environment);
    std::cout << "lumet-bench: the head listens on port " << port << " of "
              << instrument.console_address << "; its files are in " << options.root << "\n"
              << "lumet-bench: to talk to it: nc " << instrument.console_address << " " << port
              << "\n";
    if (options.no_broker) return;
    if (!Broker::Listens(options.broker_port)) {
      broker.emplace(options.root + "/broker", options.broker_port);
      std::cout << "lumet-bench: started a broker on port " << options.broker_port << " of ::1\n";
    }
    std::cout << "lumet-bench: to hear the bus: mosquitto_sub -h ::1 -p " << options.broker_port
              << " -t 'nemra/#' -v\n";
  };
  return RunHead(instrument, machine, options.lumet_options);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "Runs a head on the desk: the real daemon, with a simulated signal processor. It needs no\n"
      "rights and touches nothing outside its directory.",
      "lumet-bench");
  BenchOptions options;
  AddOptions(app, options);
  CLI11_PARSE(app, argc, argv);
  try {
    if (!options.print_tree) return RunBench(options);
    PrintTree();
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "lumet-bench: " << error.what() << "\n";
    return 1;
  }
}
