#include "bench/head.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "common/errno_error.h"

namespace {

using Clock = std::chrono::steady_clock;

std::array<int, 2> SocketPair() {
  std::array<int, 2> ends = {};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
    throw ErrnoError("unable to make a pair of descriptors");
  return ends;
}

std::vector<std::string> BenchProgram() {
  const char* const other = std::getenv("LUMET_BENCH_COMMAND");
  if (other == nullptr) return {LUMET_BENCH};
  std::istringstream words(other);
  return {std::istream_iterator<std::string>(words), {}};
}

std::vector<std::string> BenchCommand(const std::string& root, const HeadOptions& options) {
  std::vector<std::string> command = options.wrapper;
  const auto append = [&](const std::vector<std::string>& words) {
    command.insert(command.end(), words.begin(), words.end());
  };
  append(options.program.empty() ? BenchProgram() : options.program);
  append({"--root", root, "--console-port", "0"});
  append(options.bench);
  if (std::ranges::find(options.bench, "--broker") == options.bench.end()) append({"--no-broker"});
  append({"--"});
  append(options.lumet);
  return command;
}

}  // namespace

void GapMeter::Saw(const ConsoleMessage& message) {
  if (!std::holds_alternative<DataRow>(message)) return;
  const auto now = Clock::now();
  longest = std::max(longest, now - last);
  last = now;
}

std::chrono::milliseconds GapMeter::Longest() const {
  // The wait that has not ended yet counts too.
  return std::chrono::duration_cast<std::chrono::milliseconds>(
      std::max(longest, Clock::now() - last));
}

std::chrono::milliseconds LongestGap(ConsoleClient& client,
                                     const std::function<bool(const ConsoleMessage&)>& done) {
  GapMeter gap;
  while (true) {
    const ConsoleMessage message = client.Next();
    gap.Saw(message);
    if (done(message)) return gap.Longest();
  }
}

std::string Processor::ReadPacket() {
  WaitReadable(link.GetFD(), Clock::now() + kDeadline, "a packet of commands");
  std::string packet(65536, '\0');
  const int count = link.Read(packet.data(), static_cast<unsigned>(packet.size()));
  if (count == 0) throw std::runtime_error("the head closed the link");
  packet.resize(static_cast<std::size_t>(count));
  return packet;
}

void Processor::Send(RecordWriter& records) {
  for (; !records.packets.empty(); records.packets.pop_front())
    link.Write(records.packets.front().data(),
               static_cast<unsigned>(records.packets.front().size()));
}

RecordTime StampNow() { return {static_cast<std::uint32_t>(std::time(nullptr)), 0}; }

Head::Head(const std::string& root, PlayedBy played_by, const HeadOptions& options) {
  StreamFileBase child_link;
  HeadOptions with_link = options;
  std::vector<std::string>& bench_options = with_link.bench;
  if (played_by == PlayedBy::kCaller) {
    const std::array<int, 2> link_ends = SocketPair();
    processor.Attach(link_ends[0]);
    child_link.Attach(link_ends[1]);
    bench_options.insert(bench_options.end(), {"--dsp-fd", std::to_string(link_ends[1])});
  }
  process = std::make_unique<ChildProcess>(BenchCommand(root, with_link), child_link.GetFD());
  const std::string before = "listens on port ";
  const std::string& said = WaitForLog("to talk to it");
  port = std::stoi(said.substr(said.find(before) + before.size()));
}

long Head::Status(const std::string& name) const {
  std::ifstream status("/proc/" + std::to_string(Pid()) + "/status");
  std::string word;
  while (status >> word && word != name + ":") {
  }
  long value = 0;
  if (!(status >> value)) throw std::runtime_error("the system does not report " + name);
  return value;
}

int RunLumetOnce(const std::string& root, const std::vector<std::string>& lumet_options,
                 std::string& log) {
  ChildProcess process(BenchCommand(root, {.lumet = lumet_options}));
  const int exit_status = process.Wait();
  log = process.Output();
  return exit_status;
}
