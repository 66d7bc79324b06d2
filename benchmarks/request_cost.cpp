// What a request costs the daemon, in instructions, from the read of the client's line to the send
// of the answer: the whole daemon runs under callgrind, in a process of its own, at two lengths,
// and the difference is what the requests in between took. It gets no samples meanwhile.
//
// An update is a new value each time, and includes the save of its settings file. A standing query
// is what one more of them adds to such an update, its news to the client included.
//
// With names of figures, such as "request-item", only those are counted.

#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/head.h"
#include "benchmarks/callgrind.h"
#include "benchmarks/figure.h"
#include "client/console.h"

namespace {

std::string AtSetpoint(const std::string& text) {
  return "<nemra><tavo><cfg><lightsource><Q_setpoint>" + text +
         "</Q_setpoint></lightsource></cfg></tavo></nemra>\n";
}

// The document of the request with this number.
using Documents = std::function<std::string(int number)>;

const std::string kWatch = "<nemra><tavo><cfg>&query_changes;</cfg></tavo></nemra>\n";

// Sends `count` documents, each after the answer to the one before.
long DaemonInstructions(const Documents& document, int standing_queries, int count) {
  const TemporaryDirectory root;
  const std::string log = root.Path() + "/callgrind";
  Head head(root.Path(), Head::PlayedBy::kCaller, {.wrapper = CallgrindWords(log)});
  ConsoleClient opening(head.Port());
  LineClient& client = opening.Connection();
  for (int i = 0; i < standing_queries; ++i) client.Send(kWatch);
  for (int number = 0; number < count; ++number) {
    client.Send(document(number));
    // The tree itself has such an element too.
    while (client.ReadLine() != "<nemra><tavo><ack>true</ack></tavo></nemra>") {
    }
  }
  if (head.Stop() != 0) throw std::runtime_error("the head failed");
  return CountIn(log);
}

double PerRequest(const Documents& document, int standing_queries = 0) {
  return PerTurn([&](int count) { return DaemonInstructions(document, standing_queries, count); },
                 20, 620);
}

Documents Always(const std::string& document) {
  return [document](int) { return document; };
}

std::string Update(int number) { return AtSetpoint(std::to_string(100 + number % 500) + ".5"); }

struct Case {
  const char* name;
  const char* request;
  int goal;  // instructions that are to suffice
  std::function<double()> measure;
};

constexpr int kStandingQueries = 50;

const std::vector<Case> kCases = {
    {"request-context", "&query; of one value", 9000,
     [] { return PerRequest(Always(AtSetpoint("&query;"))); }},
    {"request-item", "&query_item; of one value", 9000,
     [] { return PerRequest(Always(AtSetpoint("&query_item;"))); }},
    {"request-tree", "&query; of the whole tree", 75000,
     [] { return PerRequest(Always("&query;\n")); }},
    {"request-update", "update of one value, save included", 45000,
     [] { return PerRequest(Update); }},
    {"request-standing", "a standing query, for each change", 4000,
     [] { return (PerRequest(Update, kStandingQueries) - PerRequest(Update)) / kStandingQueries; }},
};

}  // namespace

int main(int argc, char** argv) {
  try {
    Selection selection(argc, argv);
    for (const Case& one : kCases)
      if (selection.Wants(one.name, true))
        Tell(WithLimit({.name = one.name,
                        .meaning = one.request,
                        .unit = "instructions",
                        .ours = one.measure()},
                       one.goal));
    selection.CheckNames();
  } catch (const std::exception& error) {
    std::cerr << "request_cost: " << error.what() << "\n";
    return 1;
  }
}
