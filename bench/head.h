#pragma once

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bench/child_process.h"
#include "bench/record_writer.h"
#include "client/console.h"
#include "common/stream_file.h"
#include "common/temporary_directory.h"
#include "common/text_file.h"

// For programs that drive heads on the bench: the head itself and its processor. client/ has
// what talks to it.

// Whether this build, and so the head that it starts, has AddressSanitizer.
#ifdef __SANITIZE_ADDRESS__
constexpr bool kWithAddressSanitizer = true;
#else
constexpr bool kWithAddressSanitizer = false;
#endif

// The longest wait of a client for a DATA row.
class GapMeter {
 public:
  void Saw(const ConsoleMessage& message);
  std::chrono::milliseconds Longest() const;

 private:
  std::chrono::steady_clock::time_point last = std::chrono::steady_clock::now();
  std::chrono::steady_clock::duration longest{};
};
// How long that may be: room for a slow machine, and none for a head that does something else
// meanwhile.
constexpr auto kLongestGap = std::chrono::seconds(1);
// The longest wait until `done(message)`, which sees each message.
std::chrono::milliseconds LongestGap(ConsoleClient& client,
                                     const std::function<bool(const ConsoleMessage&)>& done);

// The signal processor, played by this program.
class Processor {
 public:
  // Takes the processor's end of the link.
  void Attach(int descriptor) { link.Attach(descriptor); }

  // The commands of one packet, as bytes. Throws std::runtime_error at the deadline or the end.
  std::string ReadPacket();
  // Sends what `records` holds.
  void Send(RecordWriter& records);
  void Close() { link.Close(); }

 private:
  StreamFileBase link;
};

// A stamp for records: the present second.
RecordTime StampNow();

// How to start a head.
struct HeadOptions {
  std::vector<std::string> lumet = {};    // options of lumet
  std::vector<std::string> wrapper = {};  // a command that runs the bench
  std::vector<std::string> bench = {};    // options of the bench
  // The words that run lumet-bench. If there are none, those of LUMET_BENCH_COMMAND in the
  // environment, and without it the program of this build.
  std::vector<std::string> program = {};
};

// A head on the bench, in a process of its own, on a free port. Its bus has no broker, whatever
// runs on this machine, unless the options give it one.
class Head {
 public:
  enum class PlayedBy { kSimulator, kCaller };

  // Starts lumet-bench with its files in `root`. Waits until it listens.
  Head(const std::string& root, PlayedBy played_by, const HeadOptions& options = {});

  int Port() const { return port; }
  pid_t Pid() const { return process->Pid(); }
  // Only with PlayedBy::kCaller.
  Processor& SignalProcessor() { return processor; }

  // Standard output so far, once it holds `text`; `from`: after that many bytes.
  const std::string& WaitForLog(std::string_view text, std::size_t from = 0) {
    return process->WaitForOutput(text, from);
  }
  // Whether it has said `text`, without waiting.
  bool HasLogged(std::string_view text) { return process->HasSaid(text); }
  // Sends `signo` and waits for the end.
  int Stop(int signo = SIGTERM) { return process->Stop(signo); }
  // Waits for the end; returns the exit status, or -1 for a process that a signal ended.
  int Wait() { return process->Wait(); }
  // A number that the system reports of the process, by its name in /proc/PID/status: VmRSS in
  // kilobytes, say. Throws std::runtime_error.
  long Status(const std::string& name) const;

 private:
  Processor processor;
  std::unique_ptr<ChildProcess> process;
  int port = 0;
};

// Runs lumet-bench on the files in `root` to its end; its standard output goes to `log`.
int RunLumetOnce(const std::string& root, const std::vector<std::string>& lumet_options,
                 std::string& log);
