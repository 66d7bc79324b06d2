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

}  // namespace

int main(int argc, char** argv) {
  CLI::App app(
      "Runs a head on the desk: the real daemon, with a simulated signal processor. It needs no\n"
      "rights and touches nothing outside its directory.",
      "lumet-bench");
  std::string root = DefaultBenchRoot();
  int console_port = 7246;
  std::optional<std::uint32_t> rate;
  std::uint64_t seed = 1;
  std::string leaf = "dark-adapted";
  std::string speed = "1";
  LinkOptions link;
  std::string replay;
  int dsp_fd = -1;
  int broker_port = 1883;
  bool no_broker = false;
  bool discovery = false;
  bool routes = false;
  bool print_tree = false;
  std::vector<std::string> lumet_options;
  app.add_option("--root", root, "Directory of the head's files")->capture_default_str();
  app.add_option("--console-port", console_port, "TCP port for clients on ::1; 0 takes a free one")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  app.add_option("--rate", rate, "Sets the head to this many samples per second")
      ->check(CLI::Range(1, 10000));
  app.add_option("--seed", seed, "Seed of the noise")->capture_default_str();
  app.add_option("--leaf", leaf,
                 "What is in front of the head. Its temperature and health are in\n"
                 "'environment' in the bench's directory, to be changed at any time")
      ->check(CLI::IsMember(Leaf::Names()))
      ->capture_default_str();
  app.add_option("--speed", speed, "Simulated time runs this many times faster, or at 'max'")
      ->check([](const std::string& text) {
        return SpeedOf(text) > 0 ? std::string() : text + " is neither a number above 0 nor 'max'";
      })
      ->capture_default_str();
  app.add_option("--record", link.record, "File to which the link to the processor is recorded");
  app.add_option("--replay", replay, "Recording that is played back instead of the simulation")
      ->check(CLI::ExistingFile);
  app.add_option("--dsp-fd", dsp_fd,
                 "Open descriptor, an end of a SOCK_SEQPACKET pair, on which\n"
                 "somebody else plays the processor");
  app.add_option("--broker-port", broker_port, "TCP port of the message bus's broker")
      ->check(CLI::Range(1, 65535))
      ->capture_default_str();
  app.add_flag("--no-broker", no_broker, "Start no broker where none listens on ::1");
  app.add_flag("--discovery", discovery,
               "Announce the head on the network of this machine, and look for its console unit");
  app.add_flag("--routes", routes,
               "Let the head remove routes of this machine, as it does on a head");
  app.add_flag("--print-tree", print_tree,
               "Print the settings of a new head, and the type of each, and run nothing");
  app.add_option("LUMET_OPTIONS", lumet_options, "Behind --: options of lumet itself, say -- -d");
  CLI11_PARSE(app, argc, argv);

  if (print_tree) {
    DocTavo doc;
    doc.print_tree(std::cout) << "\n";
    doc.print_doctype_tree(std::cout) << "\n";
    return 0;
  }
  try {
    Instrument instrument = BenchInstrument(root);
    Machine machine = BenchMachine(instrument);
    std::optional<SimulatedProcess> processor;
    if (dsp_fd < 0) {
      link.speed = SpeedOf(speed);
      link.environment = root + "/environment";
      processor.emplace([&](int descriptor) {
        if (!replay.empty()) return RunReplay(descriptor, replay, link);
        SimulatedDSP dsp(rate.value_or(10), seed, *Leaf::Named(leaf));
        RunSimulatedDSP(descriptor, dsp, link);
      });
    }
    instrument.dsp_fd = processor ? processor->HeadDescriptor() : dsp_fd;
    instrument.console_port = console_port;
    instrument.broker_port = broker_port;
    instrument.discovery = discovery;
    if (routes) machine.delete_route = Machine().delete_route;
    std::optional<Broker> broker;
    // Nothing of this for options that only tell or signal.
    instrument.console_listens = [&](int port) {
      if (processor) ProvideSettings(instrument, machine, rate);
      if (processor && replay.empty()) EnvironmentFile::Provide(link.environment);
      std::cout << "lumet-bench: the head listens on port " << port << " of "
                << instrument.console_address << "; its files are in " << root << "\n"
                << "lumet-bench: to talk to it: nc " << instrument.console_address << " " << port
                << "\n";
      if (no_broker) return;
      if (!Broker::Listens(broker_port)) {
        broker.emplace(root + "/broker", broker_port);
        std::cout << "lumet-bench: started a broker on port " << broker_port << " of ::1\n";
      }
      std::cout << "lumet-bench: to hear the bus: mosquitto_sub -h ::1 -p " << broker_port
                << " -t 'nemra/#' -v\n";
    };
    return RunHead(instrument, machine, lumet_options);
  } catch (const std::exception& error) {
    std::cerr << "lumet-bench: " << error.what() << "\n";
    return 1;
  }
}
