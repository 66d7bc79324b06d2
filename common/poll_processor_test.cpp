#include "common/poll_processor.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <functional>
#include <vector>

#include "common/test_registry.h"

void StreamFileCases();
void SocketCases();
void SocketServerCases();
void AvahiPollCases();
void BonjourClientCases();
void BonjourResolverCases();
void MQTTClientCases();

namespace {

using namespace self_test;

PollProcessor& Loop() { return *PollProcessor::Instance(); }

// Turns the loop until it would block.
void Settle() {
  for (int i = 0; i < 3; ++i) Loop().Process(0);
}

double Seconds(const std::function<void()>& act) {
  const auto start = std::chrono::steady_clock::now();
  act();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct Timer : PollTimer {
  explicit Timer(std::function<void(Timer&)> act) : PollTimer(-1, true), expired(std::move(act)) {}
  void Expired() override { expired(*this); }
  std::function<void(Timer&)> expired;
};

struct SignalHandler : PollSignalHandler {
  SignalHandler(int signo, std::function<void()> act)
      : PollSignalHandler(signo, true), handle(std::move(act)) {}
  void HandleSignal(int) override { handle(); }
  std::function<void()> handle;
};

struct Idler : PollIdleHandler {
  explicit Idler(int wanted) : PollIdleHandler(true), passes_wanted(wanted) {}
  bool Idle() override { return ++passes < passes_wanted; }
  int passes_wanted;
  int passes = 0;
};

// One end of a socket pair on the loop; notes its events in `log` and then acts.
struct Item : PollItem {
  Item(std::string name, std::string& log)
      : PollItem(POLLIN, true), name(std::move(name)), log(log) {
    ExpectEqual(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
  }
  ~Item() override {
    Remove();
    for (const int end : ends) close(end);
  }
  int GetFD() override { return ends[0]; }
  void HandleRead() override { Note("r"); }
  void HandlePriority() override { Note("p"); }
  void HandleWrite() override { Note("w"); }
  void HandleHangup() override { Note("h"); }
  void Note(const char* event) {
    log += name + event;
    act();
  }
  void MakeReadable() { ExpectEqual(write(ends[1], "x", 1), ssize_t{1}); }

  std::array<int, 2> ends = {};
  std::string name;
  std::string& log;
  std::function<void()> act = [] {};
};

void TimerCases() {
  std::string order;
  Timer first([&](Timer&) { order += "1"; });
  Timer second([&](Timer&) { order += "2"; });
  Timer third([&](Timer&) { order += "3"; });
  second.SetTimeout(0);
  third.SetTimeout(0);
  first.SetTimeout(0);
  Loop().Process(0);
  ExpectEqual(order, "123", "order of timers that are due together");

  // What a callback removes or stops is not called; what it moves into the future, or rearms, comes
  // at its time and never twice in one turn.
  order.clear();
  first.expired = [&](Timer& timer) {
    order += "1";
    second.Remove();
    third.SetTimeout(60'000);
    timer.SetTimeout(0);
  };
  for (Timer* timer : {&first, &second, &third}) timer->SetTimeout(0);
  Loop().Process(0);
  ExpectEqual(order, "1", "after one turn");
  Loop().Process(0);
  ExpectEqual(order, "11", "after two turns");
  first.SetTimeout(-1);
  Loop().Process(0);
  ExpectEqual(order, "11", "with nothing armed");

  // A period counts from the due time: three periods late means three calls, turn by turn.
  int calls = 0;
  Timer periodic([&](Timer& timer) {
    ++calls;
    timer.Extend(20);
  });
  periodic.SetTimeout(20);
  usleep(70'000);
  for (int i = 0; i < 3; ++i) Loop().Process(0);
  ExpectEqual(calls, 3, "calls of a timer that is three periods late");
  periodic.Remove();

  // The poll sleeps until the next timer, but not for unarmed ones.
  order = "1";
  first.expired = [&](Timer&) { order.clear(); };
  const double waited = Seconds([&] {
    first.SetTimeout(30);
    while (order == "1") Loop().Process(10'000);
  });
  ExpectTrue(waited >= 0.03 && waited < 5, "waiting for the timer");
}

void DescriptorCases() {
  std::string log;
  Item a("a", log);
  Item b("b", log);
  for (Item* item : {&a, &b}) item->MakeReadable();
  a.act = [&] {
    b.Remove();
    close(b.ends[0]);
    b.ends[0] = -1;
  };
  Loop().Process(0);
  ExpectEqual(log, "ar", "an item closed in the pass");

  // What is ready goes to the item that has the descriptor when its turn comes.
  {
    Item old("o", log);
    Item heir("h", log);
    log.clear();
    old.MakeReadable();
    a.act = [&] { std::swap(old.ends, heir.ends); };
    Loop().Process(0);
    ExpectEqual(log, "arhr", "an item that has taken over a descriptor");
  }

  // A peer that wrote and went away leaves data and a hang-up.
  log.clear();
  Item c("c", log);
  a.Remove();
  c.SetEvents(POLLIN | POLLOUT);
  c.MakeReadable();
  close(c.ends[1]);
  c.ends[1] = -1;
  Loop().Process(0);
  ExpectEqual(log, "crcwch", "order of one item's events");
  log.clear();
  c.act = [&] { c.Remove(); };
  Loop().Process(0);
  ExpectEqual(log, "cr", "an item that removes itself");
  c.Add();
  c.SetEvents(0);
  Loop().Process(0);
  ExpectEqual(log, "cr", "an item without events");
}

void IdleCases() {
  Idler once(1);
  Idler thrice(3);
  Settle();
  const auto passes = [&] { return std::to_string(once.passes) + std::to_string(thrice.passes); };
  ExpectEqual(passes(), "13", "idle passes until all are done");
  // The loop blocks now, until something happens; then every handler gets a fresh turn.
  ExpectTrue(Seconds([] { Loop().Process(20); }) >= 0.02, "blocking when all are done");
  ExpectEqual(passes(), "13", "no further passes");
  thrice.passes = 2;
  Timer activity([](Timer&) {});
  activity.SetTimeout(0);
  ExpectTrue(Seconds([] { Loop().Process(10'000); }) < 5, "no blocking after activity");
  ExpectEqual(passes(), "23", "a fresh turn after activity");
}

void SignalCases() {
  std::string order;
  SignalHandler first(SIGUSR2, [&] { order += "1"; });
  SignalHandler second(SIGUSR2, [&] { order += "2"; });
  raise(SIGUSR2);
  raise(SIGUSR2);
  Loop().Process(0);
  ExpectEqual(order, "12", "two deliveries to two handlers");
  first.handle = [&] { second.Remove(); };
  raise(SIGUSR2);
  Loop().Process(0);
  ExpectEqual(order, "12", "a handler that the first one removed");
}

}  // namespace

void TestPollProcessor(std::ostream&) {
  TimerCases();
  DescriptorCases();
  IdleCases();
  SignalCases();
  StreamFileCases();
  SocketCases();
  SocketServerCases();
  BonjourResolverCases();
  BonjourClientCases();
  AvahiPollCases();
  MQTTClientCases();
}
