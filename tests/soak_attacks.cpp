#include <sys/socket.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <list>

#include "common/socket.h"
#include "tests/soak_subject.h"

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

std::string Noise(SoakSubject& subject, std::size_t size) {
  std::string noise(size, '\0');
  for (char& byte : noise) byte = static_cast<char>(subject.random());
  return noise;
}

// Clients that send something, as far as the head lets them, and read none of the answers.
struct Strangers {
  explicit Strangers(SoakSubject& subject) : subject(subject) {}
  LineClient& Come(const std::string& text, int count = 1, int receive_buffer = 0) {
    for (int i = 0; i < count; ++i) {
      all.emplace_back(subject.Port(), "::1", kDefaultTimeout, receive_buffer);
      try {
        all.back().SetWaitLimit(seconds(2));
        all.back().Send(text);
      } catch (const ClientError&) {
        // It is the head that decides.
      }
    }
    return all.back();
  }

  SoakSubject& subject;
  std::list<LineClient> all;
};

void ClientsComeAndGo(SoakSubject& subject) {
  for (int turn = 0; turn < 3; ++turn) {
    Strangers strangers(subject);
    for (int i = 0; i < 100; ++i) {
      LineClient& next = strangers.Come("");
      if (i % 2 == 0) next.ReadLineThatBegins("DATAH");
      if (i % 3 == 0) strangers.all.pop_front();
    }
    subject.Work(subject.Some() / 4);
  }
}

// More than a head keeps for anybody: answers, standing queries, and records of zeros.
void ClientsAskTooMuch(SoakSubject& subject) {
  constexpr int kOfALine = 500'000;  // nearly as many as a line may hold
  Strangers strangers(subject);
  for (const auto& [text, times] :
       {std::pair(Repeated("&query;", kOfALine), 1), std::pair(Repeated("&query;", kOfALine), 1),
        std::pair("&query_changes;" + std::string(10 << 10, ' '), 200),
        std::pair("<history>" + Repeated("<r/>", kOfALine) + "</history>", 1)}) {
    strangers.Come(Repeated("<nemra><tavo>" + text + "</tavo></nemra>\n", times), 1, kSmallBuffer);
    subject.Work({});
  }
  subject.Work(subject.Some());
}

void ClientsSendGarbage(SoakSubject& subject) {
  Strangers strangers(subject);
  for (int i = 0; i < 10; ++i) strangers.Come(Noise(subject, 64 << 10) + "\n" + kQuery);
  // Lines that do not end: some too many of them, and one that is too long.
  for (int i = 0; i < 18; ++i) {
    strangers.Come(std::string(1 << 20, 'x'));
    subject.Work({});
  }
  strangers.Come(std::string(5 << 20, '<'));
  subject.Work(subject.Some());
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

void Disturb(SoakSubject& subject, const std::string& faults, milliseconds time) {
  subject.excuses.rows = true;
  subject.SetProcessor(faults);
  subject.Work(time);
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

// An induction at the full rate of the processor, faster than most clients read rows.
void FullRate(SoakSubject& subject) {
  constexpr std::size_t kSamples = 250'000;
  const std::string settings = "<cfg><inductionflash><duration>";
  const std::string end_of_settings = "</duration></inductionflash></cfg>";
  subject.WorkUntil("the end of an event", [&] { return !subject.Rows().IsInEvent(); });
  subject.excuses.rows = true;
  subject.Send(settings + "1000" + end_of_settings);
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
  subject.Send(settings + "40" + end_of_settings);
}

}  // namespace

const std::vector<SoakAttack>& SoakAttacks() {
  using Subject = SoakSubject;
  static const std::vector<SoakAttack> attacks = {
      {"clients come and go", ClientsComeAndGo},
      {"clients stall",
       [](Subject& subject) {
         Strangers strangers(subject);
         strangers.Come(Repeated(kQuery, 20), 20, kSmallBuffer);
         subject.Work(subject.Some());
       }},
      {"clients flood",
       [](Subject& subject) {
         Strangers strangers(subject);
         strangers.Come(Repeated("r 1\n", 1000) + Repeated(kQuery, 30), 13, kSmallBuffer);
         std::list<ConsoleClient> watchers;
         for (int i = 0; i < 5; ++i) watchers.emplace_back(subject.Port()).Watch("");
         subject.Work(subject.Some());
       }},
      {"clients ask too much", ClientsAskTooMuch},
      {"clients close half",
       [](Subject& subject) {
         Strangers strangers(subject);
         for (int i = 0; i < 50; ++i) shutdown(strangers.Come(kQuery).Descriptor(), SHUT_WR);
         subject.Work(subject.Some());
       }},
      {"clients send garbage", ClientsSendGarbage},
      {"the broker restarts",
       [](Subject& subject) {
         subject.excuses.bus = true;
         subject.TheBroker().Process().Stop(SIGKILL);
         subject.Work(subject.Some() / 2);
         subject.StartBroker();
       }},
      {"the broker stalls",
       [](Subject& subject) {
         subject.excuses.bus = true;
         kill(subject.TheBroker().Process().Pid(), SIGSTOP);
         subject.Work(subject.Some());
         kill(subject.TheBroker().Process().Pid(), SIGCONT);
       }},
      {"the broker is full", BrokerIsFull},
      {"the bus carries garbage", BusCarriesGarbage},
      {"sensors vanish",
       [](Subject& subject) {
         const std::string place = subject.Path() + "/sys/bus/i2c/devices";
         std::filesystem::rename(place, place + ".gone");
         subject.Work(subject.Some());
         std::filesystem::rename(place + ".gone", place);
       }},
      {"the processor is silent",
       [](Subject& subject) {
         Disturb(subject, "silent 1\n", subject.Some());
         Disturb(subject, "", kFileIsSeen);
       }},
      {"the processor resets",
       [](Subject& subject) {
         static int resets = 0;
         for (int i = 0; i < 3; ++i)
           Disturb(subject, "resets " + std::to_string(++resets % 2) + "\n", kFileIsSeen);
         Disturb(subject, "", kFileIsSeen);
       }},
      {"its records are damaged",
       [](Subject& subject) {
         Disturb(subject, "damage 0.3\n", subject.Some());
         // The time of the samples is found again with the next full second.
         Disturb(subject, "", seconds(2));
       }},
      {"the disk is slow",
       [](Subject& subject) {
         subject.SetDisk("slow 200");
         subject.Work(subject.Some());
         subject.SetDisk("");
       }},
      {"the disk is full",
       [](Subject& subject) { DiskTakesNothing(subject, "full", "No space left on device"); }},
      {"the disk is read-only",
       [](Subject& subject) { DiskTakesNothing(subject, "readonly", "Unable to open: "); }},
      {"induction at full rate", FullRate},
  };
  return attacks;
}
