#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "bench/bench_instrument.h"
#include "bench/bench_page.h"
#include "bench/bench_settings.h"
#include "bench/broker.h"
#include "bench/environment_file.h"
#include "bench/free_port.h"
#include "bench/leaf.h"
#include "bench/processor_link.h"
#include "bench/quiet_departures.h"
#include "bench/settings_reference.h"
#include "bench/simulated_process.h"
#include "bench/start_checks.h"
#include "common/host_port.h"
#include "common/text_file.h"
#include "leaf/lumet/link/recording.h"
#include "leaf/lumet/lumet_app.h"
#include "leaf/lumet/version.h"
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

// 0 for a text that is not a speed.
double SpeedOf(const std::string& text) {
  if (text == "max") return LinkOptions::kMaxSpeed;
  char* end = nullptr;
  const double speed = std::strtod(text.c_str(), &end);
  return *end == '\0' && std::isfinite(speed) ? speed : 0;
}

std::string IsAddress(const std::string& text) {
  try {
    const SocketAddress address(text);
    return address.Family() == AF_UNIX ? text + " is no address of a network" : "";
  } catch (const SocketError& error) {
    return error.what();
  }
}

constexpr int kBrokerPort = 1883;

std::string IsHostPort(const std::string& text) {
  try {
    HostPort::Parse(text, kBrokerPort);
    return "";
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

struct BenchOptions {
  std::string root = DefaultBenchRoot();
  bool fresh = false;
  std::string console_address = "::1";
  int console_port = 7246;
  std::optional<std::uint32_t> rate;
  std::uint64_t seed = 1;
  std::string leaf = "dark-adapted";
  std::string speed = "1";
  std::string record;
  std::string replay;
  bool exit_at_end = false;
  int dsp_fd = -1;  // none
  std::string broker;
  bool no_broker = false;
  bool discovery = false;
  bool routes = false;
  bool view = false;
  bool print_tree = false;
  bool print_reference = false;
  std::vector<std::string> lumet_options;
};

void AddOptions(CLI::App& app, BenchOptions& options) {
  app.add_option("--root", options.root, "Directory of the head's files")->capture_default_str();
  app.add_flag("--fresh", options.fresh,
               "Start with an empty directory: remove the files of earlier benches there");
  app.add_option("--console-address", options.console_address,
                 "Address for clients, such as 127.0.0.1 where there is no IPv6")
      ->check(IsAddress)
      ->capture_default_str();
  app.add_option("--console-port", options.console_port, "TCP port for clients; 0 takes a free one")
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
  CLI::Option* const replay =
      app.add_option("--replay", options.replay,
                     "Recording that is played back instead of the simulation. Its settings\n"
                     "replace those in the directory, by default one of replays' own")
          ->check(CLI::ExistingFile);
  app.add_flag("--exit-at-end", options.exit_at_end, "End when the recording has ended")
      ->needs(replay);
  app.add_option("--dsp-fd", options.dsp_fd,
                 "Open descriptor, an end of a SOCK_SEQPACKET pair, on which\n"
                 "somebody else plays the processor");
  CLI::Option* const broker =
      app.add_option(
             "--broker", options.broker,
             "Message bus's broker, HOST:PORT, to be used instead of one of the bench's own,\n"
             "which is on port 1883 if that is free")
          ->check(IsHostPort);
  app.add_flag("--no-broker", options.no_broker, "No message bus")->excludes(broker);
  app.add_flag("--discovery", options.discovery,
               "Announce the head on the network of this machine, and look for its console unit");
  app.add_flag("--routes", options.routes,
               "Let the head remove routes of this machine, as an instrument does");
  app.add_flag("--view", options.view,
               "Serve the page of lumet-view, the program beside this one, for the head");
  app.add_flag("--print-tree", options.print_tree,
               "Print the settings of a new head, and the type of each, and run nothing");
  app.add_flag("--print-reference", options.print_reference,
               "Print the page docs/settings-reference.md, and run nothing");
  app.add_option("LUMET_OPTIONS", options.lumet_options,
                 "After --: options of lumet itself, such as -- -d");
}

void PrintTree() {
  DocTavo doc;
  doc.print_tree(std::cout) << "\n";
  doc.print_doctype_tree(std::cout) << "\n";
}

std::vector<std::string> SettingsFiles(const Instrument& instrument) {
  return {instrument.factory_settings, instrument.cal_settings, instrument.main_settings};
}

// Gives the head a settings file from a recording. Those of no other name are its own.
void Provide(const Instrument& instrument, const std::string& name, const std::string& text) {
  for (const std::string& path : SettingsFiles(instrument))
    if (path.ends_with("/" + name)) WriteFile(path, text);
}

// What the processor's process does in a replay; `head` is the process to tell of it.
void PlayRecording(int descriptor, const BenchOptions& options, const Instrument& instrument,
                   const LinkOptions& link, pid_t head) {
  const auto tell_head = [head](int signo) {
    if (getppid() == head) kill(head, signo);
  };
  RunReplay(descriptor, options.replay, link,
            {.settings_changed =
                 [&](const RecordedSettings& file) {
                   Provide(instrument, file.name, file.text);
                   tell_head(SIGUSR1);  // which makes it read them
                 },
             .ended =
                 [&] {
                   std::cout << "lumet-bench: the recording has ended" << std::endl;
                   if (options.exit_at_end) tell_head(SIGTERM);
                 }});
}

// What the processor's process does.
void PlayProcessor(int descriptor, const BenchOptions& options, const Instrument& instrument,
                   const std::string& environment, pid_t head) {
  const LinkOptions link = {SpeedOf(options.speed), options.record, environment,
                            SettingsFiles(instrument)};
  if (!options.replay.empty()) return PlayRecording(descriptor, options, instrument, link, head);
  SimulatedDSP dsp(options.rate.value_or(10), options.seed, *Leaf::Named(options.leaf));
  RunSimulatedDSP(descriptor, dsp, link);
}

// Whether these options of the daemon make it do something else than run.
bool OnlySignals(const std::vector<std::string>& lumet_options) {
  return std::ranges::any_of(lumet_options, [](const std::string& option) {
    return option.starts_with('-') && option.find_first_not_of("td", 1) != std::string::npos;
  });
}

// The broker that the head looks for: one that somebody names, the bench's own, or none.
class BenchBroker {
 public:
  BenchBroker(const BenchOptions& options, Instrument& instrument)
      : loopback(SocketAddress(instrument.console_address).Family() == AF_INET ? "127.0.0.1"
                                                                               : "::1"),
        directory(options.root + "/broker"),
        port(loopback, options.no_broker ? 0 : kBrokerPort),
        is_own(options.broker.empty() && !options.no_broker) {
    instrument.broker_address = loopback;
    instrument.broker_port = port;
    if (options.broker.empty()) return;
    const HostPort named = HostPort::Parse(options.broker, kBrokerPort);
    instrument.broker_address = Resolved(named.host);
    instrument.broker_port = named.port;
  }

  void Start() {
    if (!is_own) return;
    own.emplace(directory, port, loopback);
    std::cout << "lumet-bench: started a broker on port " << port << " of " << loopback << "\n";
  }

 private:
  // The head takes addresses, since a name service may hang.
  static std::string Resolved(const std::string& host) {
    if (IsAddress(host).empty()) return host;
    try {
      return SocketAddress(host, AF_INET6).ToString();
    } catch (const HostNotFound&) {
      return SocketAddress(host, AF_INET).ToString();
    }
  }

  std::string loopback;
  std::string directory;
  FreePort port;
  bool is_own;
  std::optional<Broker> own;
};

// Runs the head until it ends; returns its exit status.
int RunBench(BenchOptions& options) {
  Instrument instrument = BenchInstrument(options.root);
  instrument.console_address = options.console_address;
  instrument.console_port = options.console_port;
  instrument.discovery = options.discovery;
  Machine machine = BenchMachine(instrument);
  if (options.routes) machine.delete_route = Machine().delete_route;
  if (OnlySignals(options.lumet_options))
    return RunHead(instrument, machine, options.lumet_options);

  std::map<std::string, std::string> settings;
  if (!options.replay.empty()) settings = SettingsAtStart(ReadRecording(options.replay));
  if (!options.record.empty()) RecordingWriter(options.record);
  if (options.fresh) {
    EmptyBenchDirectory(instrument);
    BenchInstrument(options.root);  // for its directories
  }
  if (isatty(STDERR_FILENO) == 1)
    std::cerr << "lumet-bench: starting a head with its files in " << options.root
              << "; what it would do to a machine is printed instead\n";
  BenchBroker broker(options, instrument);
  const std::string environment = options.root + "/environment";
  std::optional<SimulatedProcess> processor;
  if (options.dsp_fd < 0)
    processor.emplace([&, head = getpid()](int descriptor) {
      PlayProcessor(descriptor, options, instrument, environment, head);
    });
  instrument.dsp_fd = processor ? processor->HeadDescriptor() : options.dsp_fd;
  std::optional<QuietDepartures> quiet;
  BenchPage page;
  bool listens = false;
  instrument.console_listens = [&](int port) {
    listens = true;
    for (const auto& [name, text] : settings) Provide(instrument, name, text);
    if (processor) ProvideSettings(instrument, machine, options.rate);
    if (processor && options.replay.empty()) EnvironmentFile::Provide(environment);
    if (options.lumet_options.empty()) quiet.emplace();
    std::cout << "lumet-bench: the head listens on port " << port << " of "
              << instrument.console_address << "; its files are in " << options.root << "\n"
              << "lumet-bench: to talk to it: nc " << instrument.console_address << " " << port
              << "\n";
    if (!options.no_broker) {
      broker.Start();
      std::cout << "lumet-bench: to hear the bus: mosquitto_sub -h " << instrument.broker_address
                << " -p " << instrument.broker_port << " -t 'nemra/#' -v\n"
                << "lumet-bench: to give it a flash: lumetctl --head "
                << Place(instrument.console_address, port) << " --broker "
                << Place(instrument.broker_address, instrument.broker_port) << " flash mpf\n";
    }
    if (options.view) page.Start(instrument, port);
  };
  const int exit_status = RunHead(instrument, machine, options.lumet_options);
  if (const std::string obstacle = listens ? "" : WhatIsInTheWay(instrument); !obstacle.empty())
    std::cerr << "lumet-bench: " << obstacle << "\n";
  return exit_status;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    CLI::App app(
        "Runs a head on the desk: the real daemon, with a simulated signal processor. It needs no\n"
        "rights and touches nothing outside its directory.",
        "lumet-bench");
    BenchOptions options;
    AddOptions(app, options);
    app.set_version_flag("--version", "lumet-bench " + std::string(kLumetVersion));
    CLI11_PARSE(app, argc, argv);
    // What is in the directory otherwise is somebody's own.
    if (!options.replay.empty() && app.count("--root") == 0) options.root += "-replay";
    if (!options.print_tree && !options.print_reference) return RunBench(options);
    if (options.print_tree) PrintTree();
    if (options.print_reference) PrintSettingsReference(std::cout);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "lumet-bench: " << error.what() << "\n";
    return 1;
  }
}
