// One command line for heads: settings, rows, flashes, and their state.

#include "tools/lumetctl.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cmath>
#include <csignal>
#include <functional>
#include <iostream>
#include <map>

#include "common/errno_error.h"
#include "tools/lumetctl_complete.h"

namespace {

// The man page lists them.
enum ExitStatus { kDone = 0, kFailed = 1, kMisused = 2, kUnreachable = 3, kFileTrouble = 4 };

Timeout DurationOf(const std::string& text) {
  static const std::map<std::string, double> kUnits = {
      {"", 1}, {"ms", 1e-3}, {"s", 1}, {"min", 60}, {"h", 3600}};
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  const auto unit = kUnits.find(std::string(rest, end));
  constexpr double kLongest = 1e9;  // seconds
  if (error != std::errc() || unit == kUnits.end() || !(number > 0) ||
      number * unit->second > kLongest)
    throw CLI::ValidationError(text + " is not a time such as 10s, 500ms, 5min or 2h");
  return Timeout(std::max<Timeout::rep>(1, std::llround(number * unit->second * 1000)));
}

// What the words of the command line fill in, and what is to be done then.
struct CommandLine {
  CommandLine();

  CLI::App app{
      "Operates chlorophyll-fluorescence heads. Settings are named by their paths, such as\n"
      "cfg/lightsource/control; see lumetctl(1) for more.",
      "lumetctl"};
  std::function<void()> run;

 private:
  CLI::App* Add(const std::string& name, const std::string& help, std::function<void()> act);
  static void AddDuration(CLI::App* command, const std::string& names, Timeout& duration,
                          const std::string& help);
  void AddGlobals();
  void AddSettings();
  void AddMeasurements();

  Ctl ctl;
  std::vector<std::string> paths;
  std::string path;
  std::string file;
  bool dry_run = false;
  Timeout duration = kNoLimit;
  Timeout search = std::chrono::seconds(2);
  RowsOptions rows;
  FlashOptions flash;
  std::string detector;
  std::string directory;
  std::size_t count = 0;
};

CommandLine::CommandLine() {
  app.set_version_flag("--version", "lumetctl " LUMET_VERSION);
  app.require_subcommand(1);
  AddGlobals();
  AddSettings();
  AddMeasurements();
}

CLI::App* CommandLine::Add(const std::string& name, const std::string& help,
                           std::function<void()> act) {
  CLI::App* const command = app.add_subcommand(name, help);
  command->fallthrough();
  command->callback([this, act = std::move(act)] { run = act; });
  return command;
}

void CommandLine::AddDuration(CLI::App* command, const std::string& names, Timeout& duration,
                              const std::string& help) {
  command
      ->add_option_function<std::string>(
          names, [&duration](const std::string& text) { duration = DurationOf(text); }, help)
      ->type_name("TIME");
}

void CommandLine::AddGlobals() {
  const auto place = [](const std::string& text, int port) {
    try {
      return HostPort::Parse(text, port);
    } catch (const std::invalid_argument& error) {
      throw CLI::ValidationError(error.what());
    }
  };
  app.add_option_function<std::string>(
         "--head",
         [this, place](const std::string& text) {
           ctl.head = place(text, LineClient::kConsolePort);
         },
         "Where the head is; ::1, port 7246 by default")
      ->type_name("HOST[:PORT]")
      ->take_last();
  app.add_option_function<std::string>(
         "--broker",
         [this, place](const std::string& text) { ctl.broker = place(text, BusOptions().port); },
         "Where its message bus is; the head's machine, port 1883 by default")
      ->type_name("HOST[:PORT]")
      ->take_last();
  app.add_flag("--json", ctl.json, "Print JSON, for scripts");
  AddDuration(&app, "--timeout", ctl.timeout, "Longest wait for the head, 20s by default");
}

void CommandLine::AddSettings() {
  Add("get", "Print settings: the bare value of one, else PATH=VALUE lines", [this] {
    GetSettings(ctl, paths);
  })->add_option("PATH", paths, "Settings or branches; all by default");
  Add("set", "Set settings together, read them back and compare",
      [this] { SetSettings(ctl, paths); })
      ->add_option("PATH=VALUE", paths, "What to set")
      ->required();
  Add("tree", "Print settings with units, types and ranges", [this] {
    PrintTree(ctl, path);
  })->add_option("PATH", path, "A branch; all by default");
  CLI::App* const watch = Add("watch", "Print settings as they change, until Ctrl-C",
                              [this] { WatchSettings(ctl, paths, duration); });
  watch->add_option("PATH", paths, "Settings or branches; all by default");
  AddDuration(watch, "--for", duration, "End after this time");
  CLI::App* const save = Add("save", "Save settings into a file, in the language of the head",
                             [this] { SaveSettings(ctl, file, paths); });
  save->add_option("FILE", file, "The file; - for standard output")->required();
  save->add_option("PATH", paths,
                   "Branches below cfg, cal or factory; cfg without clock and network\n"
                   "if none is named");
  CLI::App* const restore = Add("restore", "Set what a file holds and the head does not",
                                [this] { RestoreSettings(ctl, file, dry_run); });
  restore->add_option("FILE", file, "The file; - for standard input")->required();
  restore->add_flag("--dry-run", dry_run, "Only print what would change");
}

void CommandLine::AddMeasurements() {
  Add("status", "Print the state of the head on one screen", [this] { PrintStatus(ctl); });

  CLI::App* const data =
      Add("rows", "Write rows of samples as CSV, until Ctrl-C", [this] { PrintRows(ctl, rows); });
  data->add_option("--csv", rows.csv, "File to write; standard output by default")
      ->type_name("FILE");
  data->add_option("--columns", rows.columns, "Such as TIME,LUMET,PFD; all by default")
      ->delimiter(',')
      ->type_name("NAME,...");
  AddDuration(data, "--for", rows.duration, "End after this time");
  data->add_option("--count", rows.count, "End after this many rows")->check(CLI::PositiveNumber);
  data->add_flag("--status", rows.status, "Write the rows of temperatures instead");

  CLI::App* const event = Add("flash", "Start a flash or dark pulse and print its results",
                              [this] { Flash(ctl, flash); });
  event->add_option("KIND", flash.command, "rect, mpf, induction or dark")
      ->required()
      ->check(CLI::IsMember({"rect", "mpf", "induction", "dark"}))
      ->type_name("");
  event->add_option("-o,--plot", flash.plot, "Drawing to write: .svg, or .png with gnuplot")
      ->type_name("FILE");
  event->add_option("--save", flash.save, "Write the record as it came; - for standard output")
      ->type_name("FILE");
  AddDuration(event, "--before", flash.before, "How long F is measured before it, 1s by default");
  CLI::Option* const adapted =
      event->add_flag("--dark-adapted", flash.is_dark_adapted,
                      "The leaf is dark-adapted: keep F and FMAX as the reference,\n"
                      "Fo and Fm");
  CLI::Option* const reference =
      event
          ->add_option("--reference", flash.reference,
                       "File of the reference; by default the last one of this\nhead")
          ->type_name("FILE");
  CLI::Option* const Fo = event->add_option("--fo", flash.Fo, "Fo of the reference, counts")
                              ->check(CLI::PositiveNumber)
                              ->excludes(adapted)
                              ->excludes(reference);
  CLI::Option* const Fm = event->add_option("--fm", flash.Fm, "Fm of the reference, counts")
                              ->check(CLI::PositiveNumber);
  Fo->needs(Fm);
  Fm->needs(Fo);

  Add("zero", "Take the zero of a detector", [this] { Zero(ctl, detector); })
      ->add_option("DETECTOR", detector, "dc or pc")
      ->required()
      ->check(CLI::IsMember({"dc", "pc"}))
      ->type_name("");

  CLI::App* const events = Add("events", "Print flashes and dark pulses as they end, until Ctrl-C",
                               [this] { PrintEvents(ctl, directory, duration, count); });
  events->add_option("--save", directory, "Directory for the records, a file each")
      ->type_name("DIR");
  AddDuration(events, "--for", duration, "End after this time");
  events->add_option("--count", count, "End after this many events")->check(CLI::PositiveNumber);

  CLI::App* const discover =
      Add("discover", "List the heads on the network", [this] { Discover(ctl, search); });
  AddDuration(discover, "--for", search, "How long to look, 2s by default");
}

// What completion has to know about the options.
std::vector<CommandWords> WordsOf(const CLI::App& app) {
  std::vector<const CLI::App*> apps = {&app};
  for (const CLI::App* each : app.get_subcommands([](const CLI::App*) { return true; }))
    apps.push_back(each);
  std::vector<CommandWords> commands;
  for (const CLI::App* each : apps) {
    CommandWords& command = commands.emplace_back(CommandWords{each->get_name(), {}});
    for (const CLI::Option* option : each->get_options()) {
      CommandWords::Option words;
      for (const std::string& name : option->get_lnames()) words.names.push_back("--" + name);
      for (const std::string& name : option->get_snames()) words.names.push_back("-" + name);
      words.takes_value = option->get_items_expected_max() > 0;
      if (!words.names.empty()) command.options.push_back(std::move(words));
    }
  }
  return commands;
}

int Run(const std::function<void()>& act) {
  try {
    act();
    return kDone;
  } catch (const OutputClosed&) {
    return kDone;
  } catch (const NoConnection& error) {
    Warn(error.what());
    return kUnreachable;
  } catch (const TimedOut& error) {
    Warn(error.what());
    return kUnreachable;
  } catch (const FileError& error) {
    Warn(error.what());
    return kFileTrouble;
  } catch (const ErrnoError& error) {
    Warn(error.what());
    return kFileTrouble;
  } catch (const std::exception& error) {
    Warn(error.what());
    return kFailed;
  }
}

}  // namespace

ConsoleClient Ctl::Connect() const {
  try {
    return ConsoleClient({.host = head.host, .port = head.port, .timeout = timeout});
  } catch (const NoConnection& error) {
    throw NoConnection(std::string(error.what()) +
                       "; is a head there? Name another with --head HOST[:PORT]");
  }
}

HostPort Ctl::Broker() const { return broker.value_or(HostPort{head.host, BusOptions().port}); }

BusClient Ctl::ConnectBus(const std::vector<std::string>& topics) const {
  const HostPort place = Broker();
  try {
    return BusClient(
        {.host = place.host, .port = place.port, .topics = topics, .timeout = timeout});
  } catch (const NoConnection& error) {
    throw NoConnection(std::string(error.what()) +
                       "; records of events come over the message bus, whose broker --broker "
                       "HOST[:PORT] names");
  }
}

void Warn(const std::string& text) { std::cerr << "lumetctl: " << text << std::endl; }

int main(int argc, char** argv) try {
  std::ios::sync_with_stdio(false);
  std::signal(SIGPIPE, SIG_IGN);
  CommandLine line;
  const std::vector<std::string> words(argv + 1, argv + argc);
  if (!words.empty() && words.front() == "complete") {
    for (const std::string& each : Candidates(WordsOf(line.app), {words.begin() + 1, words.end()}))
      std::cout << each << "\n";
    return kDone;
  }
  try {
    line.app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return line.app.exit(error) == 0 ? kDone : kMisused;
  }
  CatchInterrupts();
  return Run(line.run);
} catch (const std::exception& error) {
  Warn(error.what());
  return kFailed;
}
