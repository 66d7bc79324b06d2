#include "tests/soak_subject.h"

#include <sys/time.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <stdexcept>
#include <thread>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kBetweenLooks(50);
constexpr seconds kPatience(30);
// What may stay of an attack.
constexpr double kMayStay = 8;

// Short events, so that a client gets all rows of them on any machine: an induction comes at
// 250 kHz, and this many rows find room on their way.
std::string StartSettings(int rate) {
  const std::string hz = "<outrate>" + std::to_string(std::max(rate, 1000)) + "</outrate>";
  return "<cfg>"
         "<rectflash>" +
         hz +
         "<duration>200</duration></rectflash>"
         "<multiphaseflash>" +
         hz +
         "<phase1_duration>100</phase1_duration>"
         "<phase2_duration>100</phase2_duration><phase3_duration>100</phase3_duration>"
         "</multiphaseflash>"
         "<inductionflash><margin>0</margin><duration>40</duration></inductionflash>"
         "<darkpulse><outrate>1000</outrate><duration>1</duration><before>0</before>"
         "<after>1</after></darkpulse></cfg>";
}

void WriteAtOnce(const std::string& path, const std::string& text) {
  WriteFile(path + ".new", text);
  std::filesystem::rename(path + ".new", path);
}

}  // namespace

SoakSubject::SoakSubject(const Options& options, SoakReport& report)
    : report(report), random(options.seed), options(options) {
  StartBroker();
  StartHead();
  Send(StartSettings(options.rate));
  SetProcessor("");
  row_witness = std::make_unique<RowWitness>(Port(), excuses, report);
  bus_witness = std::make_unique<BusWitness>(BrokerPort(), report);
  excuses.bus = true;
  Recover();
}

void SoakSubject::StartBroker() {
  broker = std::make_unique<Broker>(outside.Path() + "/broker", broker_port);
}

void SoakSubject::StartHead() {
  HeadOptions how = {.bench = {"--broker", "[::1]:" + std::to_string(broker_port), "--rate",
                               std::to_string(options.rate), "--speed", options.speed, "--seed",
                               std::to_string(options.seed)}};
  if (!kWithAddressSanitizer)
    how.wrapper = {"env", "LD_PRELOAD=" DISK_LAYER, "DISK_ROOT=" + root.Path() + "/",
                   "DISK_STATE=" + outside.Path() + "/disk"};
  head = std::make_unique<Head>(root.Path(), Head::PlayedBy::kSimulator, how);
}

void SoakSubject::SetProcessor(const std::string& faults) {
  WriteAtOnce(root.Path() + "/environment",
              "count " + std::to_string(options.count_every) + "\n" + faults);
}

void SoakSubject::SetDisk(const std::string& state) {
  WriteAtOnce(outside.Path() + "/disk", state);
  disk_is_bad = state == "full" || state == "readonly";
}

void SoakSubject::Send(const std::string& inside) const {
  LineClient client(Port());
  client.Send("<nemra><tavo>" + inside + "</tavo></nemra>\n");
  client.ReadLineThatBegins("<nemra><tavo><ack>true");
}

void SoakSubject::SetByConsole() {
  const std::string duty = std::to_string(random() % 101);
  const std::string setpoint = std::to_string(random() % 2000);
  Send("<cfg><fan_duty>" + duty + "</fan_duty><lightsource><Q_setpoint>" + setpoint +
       "</Q_setpoint></lightsource></cfg>");
  acknowledged["fan_duty"] = duty;
  acknowledged["Q_setpoint"] = setpoint;
  if (!disk_is_bad) CheckFile({});
}

void SoakSubject::SetByBus() {
  const std::string value = std::to_string(random() % 20'000 + 1);
  BusClient bus({.port = broker_port, .topics = {bus_topic::kChanges}});
  bus.Set("cfg/fan_freq", value);
  bus.WaitFor(bus_topic::kChanges, [&](const BusMessage& message) {
    return message.payload.find("<fan_freq>" + value + "<") != std::string::npos;
  });
  acknowledged["fan_freq"] = value;
  // The bus has no answers that could wait for the disk.
  if (!disk_is_bad) CheckFile(seconds(2));
}

void SoakSubject::CheckFile(milliseconds patience) {
  const auto deadline = SoakClock::now() + patience;
  const std::string path = root.Path() + "/etc/tavo.conf";
  for (const auto& [name, value] : acknowledged) {
    const std::string wanted = "<" + name + ">" + value + "<";
    const auto is_there = [&] { return ReadFile(path).find(wanted) != std::string::npos; };
    bool found = is_there();
    for (; !found && SoakClock::now() < deadline; found = is_there())
      std::this_thread::sleep_for(kBetweenLooks);
    if (!found) report.Fail(wanted + " was acknowledged, and is not in the file");
    if (found) report.Checked(&SoakReport::Line::settings);
  }
}

void SoakSubject::StartEvent(const std::string& command) const {
  Send("<cmd><" + command + ">true</" + command + "></cmd>");
}

void SoakSubject::StartNextEvent() {
  constexpr std::array kEvents = {"rect", "mpf", "induction", "dark", "zero_dc0", "zero_pc0"};
  StartEvent(kEvents[next_event++ % kEvents.size()]);
}

void SoakSubject::JudgeEvents() {
  for (SeenEvent& event : row_witness->TakeEvents())
    if (event.is_whole && !excuses.bus) unjudged.push_back(event);
  std::erase_if(unjudged, [&](const SeenEvent& event) {
    const bool has_record = bus_witness->HasRecordOf(event);
    const bool is_late = SoakClock::now() - event.seen > kPatience / 2;
    if (has_record)
      report.Checked(&SoakReport::Line::events);
    else if (is_late)
      report.Fail("an event of " + std::to_string(event.samples) +
                  " samples has no record of so many");
    return has_record || is_late;
  });
}

double SoakSubject::Mebibytes() const { return static_cast<double>(head->Status("VmRSS")) / 1024; }

std::size_t SoakSubject::Descriptors() const {
  const std::filesystem::directory_iterator all("/proc/" + std::to_string(head->Pid()) + "/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

void SoakSubject::Look() {
  if (interrupted != 0) throw std::runtime_error("interrupted");
  // Its log is to be read.
  head->HasLogged("");
  const double mebibytes = Mebibytes();
  report.Saw(&SoakReport::Line::mebibytes, mebibytes);
  report.Saw(&SoakReport::Line::descriptors, Descriptors());
  if (mebibytes > kMostMebibytes)
    report.Fail("the head uses " + std::to_string(mebibytes) + " MiB of " +
                std::to_string(kMostMebibytes));
  JudgeEvents();
}

void SoakSubject::Work(milliseconds time) {
  constexpr milliseconds kBetweenEvents(700);
  constexpr milliseconds kBetweenSets(200);
  const auto end = SoakClock::now() + time;
  do {
    Look();
    const auto is_due = [](Moment& moment, milliseconds period) {
      if (SoakClock::now() < moment) return false;
      moment = SoakClock::now() + period;
      return true;
    };
    if (is_due(next_console_at, kBetweenSets)) SetByConsole();
    if (!excuses.bus && is_due(next_bus_at, 3 * kBetweenSets)) SetByBus();
    const bool starts_events = options.speed == "1" && !row_witness->IsInEvent();
    if (starts_events && is_due(next_event_at, kBetweenEvents)) StartNextEvent();
    std::this_thread::sleep_for(kBetweenLooks);
  } while (SoakClock::now() < end);
}

bool SoakSubject::WorkUntil(const std::string& awaited, const std::function<bool()>& done) {
  const auto deadline = SoakClock::now() + kPatience;
  while (!done()) {
    if (SoakClock::now() > deadline) {
      report.Fail("waited in vain for " + awaited);
      return false;
    }
    Work({});
  }
  return true;
}

void SoakSubject::Recover() {
  if (excuses.bus) {
    // What is retained says nothing of now; these are half a second apart.
    BusClient bus({.port = broker_port, .topics = {bus_topic::kData}, .timeout = kPatience});
    for (int i = 0; i < 4; ++i) bus.WaitFor(bus_topic::kData);
    WorkUntil("the bus", [&] { return bus_witness->IsConnected(); });
  }
  // What was under way is judged no more.
  constexpr double kBehind = 1.5;
  WorkUntil("the samples of now", [&] {
    struct timeval now = {};
    gettimeofday(&now, nullptr);
    const double late = static_cast<double>(now.tv_sec) - row_witness->Time();
    return options.speed != "1" || (late < kBehind && !row_witness->IsInEvent());
  });
  excuses.rows = excuses.bus = false;
  const std::uint64_t before = row_witness->TimesCounted();
  WorkUntil("rows in their full number", [&] { return row_witness->TimesCounted() > before; });
}

void SoakSubject::CompareUse() {
  if (usual_descriptors == 0) {
    usual_mebibytes = Mebibytes();
    usual_descriptors = Descriptors();
  }
  const bool is_back = WorkUntil("the head to use no more than before", [&] {
    return Mebibytes() <= usual_mebibytes + kMayStay && Descriptors() <= usual_descriptors;
  });
  if (!is_back)
    report.Fail("it uses " + std::to_string(Mebibytes()) + " MiB and " +
                std::to_string(Descriptors()) + " open files; after the warm-up it was " +
                std::to_string(usual_mebibytes) + " and " + std::to_string(usual_descriptors));
}

void SoakSubject::End() {
  report.Begin("an ordinary end");
  WorkUntil("the records of all events", [&] { return unjudged.empty(); });
  bus_witness.reset();
  row_witness.reset();
  const int status = head->Stop(SIGTERM);
  if (status != 0) report.Fail("its exit status is " + std::to_string(status));
  CheckFile({});

  // What is acknowledged stays, whatever ends the head in the next moment.
  constexpr int kCuts = 5;
  for (int i = 0; i < kCuts; ++i) {
    report.Begin("killed after an answer");
    StartHead();
    SetByConsole();
    head->Stop(SIGKILL);
    CheckFile({});
  }
  StartHead();
  ConsoleClient client(Port());
  for (const char* path : {"cfg/fan_duty", "cfg/fan_freq", "cfg/lightsource/Q_setpoint"}) {
    const Element element = client.Get(path);
    if (element.text != acknowledged[element.name])
      report.Fail(element.name + " was " + acknowledged[element.name] + " and is " + element.text);
  }
  head->Stop();
}
