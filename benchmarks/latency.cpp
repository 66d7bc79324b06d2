// How old a row is when a client has it: from the processor's write of the record that brought the
// sample to the client's read of the row, by the one clock of this machine. Meanwhile another
// client asks for a setting again and again, and waits for each answer.
//
// The daemon runs at real-time priority, as it does on a head, and so do the processor and the
// clients, below it, so that a busy machine does not judge. What the machine itself makes everybody
// wait is measured beside it.

#include <poll.h>
#include <sched.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "bench/head.h"
#include "benchmarks/figure.h"
#include "benchmarks/stream.h"
#include "client/lines.h"
#include "common/errno_error.h"
#include "common/stream_file.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

struct Course {
  const char* name;
  const char* meaning;
  const Rate& rate;
  int seconds;
  double limit_ms;  // of the 99th percentile
};
constexpr Course kCourses[] = {
    {"10Hz", "10 Hz, single", k10Hz, 20, 1},
    {"1kHz", "1 kHz, 10 a read", k1kHz, 10, 5},
    {"250kHz", "250 kHz, 390 a read", k250kHz, 5, 5},
};
constexpr double kAnswerLimitMs = 5;

constexpr std::string_view kRowStart = "DATA\t";

// Once in each of these a setting is asked for.
constexpr auto kQuestionPeriod = std::chrono::milliseconds(10);
const std::string kQuestion =
    "<nemra><tavo><cfg><lightsource><Q_setpoint>&query;</Q_setpoint></lightsource></cfg></tavo>"
    "</nemra>\n";

bool MakeRealTime(pid_t pid, int above_lowest) {
  struct sched_param parameters = {};
  parameters.sched_priority = sched_get_priority_min(SCHED_FIFO) + above_lowest;
  return sched_setscheduler(pid, SCHED_FIFO, &parameters) == 0;
}

// The processor, which writes what each read of it brings at its time.
class Writer {
 public:
  Writer(Processor& processor, const Rate& rate, int reads)
      : rate(rate), written(static_cast<std::size_t>(reads)), thread([this, &processor] {
          Clock::time_point next = Clock::now();
          for (std::size_t read = 0; read < written.size(); ++read) {
            RecordWriter records =
                ReadOf(Stream::kRealistic, this->rate, static_cast<int>(read) * this->rate.in_read);
            std::this_thread::sleep_until(next);
            next += std::chrono::microseconds(this->rate.period_us) * this->rate.in_read;
            written[read] = Clock::now();
            processor.Send(records);
          }
        }) {}

  // When the record with this sample was written. Only for a sample that has come back.
  Clock::time_point WhenWritten(std::size_t sample) const {
    return written[sample / static_cast<std::size_t>(rate.in_read)].load();
  }

 private:
  const Rate& rate;
  std::vector<std::atomic<Clock::time_point>> written;
  std::jthread thread;
};

// The sample of a row, by the row's time, which is that of the sample.
std::size_t NumberOf(const std::string& row, const Rate& rate) {
  const double seconds = std::stod(row.substr(kRowStart.size()));
  return static_cast<std::size_t>(std::llround((seconds - kFirstSecond) * 1e6 / rate.period_us));
}

// Two threads that pass a byte to and fro once in each period, with no head between them: what the
// machine itself makes everybody wait.
class BareExchange {
 public:
  BareExchange() {
    std::array<int, 2> ends = {};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
      throw ErrnoError("unable to make a pair of sockets");
    near.Attach(ends[0]);
    far.Attach(ends[1]);
    answering = std::jthread([this] {
      for (char byte = 0; recv(far.GetFD(), &byte, 1, 0) == 1;)
        send(far.GetFD(), &byte, 1, MSG_NOSIGNAL);
    });
    asking = std::jthread([this] {
      while (!ended) {
        std::this_thread::sleep_for(kQuestionPeriod);
        const Clock::time_point asked = Clock::now();
        char byte = 0;
        send(near.GetFD(), &byte, 1, MSG_NOSIGNAL);
        recv(near.GetFD(), &byte, 1, 0);
        worst = std::max(worst, Milliseconds(Clock::now() - asked).count());
      }
      shutdown(near.GetFD(), SHUT_RDWR);
    });
  }
  BareExchange(const BareExchange&) = delete;
  BareExchange& operator=(const BareExchange&) = delete;
  ~BareExchange() { ended = true; }

  // Ends it.
  double Worst() {
    ended = true;
    asking.join();
    return worst;
  }

 private:
  StreamFileBase near;
  StreamFileBase far;
  std::atomic<bool> ended = false;
  double worst = 0;
  std::jthread answering;
  std::jthread asking;
};

// What two clients saw, in milliseconds.
struct Seen {
  std::vector<double> rows;
  std::vector<double> answers;
};

// A client that asks for a setting once in each period, and waits for each answer.
class Asker {
 public:
  explicit Asker(LineClient& client) : client(client) {}

  void AskIfDue() {
    if (waiting || Clock::now() < next) return;
    next += kQuestionPeriod;
    waiting = true;
    asked = Clock::now();
    client.Send(kQuestion);
  }
  void Take(std::vector<double>& answers) {
    while (const auto line = client.TakeLine()) {
      if (line->find("<ack>") == std::string::npos) continue;
      answers.push_back(Milliseconds(Clock::now() - asked).count());
      waiting = false;
    }
  }

 private:
  LineClient& client;
  Clock::time_point next = Clock::now();
  Clock::time_point asked;
  bool waiting = false;
};

Seen Watch(Head& head, const Course& course) {
  LineClient client(head.Port());
  LineClient asking(head.Port());
  for (LineClient* each : {&client, &asking}) each->ReadLineThatBegins("DATADIAGH\t");
  const Rate& rate = course.rate;
  const auto reads = static_cast<int>(course.seconds * 1'000'000LL /
                                      (std::int64_t{rate.period_us} * rate.in_read));
  const auto samples = static_cast<std::size_t>(reads) * static_cast<std::size_t>(rate.in_read);
  Seen seen;
  seen.rows.reserve(samples);
  Asker asker(asking);
  const Writer writer(head.SignalProcessor(), rate, reads);
  while (seen.rows.size() < samples) {
    std::array<struct pollfd, 2> entries = {
        {{client.Descriptor(), POLLIN, 0}, {asking.Descriptor(), POLLIN, 0}}};
    poll(entries.data(), entries.size(), 1);
    while (const auto line = client.TakeLine()) {
      const Clock::time_point now = Clock::now();
      if (!line->starts_with(kRowStart)) continue;
      const auto number = NumberOf(*line, rate);
      if (number != seen.rows.size()) throw std::runtime_error("a row is missing: " + *line);
      seen.rows.push_back(Milliseconds(now - writer.WhenWritten(number)).count());
    }
    asker.Take(seen.answers);
    asker.AskIfDue();
  }
  return seen;
}

double Percentile99(std::vector<double>& values) {
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(values.size() * 99 / 100);
  std::ranges::nth_element(values, at);
  return *at;
}

void TellTime(const Course& course, const std::string& name, const std::string& meaning,
              double milliseconds, double limit) {
  Tell(WithLimit({.name = name + "-" + course.name,
                  .meaning = std::string(course.meaning) + ", " + meaning,
                  .kind = Figure::Kind::kTime,
                  .unit = "ms",
                  .ours = milliseconds},
                 limit));
}

void Measure(const Course& course) {
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kCaller);
  if (!MakeRealTime(head.Pid(), 1) || !MakeRealTime(0, 0))
    std::cerr << "latency: there is no right to real-time priority here, so that whoever else is "
                 "at work on this machine judges too\n";
  BareExchange bare;
  Seen seen = Watch(head, course);
  TellTime(course, "row", "99th percentile of the rows", Percentile99(seen.rows), course.limit_ms);
  TellTime(course, "answer", "99th percentile of the answers", Percentile99(seen.answers),
           kAnswerLimitMs);
  TellTime(course, "worst-answer", "worst answer", *std::ranges::max_element(seen.answers),
           kAnswerLimitMs);
  TellTime(course, "worst-bare", "worst of two threads without a head", bare.Worst(), 0);
}

}  // namespace

int main() {
  try {
    for (const Course& course : kCourses) Measure(course);
  } catch (const std::exception& error) {
    std::cerr << "latency: " << error.what() << "\n";
    return 1;
  }
}
