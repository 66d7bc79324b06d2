// The life of the process: options, pid file, signals, and its end.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "bench/bench_instrument.h"
#include "bench/head.h"
#include "client/console.h"
#include "common/errno_error.h"
#include "common/run_command.h"
#include "common/stream_file.h"
#include "common/test_registry.h"
#include "leaf/lumet/lumet_app.h"

namespace {

using self_test::Hex;

const std::string kUsage =
    "lumet 1.3.1\n"
    "usage: lumet [options]\n"
    "\n"
    "  -h   Show this help\n"
    "  -t   Run as a real-time process (superuser only)\n"
    "  -k   Kill lumet\n"
    "  -r   Reread configuration file\n"
    "  -d   Debug mode: output lots of debug info\n"
    "  -u   Run unit tests\n"
    "\n";

std::string Zeros(std::size_t bytes) { return std::string(2 * bytes, '0'); }

// Commands as they are on the wire.
const std::string kNoTime = "0000000000000000";
const std::string kSetOutputFormat2 = kNoTime + "13200400" + "02000000";
const std::string kRequestVersion = kNoTime + "05000000";
const std::string kUnity = "0000803f";
const std::string kColour = kUnity + Zeros(4) + kUnity;
const std::string kDefaultBias =
    kNoTime + "02204800" + kColour + kColour + kColour + Zeros(20) + Zeros(8) + "2f0d640b00080000";
// No light, and one sample a second.
const std::string kDefaultTiming = kNoTime + "01205c00" +
                                   "010000000100000001000000010000000100000001000000" + Zeros(16) +
                                   "0100" + Zeros(8) + "0100" + Zeros(18) + "0100" + Zeros(20);
const std::string kSafeState =
    kNoTime + "08200000" + kNoTime + "01205c00" +
    "01000000010000000100000001000000010000000100000001000000010000000100000001000000"
    "0100000000000000000001000000000000000000010001000100000001000100010000000000000000000000"
    "0100010001000000";

TEST(Process, StopsAtOptionsThatOnlyTellOrSignal) {
  const TemporaryDirectory root;
  const std::string pid_file = root.Path() + "/run/lumet.pid";
  const std::string no_file = "Got exception: PID file not found: " + pid_file + "\n";
  const struct {
    std::vector<std::string> options;
    int status;
    std::string log;
  } rows[] = {
      {{"-h"}, 0, kUsage},
      {{"-x"}, 0, kUsage},
      {{"-t", "-d", "-h", "-k"}, 0, kUsage},
      {{"-k"}, 255, "shutdown: " + no_file},
      {{"-u", "-k", "-h"}, 255, "shutdown: " + no_file},
      {{"-r", "-k"}, 255, "readconfig: " + no_file},
  };
  for (const auto& row : rows) {
    std::string log;
    EXPECT_EQ(RunLumetOnce(root.Path(), row.options, log), row.status) << row.options[0];
    EXPECT_EQ(log, row.log) << row.options[0];
    EXPECT_FALSE(std::filesystem::exists(pid_file));
  }
  // Even these have set the processor up.
  EXPECT_EQ(ReadFile(root.Path() + "/proc/cpu/alignment"), "3\n");
  const std::string frequency = root.Path() + "/sys/devices/system/cpu/cpu0/cpufreq/scaling_";
  EXPECT_EQ(ReadFile(frequency + "governor"), "userspace\n");
  EXPECT_EQ(ReadFile(frequency + "setspeed"), "456000\n");

  for (const auto& [pid, failure] :
       {std::pair<std::string, std::string>{"a text\n", "read PID file: " + pid_file},
        {"-1\n", "read PID file: " + pid_file},
        {"999999999\n", "signal: No such process"}}) {
    WriteFile(pid_file, pid);
    std::string log;
    EXPECT_EQ(RunLumetOnce(root.Path(), {"-k"}, log), 255);
    EXPECT_EQ(log, "shutdown: Got exception: Unable to " + failure + "\n");
  }
}

TEST(Process, LivesFromItsPidFileToTheSafeState) {
  const TemporaryDirectory root;
  const std::string pid_file = root.Path() + "/run/lumet.pid";
  // Left behind by a crash, and longer than what will be written there.
  WriteFile(pid_file, "123456789012345\n");
  Head head(root.Path(), Head::PlayedBy::kCaller, {.lumet = {"-t"}});
  // The bias comes once because everything is new, and once because this is a start.
  EXPECT_EQ(Hex(head.SignalProcessor().ReadPacket()),
            kSetOutputFormat2 + kRequestVersion + kDefaultTiming + kDefaultBias + kDefaultBias);
  const std::string pid = std::to_string(head.Pid()) + "\n";
  EXPECT_EQ(ReadFile(pid_file), pid);

  std::string log;
  EXPECT_EQ(RunLumetOnce(root.Path(), {}, log), 255);
  EXPECT_EQ(log, "ERROR: Another process is already running: Resource temporarily unavailable\n");
  EXPECT_EQ(ReadFile(pid_file), pid);

  EXPECT_EQ(RunLumetOnce(root.Path(), {"-r", "-k"}, log), 0);
  EXPECT_EQ(Hex(head.SignalProcessor().ReadPacket()), kRequestVersion + kDefaultBias);
  RecordWriter version;
  version.Text(StampNow(), DSPCode::VersionRecord, "1.2 3.4");
  head.SignalProcessor().Send(version);
  head.WaitForLog("DSP Version:1.2\nFPGA Version:3.4\n");

  ConsoleClient client(head.Port());
  EXPECT_EQ(RunLumetOnce(root.Path(), {"-d", "-k", "-r"}, log), 0);
  EXPECT_EQ(log, "");
  EXPECT_EQ(Hex(head.SignalProcessor().ReadPacket()), kSafeState);
  EXPECT_EQ(head.Wait(), 0);
  EXPECT_NE(head.WaitForLog("Exiting...\n").find("would ask for scheduling policy"),
            std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(pid_file));
}

TEST(Process, ClientsTakeWhatIsQueuedBeforeItEnds) {
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kCaller);
  LineClient deaf(head.Port(), "::1", kDefaultTimeout, 4096);
  LineClient slow(head.Port(), "::1", kDefaultTimeout, 4096);
  // No more than the head reads at once, so that all are answered before the reboot.
  constexpr int kRequests = 100;
  std::string requests;
  for (int i = 0; i < kRequests; ++i) requests += "<nemra><tavo>&query;</tavo></nemra>\n";
  deaf.Send(requests);
  slow.Send(requests);
  LineClient console(head.Port());
  console.ReadLineThatBegins("DATADIAGH\t");
  console.Send("<nemra><tavo><cmd><reboot>true</reboot></cmd></tavo></nemra>\n");
  console.ReadLineThatBegins("<nemra><tavo><ack>true</ack>");
  for (int i = 0; i < kRequests; ++i) slow.ReadLineThatBegins("<nemra><tavo><ack>true</ack>");
  EXPECT_EQ(head.Wait(), 0);
  head.WaitForLog("Exiting...\nlumet-bench: would run /usr/bin/reboot\n");
}

// Nobody reads the log: the head goes on, and says later how much nobody read.
TEST(Process, WaitsForNoReaderOfItsLog) {
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kCaller, {.lumet = {"-d"}});
  ConsoleClient client(head.Port());
  // Each leaves some 100 bytes in the log, and a pipe holds 65536.
  constexpr int kRequests = 2000;
  for (int i = 0; i < kRequests; ++i)
    client.Request("<nemra><tavo><site>" + std::to_string(i) + "</site></tavo></nemra>");
  const std::string said = head.WaitForLog("for want of a reader of standard output\n");
  const std::string before = "LogOutput: ";
  const std::size_t place = said.find(before);
  EXPECT_EQ(said[place - 1], '\n') << "a torn line";
  EXPECT_GT(std::stoi(said.substr(place + before.size())), 0);
  client.Request("<nemra><tavo><site>over</site></tavo></nemra>");
  head.WaitForLog("<site>over<");
}

// A service manager that only listens.
class ServiceManager {
 public:
  explicit ServiceManager(const std::string& path)
      : socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    struct sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (bind(socket.GetFD(), reinterpret_cast<const struct sockaddr*>(&address), sizeof address) !=
        0)
      throw ErrnoError("Unable to bind " + path);
  }

  // The next state that it is told, or "" if there is none for so long.
  std::string Next(int timeout_ms = 10'000) {
    struct pollfd entry = {socket.GetFD(), POLLIN, 0};
    std::string state;
    if (poll(&entry, 1, timeout_ms) == 1) socket.ReadString(state);
    return state;
  }

 private:
  StreamFileBase socket;
};

TEST(Process, TellsItsServiceManagerThatItServesAndLives) {
  for (const bool is_watched : {true, false}) {
    SCOPED_TRACE(is_watched);
    const TemporaryDirectory root;
    const std::string path = root.Path() + "/notify";
    ServiceManager manager(path);
    std::vector<std::string> environment = {"env", "NOTIFY_SOCKET=" + path};
    if (is_watched) environment.emplace_back("WATCHDOG_USEC=90000");
    Head head(root.Path() + "/head", Head::PlayedBy::kSimulator, {.wrapper = environment});
    EXPECT_EQ(manager.Next(), "READY=1");
    if (is_watched) {
      for (int i = 0; i < 3; ++i) EXPECT_EQ(manager.Next(), "WATCHDOG=1");
      // A loop that stands still feeds nobody, apart from what was on its way.
      kill(head.Pid(), SIGSTOP);
      for (int i = 0; i < 5; ++i) manager.Next(100);
      EXPECT_EQ(manager.Next(300), "");
      kill(head.Pid(), SIGCONT);
      EXPECT_EQ(manager.Next(), "WATCHDOG=1");
    }
    EXPECT_EQ(head.Stop(), 0);
    std::string last = manager.Next();
    while (last == "WATCHDOG=1") last = manager.Next();
    EXPECT_EQ(last, "STOPPING=1");
  }
}

TEST(Process, WhatItRunsStartsAfresh) {
  const TemporaryDirectory root;
  const int inherited = open("/dev/null", O_RDONLY);
  const auto before = std::signal(SIGPIPE, SIG_IGN);
  RunCommand("(grep -E 'Sig(Ign|Blk)' /proc/self/status; test -e /proc/self/fd/" +
             std::to_string(inherited) + " && echo inherited) > " + root.Path() + "/seen");
  std::istringstream seen(ReadFile(root.Path() + "/seen"));
  std::string name;
  std::uint64_t blocked = 0;
  std::uint64_t ignored = 0;
  seen >> name >> std::hex >> blocked >> name >> ignored;
  EXPECT_EQ(blocked, 0U);
  // The C library keeps 32 and 33 to itself, whoever else ignored them.
  EXPECT_EQ(ignored & ~std::uint64_t{0x180000000}, 0U);
  EXPECT_FALSE(seen >> name) << name;
  EXPECT_EQ(std::signal(SIGPIPE, before), SIG_IGN);
  close(inherited);
}

// The test's own output is a pipe that nobody reads here; a command that fills it does not wait.
TEST(Process, WhatItRunsWaitsForNoReader) {
  int ends[2] = {};
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const int output = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  dup2(ends[1], STDOUT_FILENO);
  std::ostringstream printed;
  std::streambuf* const before = std::cout.rdbuf(printed.rdbuf());
  const int status = RunCommand("echo first; echo second >&2; head -c 200000 /dev/zero; exit 3");
  std::cout.rdbuf(before);
  dup2(output, STDOUT_FILENO);
  for (const int fd : {ends[0], ends[1], output}) close(fd);
  EXPECT_EQ(WEXITSTATUS(status), 3);
  EXPECT_EQ(printed.str().substr(0, 13), "first\nsecond\n");
  EXPECT_EQ(printed.str().size(), 64U * 1024U);
}

TEST(Process, TheBenchUsesNoDirectoryOfOthers) {
  const TemporaryDirectory parent;
  const std::string mine = parent.Path() + "/mine";
  // Makes it, and finds it as it made it.
  for (int i = 0; i < 2; ++i) BenchInstrument(mine);
  const auto expect_refused = [](const std::string& root, const std::string& reason) {
    try {
      BenchInstrument(root);
      ADD_FAILURE() << "took " << root;
    } catch (const std::runtime_error& error) {
      EXPECT_NE(std::string(error.what()).find(reason), std::string::npos) << error.what();
    }
  };
  std::filesystem::create_symlink(mine, parent.Path() + "/link");
  expect_refused(parent.Path() + "/link/", "it is a link or a file");
  chmod(mine.c_str(), 0750);
  expect_refused(mine, "rights to others");
  if (geteuid() != 0) return;
  chmod(mine.c_str(), 0700);
  EXPECT_EQ(chown(mine.c_str(), 1, 1), 0);
  expect_refused(mine, "it belongs to user 1");
}

TEST(Process, EndsWhenTheProcessorIsGone) {
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kCaller);
  head.SignalProcessor().ReadPacket();
  head.SignalProcessor().Close();
  EXPECT_EQ(head.Wait(), 0);
  head.WaitForLog("DSPDevice: the signal processor has closed its end of the link\nExiting...\n");
}

// Runs the daemon with -t in a child of its own; returns its exit status.
int RunInChild(const Instrument& instrument, const Machine& machine) {
  const pid_t child = fork();
  if (child == 0) {
    char words[][6] = {"lumet", "-t"};
    char* argv[] = {words[0], words[1], nullptr};
    _exit(RunLumet(instrument, machine, 2, argv));
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// An order to end is heard even during its start.
TEST(Process, SignalsDuringItsStartAreKept) {
  const TemporaryDirectory root;
  const struct {
    int early;  // before anything is open
    int late;   // when it listens
  } rows[] = {{SIGTERM, 0}, {0, SIGINT}, {SIGUSR1, SIGTERM}};
  for (const auto& row : rows) {
    Instrument instrument = BenchInstrument(root.Path());
    instrument.console_port = 0;
    WriteFile(instrument.dsp_device, "");
    Machine machine = BenchMachine(instrument);
    machine.set_scheduler = [&](int, int) { return raise(row.early); };
    machine.lock_memory = [](int) { return 0; };
    instrument.console_listens = [&](int) { raise(row.late); };
    EXPECT_EQ(RunInChild(instrument, machine), 0) << row.early << " " << row.late;
    EXPECT_FALSE(std::filesystem::exists(instrument.pid_file)) << row.early << " " << row.late;
    EXPECT_TRUE(Hex(ReadFile(instrument.dsp_device)).ends_with(kSafeState));
  }
}

TEST(Process, ReportsWhatKeepsItFromStarting) {
  const TemporaryDirectory root;
  const struct {
    void (*change)(Instrument&, Machine&);
    const char* log;
  } rows[] = {
      {[](Instrument& instrument, Machine&) { instrument.account = "no-such-account"; },
       "ERROR: Unable to drop priviledges: Username 'no-such-account' not found\n"},
      {[](Instrument& instrument, Machine&) { instrument.dsp_device = "/no/such/device"; },
       "ERROR: StreamFile: Unable to open /no/such/device: No such file or directory\n"},
      {[](Instrument& instrument, Machine&) { instrument.pid_file = "/no/such/directory/pid"; },
       "ERROR: Unable to open pid file: No such file or directory\n"},
      {[](Instrument&, Machine& machine) {
         machine.lock_memory = [](int) {
           errno = ENOMEM;
           return -1;
         };
       },
       "ERROR: set_real_time_priority: Unable to lock memory pages: Cannot allocate memory\n"},
  };
  for (const auto& row : rows) {
    Instrument instrument = BenchInstrument(root.Path());
    instrument.console_port = 0;
    WriteFile(instrument.dsp_device, "");
    Machine machine = BenchMachine(instrument);
    row.change(instrument, machine);
    testing::internal::CaptureStdout();
    EXPECT_EQ(RunInChild(instrument, machine), 255);
    const std::string log = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(log.ends_with(row.log)) << log;
    EXPECT_FALSE(std::filesystem::exists(instrument.pid_file));
  }
}

}  // namespace
