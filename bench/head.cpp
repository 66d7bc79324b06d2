#include "bench/head.h"

#include <sys/socket.h>

#include <array>
#include <ctime>
#include <fstream>
#include <stdexcept>

#include "common/errno_error.h"

namespace {

std::array<int, 2> SocketPair() {
  std::array<int, 2> ends = {};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
    throw ErrnoError("unable to make a pair of descriptors");
  return ends;
}

std::vector<std::string> BenchArguments(const std::string& root,
                                        const std::vector<std::string>& bench_options,
                                        const std::vector<std::string>& lumet_options) {
  std::vector<std::string> arguments = {LUMET_BENCH,      "--root", root,
                                        "--console-port", "0",      "--no-broker"};
  arguments.insert(arguments.end(), bench_options.begin(), bench_options.end());
  arguments.emplace_back("--");
  arguments.insert(arguments.end(), lumet_options.begin(), lumet_options.end());
  return arguments;
}

}  // namespace

std::string Processor::ReadPacket() {
  WaitReadable(link.GetFD(), std::chrono::steady_clock::now() + kDeadline, "a packet of commands");
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
  std::vector<std::string> bench_options = options.bench;
  if (played_by == PlayedBy::kCaller) {
    const std::array<int, 2> link_ends = SocketPair();
    processor.Attach(link_ends[0]);
    child_link.Attach(link_ends[1]);
    bench_options.insert(bench_options.end(), {"--dsp-fd", std::to_string(link_ends[1])});
  }
  std::vector<std::string> command = options.wrapper;
  for (const std::string& word : BenchArguments(root, bench_options, options.lumet))
    command.push_back(word);
  process = std::make_unique<ChildProcess>(command, child_link.GetFD());
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
  if (!(status >> value)) throw std::runtime_error("the system does not tell " + name);
  return value;
}

int RunLumetOnce(const std::string& root, const std::vector<std::string>& lumet_options,
                 std::string& log) {
  ChildProcess process(BenchArguments(root, {}, lumet_options));
  const int exit_status = process.Wait();
  log = process.Output();
  return exit_status;
}
