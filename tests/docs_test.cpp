// What README, the pages under docs/ and the examples show, on a running bench. A fenced block of
// kind "console" holds shell commands after "$ " and what they print; one of kind "head" is the
// talk of a console client: lines after "> " are sent, the others come, in this order; one of kind
// "log" is what the head prints. The blocks of a page share one head, fresh and at 10 samples a
// second; a "./dev bench" in a block starts another, which the next command or the block's end
// ends. Blocks of kind "sh" hold commands that a test can't run, for reasons that stand below;
// those of kind "text" hold none.
//
// Times and what was measured differ from run to run: a number with a decimal point, or of eight
// digits or more, stands for any number, and so does every number of a row of samples. "…" stands
// for anything within its line and, alone in a line, for any lines. Two blanks or more stand for as
// many as a column needs. Ports and the bench's directory are those that it has by default.

#include <gtest/gtest.h>
#include <rapidjson/document.h>
#include <rapidjson/schema.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <filesystem>
#include <functional>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "bench/broker.h"
#include "bench/free_port.h"
#include "bench/head.h"
#include "client/bus.h"
#include "client/console.h"

namespace {

std::vector<std::string> LinesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
    text.replace(at, what.size(), by);
  return text;
}

// Whether a line of a head or a program is what the page shows.
bool Shows(const std::string& shown, const std::string& line) {
  static const std::regex special(R"([.^$|()\[\]{}*+?\\])");
  static const std::regex row(R"((DATA|DATASTAT|DATATEST)\t.*)");
  static const std::regex any_number(R"(-?\d[\d.]*)");
  static const std::regex volatile_number(R"(-?\d+\\\.\d+(e[-\\+]+\d+)?(?![.\d\\])|\d{8,})");
  static const std::regex name(R"(DATAEVENT\tNAME\t.*)");
  const std::string number = R"(-?[0-9]+(\.[0-9]+)?(e[-+][0-9]+)?)";
  std::string pattern;
  if (std::regex_match(shown, row))
    pattern = std::regex_replace(shown, any_number, number);
  else if (std::regex_match(shown, name))
    pattern = "DATAEVENT\tNAME\t.+";
  else
    pattern =
        std::regex_replace(std::regex_replace(shown, special, R"(\$&)"), volatile_number, number);
  pattern = std::regex_replace(pattern, std::regex("  +"), " +");
  return std::regex_match(line, std::regex(Replaced(pattern, "…", ".*")));
}

// What no test can run, and what does so instead.
const std::pair<const char*, const char*> kNotRun[] = {
    {"git clone .*", "it needs the repository's address"},
    {R"(\./dev bench)", "the next block shows it"},
    {R"((\./dev |ls build/)package.*)", "it takes minutes; packaging/try-packages"},
    {"cmake --.*", "each build, and installation_test.cpp"},
    {"sudo .*", "it would change this machine; packaging/try-packages"},
    {R"((\./dev bench --view|lumet-view) .*)", "view_test.cpp"},
    {"qemu-arm .*", "./dev perf armel"},
    {R"((sed 's/TVF|systemctl restart mosq|python3 examples/line_pro).*)", "fleet_test.cpp"},
    {R"((\./dev bench --speed max|echo '<nemra>|\./dev bench --rate 1|for i in).*)",
     "by hand, as docs/reliability.md says"},
};

class Page {
 public:
  ~Page() { End(); }
  void PlayBlock(const std::string& kind, const std::vector<std::string>& lines) {
    const auto is_command = [](const std::string& line) { return line.starts_with("$ "); };
    const bool has_commands = std::ranges::any_of(lines, is_command);
    any_lines = kind == "log";  // those before
    for (const std::string& line : lines) {
      if (kind == "head")
        Talk(line);
      else if (kind == "log")
        Expect(line, [this] { return NextOfLog(); });
      else if (kind == "console" && is_command(line))
        Run(line.substr(2));
      else if (kind == "console")
        Expect(line, [this] { return is_in_front ? NextOfLog() : NextSaid(); });
      else if (kind == "sh" && (has_commands ? is_command(line) : !line.starts_with(" ")))
        EXPECT_TRUE(std::ranges::any_of(kNotRun,
                                        [&](const auto& entry) {
                                          return std::regex_match(line.substr(has_commands ? 2 : 0),
                                                                  std::regex(entry.first));
                                        }))
            << "why is this not run? " << line;
      else
        EXPECT_TRUE(kind == "sh" || (kind == "text" && !is_command(line))) << kind << ": " << line;
      if (testing::Test::HasFailure()) return;
    }
    ExpectNothingMore();
    HangUp();
    if (is_in_front) End();
  }

 private:
  // The head, if there is one.
  void End() {
    is_in_front = false;
    if (!bench) return;
    if (!bench->HasSaid("Exiting..."))
      ChildProcess({"bash", "-c", Shell("./dev bench -- -k")}).Wait();
    EXPECT_EQ(bench->Wait(), 0) << bench->Output();
    bench.reset();
  }

  // As at a terminal.
  void Start(const std::string& command) {
    bench.emplace(std::vector<std::string>{
        "bash", "-c", "SHELL=/bin/bash exec script -qefc \"$0\" /dev/null < /dev/null",
        Shell(command)});
    log_read = 0;
    const auto port_after = [this](const std::string& words) {
      const std::size_t at = bench->WaitForOutput(words).find(words) + words.size();
      return std::to_string(std::stoi(bench->WaitForOutput("\n", at).substr(at)));
    };
    console_port = port_after("the head listens on port ");
    if (command.find("-broker") == std::string::npos)
      broker_port = port_after("started a broker on port ");
  }
  void NeedHead() {
    if (!bench) Start("./dev bench");
  }

  // What runs a command in a directory that looks like that of the sources.
  std::string Shell(const std::string& command) const {
    return "exec 2>&1; PATH=" LUMET_BUILD ":/usr/bin:$PATH; export XDG_STATE_HOME=" +
           directory.Path() + "; cd " + directory.Path() +
           "; mkdir -p build; ln -sfn " LUMET_BUILD " build/release; ln -sfn " SOURCE_DIR
           "/examples .; ./dev() { shift; lumet-bench --console-port 0 --root " +
           Root() + " \"$@\"; }; lumetctl() { " LUMETCTL " --head [::1]:" + console_port +
           " --broker [::1]:" + broker_port + " \"$@\"; }; " +
           WithOwn(Replaced(command, "build/release/lumetctl", "lumetctl"), true);
  }
  std::string Root() const { return directory.Path() + "/head"; }

  // What the page says of the places of a bench is true of this one's own.
  std::string WithOwn(std::string text, bool to_own) const {
    for (const auto& [shown, own] : {std::pair<std::string, std::string>{"7246", console_port},
                                     {"1883", broker_port},
                                     {"/tmp/lumet-bench-1000", Root()}})
      text = Replaced(text, to_own ? shown : own, to_own ? own : shown);
    return text;
  }

  void Run(const std::string& line) {
    static const std::regex bench_command(R"(\./dev bench( --[a-z].*)?( -- -d)?)");
    const std::string command = line.substr(0, line.find("  "));
    ExpectNothingMore();
    const bool starts_another = std::regex_match(command, bench_command);
    if (is_in_front || starts_another) End();
    if (starts_another) {
      Start(command);
      is_in_front = true;
      return;
    }
    NeedHead();
    ChildProcess shell({"bash", "-c", Shell(command)});
    EXPECT_EQ(shell.Wait(), 0) << command << "\n" << shell.Output();
    for (std::string& text : LinesOf(WithOwn(shell.Output(), false)))
      said.push_back(std::move(text));
    if (command.ends_with(" -k")) End();
  }

  std::string NextSaid() {
    if (said.empty()) throw std::runtime_error("it has said no more");
    std::string line = said.front();
    said.pop_front();
    return line;
  }
  std::string NextOfLog() {
    const std::size_t end = bench->WaitForOutput("\n", log_read).find('\n', log_read);
    const std::string line = bench->Output().substr(log_read, end - log_read);
    log_read = end + 1;
    return WithOwn(Replaced(line, "\r", ""), false);
  }
  void ExpectNothingMore() {
    if (!any_lines && !said.empty()) ADD_FAILURE() << "said, and not shown: " << said.front();
    said.clear();
    any_lines = false;
  }

  // The head has heard of it when this returns.
  void HangUp() {
    if (!client) return;
    const auto leave = [this] {
      client->Send("q\n");
      while (true) client->ReadLine();
    };
    EXPECT_THROW(leave(), ClientError);
    client.reset();
  }

  void Talk(const std::string& line) {
    NeedHead();
    if (!client) client.emplace(std::stoi(console_port));
    if (line == "$ nc ::1 7246") return;
    if (line.starts_with("> "))
      client->Send(line.substr(2) + "\n");
    else
      Expect(line, [&] {
        std::string came = client->ReadLine();
        while (came.starts_with("DATA\t") && !line.starts_with("DATA\t")) came = client->ReadLine();
        return came;
      });
  }

  // `next` gives the next line that there is.
  void Expect(const std::string& shown, const std::function<std::string()>& next) {
    const bool some_left_out = std::exchange(any_lines, shown == "…");
    if (any_lines) return;
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    std::string line = next();
    while (some_left_out && !Shows(shown, line) && std::chrono::steady_clock::now() < deadline)
      line = next();
    EXPECT_TRUE(Shows(shown, line)) << "said: " << line << "\nshown: " << shown;
  }

  const TemporaryDirectory directory;
  std::optional<ChildProcess> bench;
  std::size_t log_read = 0;  // bytes of what the bench has said
  bool is_in_front = false;  // the block shows it
  std::string console_port = "7246";
  std::string broker_port = "1883";
  std::optional<LineClient> client;
  std::deque<std::string> said;  // by the latest command, and not shown yet
  bool any_lines = false;        // the page has left out some
};

TEST(Docs, ShowWhatAHeadSays) {
  std::vector<std::string> pages = {SOURCE_DIR "/README.md", SOURCE_DIR "/examples/README.md"};
  for (const auto& entry : std::filesystem::directory_iterator(SOURCE_DIR "/docs"))
    if (entry.path().extension() == ".md") pages.push_back(entry.path());
  for (const std::string& path : pages) {
    Page page;
    std::vector<std::string> block;
    std::string kind;  // of the block that is open
    int number = 0;
    for (const std::string& line : LinesOf(ReadFile(path))) {
      ++number;
      const bool fence = line.starts_with("```");
      if (fence && kind.empty()) {
        kind = line.size() > 3 ? line.substr(3) : "none";
      } else if (fence) {
        SCOPED_TRACE(path + ", the block that ends in line " + std::to_string(number));
        ASSERT_NO_THROW(page.PlayBlock(kind, block));
        if (testing::Test::HasFailure()) return;
        kind.clear();
        block.clear();
      } else if (!kind.empty()) {
        block.push_back(line);
      }
    }
  }
}

rapidjson::Document Parsed(const std::string& text) {
  rapidjson::Document value;
  if (value.Parse(text.c_str()).HasParseError())
    throw std::runtime_error("this is no JSON: " + text);
  return value;
}

// Of a file under docs/schema.
class JsonSchema {
 public:
  explicit JsonSchema(const std::string& name)
      : schema(Parsed(ReadFile(SOURCE_DIR "/docs/schema/" + name))) {}

  bool Takes(const rapidjson::Value& value) const {
    rapidjson::SchemaValidator validator(schema);
    return value.Accept(validator);
  }

 private:
  const rapidjson::SchemaDocument schema;
};

TEST(Docs, SchemasTellWhatAHeadPublishes) {
  const TemporaryDirectory directory;
  const FreePort port;
  const Broker broker(directory.Path() + "/broker", port);
  Head head(directory.Path() + "/head", Head::PlayedBy::kSimulator,
            {.bench = {"--broker", "[::1]:" + std::to_string(port), "--rate", "50"}});
  BusClient bus({.port = port});
  bus.WaitForHead();
  ConsoleClient console(head.Port());
  for (const char* path : {"rectflash", "multiphaseflash", "inductionflash", "darkpulse"})
    console.Set("cfg/" + std::string(path) + "/margin", "1");
  console.Set("cfg/inductionflash/duration", "20");
  console.Set("cfg/darkpulse/before", "0");
  console.Set("cfg/darkpulse/duration", "1");

  const struct {
    std::string topic;
    const char* schema;
    const char* command = nullptr;  // which makes it
  } rows[] = {
      {bus_topic::kIdentity, "identity.json"},       {bus_topic::kData, "data.json"},
      {bus_topic::kStatus, "status.json"},           {bus_topic::kFlash, "event.json", "rect"},
      {bus_topic::kFlash, "event.json", "mpf"},      {bus_topic::kFlash, "event.json", "induction"},
      {bus_topic::kFlash, "event.json", "zero_dc0"}, {bus_topic::kDark, "event.json", "dark"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.command == nullptr ? row.topic : row.command);
    BusClient late({.port = port});  // finds what is retained
    if (row.command != nullptr) console.Set("cmd/" + std::string(row.command), "true");
    const std::string text = late.WaitFor(row.topic).payload;
    const rapidjson::Document message = Parsed(text);
    const JsonSchema schema(row.schema);
    EXPECT_TRUE(schema.Takes(message)) << text;
    // All of it, and nothing else.
    rapidjson::Document other = Parsed(text);
    other.AddMember("FURTHER", 1, other.GetAllocator());
    EXPECT_FALSE(schema.Takes(other));
    for (const auto& member : message.GetObject()) {
      other.CopyFrom(message, other.GetAllocator());
      other.RemoveMember(member.name);
      EXPECT_FALSE(schema.Takes(other)) << member.name.GetString();
      other.CopyFrom(message, other.GetAllocator());
      other[member.name].SetObject();
      EXPECT_FALSE(schema.Takes(other)) << member.name.GetString();
    }
  }
}

}  // namespace
