// Runs the benchmarks, each a program of its own, and makes one table of what they tell.
//
// Usage: perf [armel|armhf|--check|--keep|--page]
//
// Without arguments it prints all, for a preset of another processor what is counted there.
// --check counts what benchmarks/baseline.txt keeps, and fails if something there has become worse
// by more than 3 %; --keep writes that file anew. --page prints all, and writes
// docs/performance.md, where the other processors stand beside this one.

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench/child_process.h"
#include "benchmarks/figure.h"
#include "benchmarks/performance_page.h"

namespace {

const std::string kBaselinePath = LUMET_SOURCES "/benchmarks/baseline.txt";
const std::string kPagePath = LUMET_SOURCES "/docs/performance.md";
constexpr double kMostWorse = 1.03;

struct Benchmark {
  const char* program;
  const char* title;
  bool only_counts;  // so that others may run at the same time
  bool has_kept;     // some of its figures are kept
  const char* how;
};

const char* const kSamplePath = "sample_path";
constexpr Benchmark kBenchmarks[] = {
    {"sample_path", "Samples", true, true,
     "Instructions of the daemon for each sample, from the read of the processor's batch to "
     "the clients' sends. On x86 callgrind counts, without the timers; on ARM a plugin of the "
     "emulator qemu, with them. *Ties* are signals that end in ties of the seventh digit, as "
     "averages of counts do. An event is gathered, its rows go to a client, and its record to "
     "a broker."},
    {"request_cost", "Requests", true, true,
     "Instructions of the daemon for each request, from the read of the client's line to the "
     "send of the answer. An update has a new value each time. A standing query is what one "
     "more of them adds to such an update, its news to the client included."},
    {"settings_tree", "The settings tree", true, false,
     "Instructions, beside those of pugixml for the same bytes: printing the parsed document; "
     "parsing the file and walking it by name into typed values; parsing the write, setting "
     "the value in a parsed document and printing the answer."},
    {"latency", "Latency", false, false,
     "From the processor's write of a record to the client's read of a row in it, found by the"
     " row's own time, on one clock. The benchmark is the processor. Another client asks for a"
     " setting a hundred times a second and waits for each answer. The daemon runs at real-"
     "time priority, and the benchmark right below it; how long two threads wait there that "
     "pass a byte to and fro, without a head, is in the table of `./dev perf`, since no answer"
     " is quicker than the machine."},
    {"fan_out", "Delivery", false, false,
     "Processor time of the daemon, user and system, for each row and client, beside that of a"
     " mosquitto that delivers the same rows, one publication each, to as many subscribers, "
     "all on one processor. Both run in lock step, as fast as they can: the next read of the "
     "processor, or its rows as publications, is sent when all have got the one before. Blocks"
     " of both take turns, and the middle one of five counts. Clients and subscribers are "
     "plain sockets of one program."},
    {"event_cost", "A long event", false, false,
     "An induction flash of 3 s at 250 000 samples a second: 750 000 samples, gathered and "
     "made into a record."},
    {"head_cost", "Start and peace", false, false,
     "Processor time of a head that starts on files that it has saved before, the middle one "
     "of 21 starts; memory that the process has more with clients than without, for each; and "
     "how often it wakes up."},
};

using Words = std::vector<std::string>;

// A benchmark that runs.
class Run {
 public:
  Run(const std::string& program, const Words& arguments)
      : program(program), process(Command(program, arguments)) {
    std::cerr << "Measuring: " << program << (arguments.empty() ? "" : " " + arguments[0])
              << std::endl;
  }

  std::vector<Figure> Wait() {
    if (process.Wait() != 0) throw std::runtime_error(program + " has failed");
    return ReadFigures(process.Output());
  }

 private:
  static Words Command(const std::string& program, const Words& arguments) {
    Words command = {LUMET_BENCHMARKS "/" + program};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
  }

  std::string program;
  ChildProcess process;
};

// Those that count run side by side, before the others.
std::vector<Section> MeasureAll() {
  std::map<std::string_view, std::unique_ptr<Run>> counting;
  for (const Benchmark& benchmark : kBenchmarks)
    if (benchmark.only_counts)
      counting[benchmark.program] = std::make_unique<Run>(benchmark.program, Words());
  std::vector<Section> sections;
  PrintHeading(std::cout);
  for (const Benchmark& benchmark : kBenchmarks) {
    const auto running = counting.find(benchmark.program);
    sections.push_back(
        {benchmark.title,
         benchmark.how,
         running != counting.end() ? running->second->Wait() : Run(benchmark.program, {}).Wait(),
         {}});
    std::cout << "\n" << benchmark.title << "\n";
    for (const Figure& figure : sections.back().figures) PrintRow(std::cout, figure);
    std::cout << std::flush;
  }
  return sections;
}

void PrintProcessor(const std::string& processor) {
  PrintHeading(std::cout);
  for (const Figure& figure : Run(kSamplePath, {processor}).Wait()) PrintRow(std::cout, figure);
}

void WritePage() {
  std::vector<Section> sections = MeasureAll();
  Run armhf(kSamplePath, {"armhf"});
  Run armel(kSamplePath, {"armel"});
  sections[0].others = {{"armhf", armhf.Wait()}, {"armel", armel.Wait()}};
  std::ofstream page(kPagePath);
  WritePage(page, sections);
  if (!page.flush()) throw std::runtime_error("unable to write " + kPagePath);
}

std::vector<Figure> CountKept() {
  std::vector<std::unique_ptr<Run>> runs;
  for (const Benchmark& benchmark : kBenchmarks)
    if (benchmark.has_kept)
      runs.push_back(std::make_unique<Run>(benchmark.program, Words{"--kept"}));
  std::vector<Figure> figures;
  for (const auto& run : runs)
    for (Figure& figure : run->Wait()) figures.push_back(std::move(figure));
  return figures;
}

std::string Compiler() {
#ifdef __clang__
  return __VERSION__;
#else
  return "g++ " __VERSION__;
#endif
}

constexpr std::string_view kMadeBy = "# Instructions, with what was compiled by ";

void Keep() {
  const std::vector<Figure> figures = CountKept();
  std::ofstream file(kBaselinePath);
  file << kMadeBy << Compiler() << "\n";
  for (const Figure& figure : figures)
    file << figure.name << " " << ShortNumber(figure.ours) << "\n";
  if (!file.flush()) throw std::runtime_error("unable to write " + kBaselinePath);
}

struct Baseline {
  std::string compiler;
  std::map<std::string, double> counts;
};

Baseline ReadBaseline() {
  std::ifstream file(kBaselinePath);
  Baseline baseline;
  std::string line;
  std::getline(file, line);
  if (!line.starts_with(kMadeBy))
    throw std::runtime_error("there is no baseline; ./dev perf --keep writes it");
  baseline.compiler = line.substr(kMadeBy.size());
  std::string name;
  for (double count = 0; file >> name >> count;) baseline.counts[name] = count;
  return baseline;
}

int Check() {
  Baseline baseline = ReadBaseline();
  int worse = 0;
  int better = 0;
  std::vector<Figure> figures = CountKept();
  PrintHeading(std::cout);
  for (Figure& figure : figures) {
    const auto kept = baseline.counts.extract(figure.name);
    if (kept.empty()) {
      std::cout << figure.name << " is not in the baseline\n";
      ++worse;
      continue;
    }
    figure.other = "kept";
    figure.theirs = kept.mapped();
    figure.most = kMostWorse;
    PrintRow(std::cout, figure);
    worse += figure.Misses() ? 1 : 0;
    better += figure.Ratio() * kMostWorse < 1 ? 1 : 0;
  }
  for (const auto& [name, count] : baseline.counts)
    std::cout << name << " is in the baseline, and is not counted\n";
  if (baseline.compiler != Compiler())
    std::cout << "The baseline was made with " << baseline.compiler << ", and this with "
              << Compiler() << ", which counts too\n";
  if (better > 0) std::cout << better << " figures are better; ./dev perf --keep keeps them\n";
  if (worse == 0 && baseline.counts.empty()) return EXIT_SUCCESS;
  std::cout << "What a head costs has changed for the worse. If it must: ./dev perf --keep\n";
  return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "--check") return Check();
    if (what == "--keep")
      Keep();
    else if (what == "--page")
      WritePage();
    else if (!what.empty())
      PrintProcessor(what);
    else
      MeasureAll();
  } catch (const std::exception& error) {
    std::cerr << "perf: " << error.what() << "\n";
    return 1;
  }
}
