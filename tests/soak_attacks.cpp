#include "tests/soak_attacks.h"

#include <sys/socket.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <list>

#include "common/socket.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// The simulated processor has looked at its file, and the head has heard of it.
constexpr milliseconds kFileIsSeen(500);
constexpr int kSmallBuffer = 4096;  // of those that are not to take much
const std::string kQuery = "<nemra><tavo>&query;</tavo></nemra>\n";

std::string Repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

// What a stranger sends comes as far as the head lets it.
void Try(LineClient& stranger, std::string_view text) {
  try {
    stranger.SetWaitLimit(seconds(2));
    stranger.Send(text);
  } catch (const ClientError&) {
    // It is the head that decides.
  }
}

std::string Noise(SoakSubject& subject, std::size_t size) {
  std::string noise(size, '\0');
  for (char& byte : noise) byte = static_cast<char>(subject.random());
  return noise;
}

void ClientsComeAndGo(SoakSubject& subject) {
  for (int turn = 0; turn < 3; ++turn) {
    std::list<LineClient> clients;
    for (int i = 0; i < 100; ++i) {
      clients.emplace_back(subject.Port());
      if (i % 2 == 0) clients.back().ReadLineThatBegins("DATAH");
      if (i % 3 == 0) clients.pop_front();
    }
    subject.Work(subject.Some() / 4);
  }
}

void ClientsStall(SoakSubject& subject) {
  std::list<LineClient> clients;
  for (int i = 0; i < 20; ++i)
    Try(clients.emplace_back(subject.Port(), "::1", kDefaultTimeout, kSmallBuffer),
        Repeated(kQuery, 20));
  subject.Work(subject.Some());
}

void ClientsFlood(SoakSubject& subject) {
  std::list<LineClient> clients;
  for (int i = 0; i < 13; ++i)
    Try(clients.emplace_back(subject.Port(), "::1", kDefaultTimeout, kSmallBuffer),
        Repeated("r 1\n", 1000) + Repeated(kQuery, 30));
  std::list<ConsoleClient> watchers;
  for (int i = 0; i < 5; ++i) watchers.emplace_back(subject.Port()).Watch("");
  subject.Work(subject.Some());
}

// More than a head keeps for anybody: answers, standing queries, and records of zeros.
void ClientsAskTooMuch(SoakSubject& subject) {
  constexpr int kOfALine = 500'000;  // nearly as many as a line may hold
  const auto in_tavo = [](const std::string& inside) {
    return "<nemra><tavo>" + inside + "</tavo></nemra>\n";
  };
  std::list<LineClient> clients;
  for (const std::string& text :
       {in_tavo(Repeated("&query;", kOfALine)), in_tavo(Repeated("&query;", kOfALine)),
        Repeated(in_tavo("&query_changes;" + std::string(10 << 10, ' ')), 200),
        in_tavo("<history>" + Repeated("<r/>", kOfALine) + "</history>")}) {
    Try(clients.emplace_back(subject.Port(), "::1", kDefaultTimeout, kSmallBuffer), text);
    subject.Work({});
  }
  subject.Work(subject.Some());
}

void ClientsCloseHalf(SoakSubject& subject) {
  std::list<LineClient> clients;
  for (int i = 0; i < 50; ++i) {
    Try(clients.emplace_back(subject.Port()), kQuery);
    shutdown(clients.back().Descriptor(), SHUT_WR);
  }
  subject.Work(subject.Some());
}

void ClientsSendGarbage(SoakSubject& subject) {
  std::list<LineClient> clients;
  for (int i = 0; i < 10; ++i)
    Try(clients.emplace_back(subject.Port()), Noise(subject, 64 << 10) + "\n" + kQuery);
  // Lines that do not end: some too many of them, and one that is too long.
  for (int i = 0; i < 18; ++i) {
    Try(clients.emplace_back(subject.Port()), std::string(1 << 20, 'x'));
    subject.Work({});
  }
  Try(clients.emplace_back(subject.Port()), std::string(5 << 20, '<'));
  subject.Work(subject.Some());
}

void BrokerRestarts(SoakSubject& subject) {
  subject.excuses.bus = true;
  subject.TheBroker().Process().Stop(SIGKILL);
  subject.Work(subject.Some() / 2);
  subject.StartBroker();
}

void BrokerStalls(SoakSubject& subject) {
  subject.excuses.bus = true;
  kill(subject.TheBroker().Process().Pid(), SIGSTOP);
  subject.Work(subject.Some());
  kill(subject.TheBroker().Process().Pid(), SIGCONT);
}

// Nobody takes connections from the queue, and it is full.
void BrokerIsFull(SoakSubject& subject) {
  subject.excuses.bus = true;
  subject.TheBroker().Process().Stop(SIGKILL);
  {
    SocketAddress place("::1");
    place.SetPort(subject.BrokerPort());
    Socket listener(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    listener.Bind(place);
    listen(listener.GetFD(), 1);
    std::list<Socket> queue;
    for (int i = 0; i < 4; ++i) {
      Socket& next = queue.emplace_back(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
      // Each of these only begins.
      static_cast<void>(connect(next.GetFD(), place.Raw(), place.Length()));
    }
    subject.Work(2 * subject.Some());
  }
  subject.StartBroker();
}

void BusCarriesGarbage(SoakSubject& subject) {
  // A message that is too long may cost the head its connection.
  subject.excuses.bus = true;
  BusClient bus({.port = subject.BrokerPort(), .topics = {}});
  for (const std::string& topic :
       {bus_topic::kUpdate, std::string("nemra/kesh/scripts/power/constants/update")}) {
    for (int i = 0; i < 20; ++i) bus.Publish(topic, Noise(subject, 1 << 10));
    bus.Publish(topic, std::string(8 << 20, '<'));
    bus.Publish(topic, "<nemra><tavo><cfg>");
  }
  subject.Work(subject.Some());
}

void SensorsVanish(SoakSubject& subject) {
  const std::string place = subject.Path() + "/sys/bus/i2c/devices";
  std::filesystem::rename(place, place + ".gone");
  subject.Work(subject.Some());
  std::filesystem::rename(place + ".gone", place);
}

void ProcessorIsSilent(SoakSubject& subject) {
  subject.excuses.rows = true;
  subject.SetProcessor("silent 1\n");
  subject.Work(subject.Some());
  subject.SetProcessor("");
  subject.Work(kFileIsSeen);
}

void ProcessorResets(SoakSubject& subject) {
  static int resets = 0;
  subject.excuses.rows = true;
  for (int i = 0; i < 3; ++i) {
    subject.SetProcessor("resets " + std::to_string(++resets % 2) + "\n");
    subject.Work(kFileIsSeen);
  }
  subject.SetProcessor("");
  subject.Work(kFileIsSeen);
}

void ProcessorIsDamaged(SoakSubject& subject) {
  subject.excuses.rows = true;
  subject.SetProcessor("damage 0.3\n");
  subject.Work(subject.Some());
  subject.SetProcessor("");
  // The time of the samples is found again with the next full second.
  subject.Work(seconds(2));
}

void DiskIsSlow(SoakSubject& subject) {
  subject.SetDisk("slow 200");
  subject.Work(subject.Some());
  subject.SetDisk("");
}

// What can't be saved is tried again every ten seconds.
void DiskTakesNothing(SoakSubject& subject, const char* state, const char* reason) {
  if (kWithAddressSanitizer) return;  // which admits no layer
  subject.SetDisk(state);
  subject.Work(subject.Some());
  if (!subject.HasLogged(reason)) subject.report.Fail("the disk was well");
  subject.SetDisk("");
  subject.CheckFile(seconds(15));
}
void DiskIsFull(SoakSubject& subject) {
  DiskTakesNothing(subject, "full", "No space left on device");
}
void DiskIsReadOnly(SoakSubject& subject) {
  DiskTakesNothing(subject, "readonly", "Unable to open: ");
}

// An induction at the full rate of the processor, faster than most clients read rows.
void FullRate(SoakSubject& subject) {
  constexpr std::size_t kSamples = 250'000;
  const auto set_duration = [&](const char* ms) {
    subject.Send("<cfg><inductionflash><duration>" + std::string(ms) +
                 "</duration></inductionflash></cfg>");
  };
  subject.WorkUntil("the end of an event", [&] { return !subject.Rows().IsInEvent(); });
  subject.excuses.rows = true;
  subject.most_mebibytes = 160;
  set_duration("1000");
  subject.TakeLongestEvent();
  subject.StartEvent("induction");
  std::size_t longest = 0;
  const auto end = SoakClock::now() + seconds(30);
  for (; longest < kSamples && SoakClock::now() < end; subject.Look())
    longest = std::max(longest, subject.TakeLongestEvent());
  if (longest == kSamples)
    subject.report.Checked(&SoakReport::Line::events);
  else
    subject.report.Fail("the longest record has " + std::to_string(longest) + " samples of " +
                        std::to_string(kSamples));
  set_duration("40");
  subject.most_mebibytes = 64;
}

}  // namespace

const std::vector<SoakAttack>& SoakAttacks() {
  static const std::vector<SoakAttack> attacks = {
      {"clients come and go", ClientsComeAndGo}, {"clients stall", ClientsStall},
      {"clients flood", ClientsFlood},           {"clients ask too much", ClientsAskTooMuch},
      {"clients close half", ClientsCloseHalf},  {"clients send garbage", ClientsSendGarbage},
      {"the broker restarts", BrokerRestarts},   {"the broker stalls", BrokerStalls},
      {"the broker is full", BrokerIsFull},      {"the bus carries garbage", BusCarriesGarbage},
      {"sensors vanish", SensorsVanish},         {"the processor is silent", ProcessorIsSilent},
      {"the processor resets", ProcessorResets}, {"its records are damaged", ProcessorIsDamaged},
      {"the disk is slow", DiskIsSlow},          {"the disk is full", DiskIsFull},
      {"the disk is read-only", DiskIsReadOnly}, {"induction at full rate", FullRate},
  };
  return attacks;
}
