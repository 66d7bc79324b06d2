// What a request costs the daemon, in instructions, from the read of the client's line to the send
// of the answer: the whole daemon runs under callgrind, in a process of its own, at two lengths,
// and the difference is what the requests in between took. It gets no samples meanwhile.
//
// An update is a new value each time, and includes the save of its settings file. A standing query
// is what one more of them adds to such an update, its news to the client included.
//
// With the name of one request, such as "item", only that one is counted.

#include <functional>
#include <iomanip>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench/head.h"
#include "benchmarks/callgrind.h"
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
    while (client.ReadLine().find("<ack>") == std::string::npos) {
    }
  }
  if (head.Stop() != 0) throw std::runtime_error("the head failed");
  return CountIn(log);
}

double PerRequest(const Documents& document, int standing_queries = 0) {
  constexpr int kShort = 20;
  constexpr int kLong = 220;
  return static_cast<double>(DaemonInstructions(document, standing_queries, kLong) -
                             DaemonInstructions(document, standing_queries, kShort)) /
         (kLong - kShort);
}

Documents Always(const std::string& document) {
  return [document](int) { return document; };
}

std::string Update(int number) { return AtSetpoint(std::to_string(100 + number % 500) + ".5"); }

struct Case {
  const char* name;
  const char* request;
  std::function<double()> measure;
};

constexpr int kStandingQueries = 10;

const std::vector<Case> kCases = {
    {"context", "&query; of one value", [] { return PerRequest(Always(AtSetpoint("&query;"))); }},
    {"item", "&query_item; of one value",
     [] { return PerRequest(Always(AtSetpoint("&query_item;"))); }},
    {"tree", "&query; of the whole tree", [] { return PerRequest(Always("&query;\n")); }},
    {"update", "update of one value, save included", [] { return PerRequest(Update); }},
    {"standing", "a standing query, for each change",
     [] { return (PerRequest(Update, kStandingQueries) - PerRequest(Update)) / kStandingQueries; }},
};

}  // namespace

int main(int argc, char** argv) {
  try {
    std::cout << std::fixed << std::setprecision(0) << "instructions of the daemon per request:\n";
    for (const Case& one : kCases) {
      if (argc == 2 && argv[1] != std::string_view(one.name)) continue;
      std::cout << "  " << std::left << std::setw(36) << one.request << std::right << std::setw(7)
                << one.measure() << std::endl;
    }
  } catch (const std::exception& error) {
    std::cerr << "request_cost: " << error.what() << "\n";
    return 1;
  }
}
