// As whom the daemon does what: the daemon itself, as root on a machine of its own, on the layer of
// rights_layer.cpp, which writes down each call as "USER CALL WHAT". What changes the machine is
// done with root's rights, and everything else, at all times, as the account; also after each of
// these acts has failed.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>

#include "bench/head.h"
#include "bench/network_host.h"
#include "client/console.h"

namespace {

const std::string kAccount = "4711";

// Puts a machine's files below `$0` in the place of this one's, as far as the daemon writes to
// them; the processor's device is `$1`.
constexpr const char* kSetUp = R"(
for directory in network sysconfig rc.d/init.d; do mkdir -p "$0/etc/$directory"; done
mkdir "$0/dev" "$0/log"
printf 'root:x:0:0::/:/bin/sh\nnemra:x:4711:4711::/:/bin/sh\n' > "$0/etc/passwd"
cp /etc/ld.so.cache "$0/etc"
echo head > "$0/etc/hostname"
printf '#!/bin/sh\nexit 0\n' > "$0/etc/rc.d/init.d/ptpd"
chmod 755 "$0/etc/rc.d/init.d/ptpd"
chown 4711 "$0/log"
touch "$0/dev/null" "$0/dev/rtc0" "$0/dev/dsporrel"
mount --bind /dev/null "$0/dev/null"
mount --bind "$1" "$0/dev/dsporrel"
mount --bind "$0/etc" /etc
mount --bind "$0/log" /var/log
mount --rbind "$0/dev" /dev
mount -t tmpfs tmpfs /sys
mkdir -p /sys/bus/i2c/devices/i2c-1
)";

class Rights : public testing::Test {
 protected:
  void SetUp() override {
    if (kWithAddressSanitizer)
      GTEST_SKIP() << "no layer can be loaded ahead of AddressSanitizer's own";
    if (geteuid() != 0 || !NetworkHost::CanBeMade())
      GTEST_SKIP() << "this user may make no namespaces, in which the machine would be";
  }
};

// The processor's device is a terminal, whose other end this program holds.
struct Link {
  Link() {
    device.Open(path, O_RDWR | O_NOCTTY);
    ChildProcess({"stty", "-F", path, "raw", "-echo"}).Wait();
    end.SetNonBlocking();
  }
  // Half a second of samples each, as the head takes them for a zero.
  void SendZeros() {
    RecordWriter records;
    WireSample sample;
    sample.dc = ++dc;
    sample.code = 3;
    for (int i = 0; i < 6; ++i) {
      sample.tick = tick += 500'000;
      records.Sample(StampNow(), sample);
    }
    for (const auto& packet : records.packets)
      end.Write(packet.data(), static_cast<unsigned>(packet.size()));
    // What the head has sent must not fill the terminal.
    std::array<char, 65536> commands;
    while (read(end.GetFD(), commands.data(), commands.size()) > 0) {
    }
  }

  static std::string NameOfOther(int end) {
    grantpt(end);
    unlockpt(end);
    return ptsname(end);
  }

  StreamFile end{posix_openpt(O_RDWR | O_NOCTTY)};
  StreamFile device;
  const std::string path = NameOfOther(end.GetFD());
  float dc = 100;
  std::uint32_t tick = 0;
};

// A daemon that is given everything to do that needs rights.
class Daemon {
 public:
  Daemon() : host("head") {
    WriteFile(Path("fault"), "none 0 ");
    // What failed half way must not run on this machine's own files.
    if (host.Start({"sh", "-euc", kSetUp, Path("machine"), link.path})->Wait() != 0)
      throw std::runtime_error("unable to set a machine up");
    // Without the capability, not even a layer that fails to load would let it set the clock.
    std::vector<std::string> words = host.Wrapper();
    for (const std::string& word :
         {std::string("setpriv"), std::string("--bounding-set=-sys_time,-sys_boot"),
          std::string("env"), std::string("LD_PRELOAD=" RIGHTS_LAYER),
          "RIGHTS_JOURNAL=" + Path("journal"), "RIGHTS_FAULT=" + Path("fault"),
          std::string(LUMET_DAEMON)})
      words.push_back(word);
    process = std::make_unique<ChildProcess>(words);
    process->WaitForOutput("Unable to connect to MQTT broker");
    const NetworkHost::Visit visit(host);
    client = std::make_unique<ConsoleClient>(LineClient::kConsolePort);
  }

  // All acts that need rights, of which `call` fails with `error_number`.
  void Work(const std::string& call, int error_number) {
    SCOPED_TRACE(call + " " + std::to_string(error_number));
    const std::string number = std::to_string(++round);
    SetFault(call + " " + std::to_string(error_number));
    const auto ask = [&](const std::string& branch, const std::string& inside) {
      try {
        client->Request(SettingsDocument(branch, inside));
      } catch (const ClientError& error) {
        // That it refuses is an answer too; that it is gone is told at the end.
        if (call == "none") throw;
      }
    };
    ask("cfg", "<fan_duty>" + number + "</fan_duty>");
    ask("factory", "<serialnumber>TVF-" + number + "</serialnumber>");
    ask("cfg", "<network><name>head-" + number + "</name><gateway>10.0.0." + number +
                   "</gateway></network>");
    ask("cfg",
        std::string("<clock><zone>Etc/GMT") + (round % 2 == 0 ? "+1" : "-1") + "</zone></clock>");
    ask("cfg", "<clock><time_t>" + number + "</time_t></clock>");
    ask("cfg",
        std::string("<clock><ptp>") + (round % 2 == 0 ? "auto" : "preferred") + "</ptp></clock>");
    ask("cmd", "<zero_dc0>true</zero_dc0>");
    link.SendZeros();
    said = process->WaitForOutput("new DC0=", said).size();
    if (call == "raise" || call == "none") {
      host.Run("ip route add default dev lo metric " + number);
      said = process->WaitForOutput("zero route with metric: " + number + "\n", said).size();
      ask("cfg", "<fan_duty>&query;</fan_duty>");
    }
    SetFault("none 0 ");
  }

  int Stop() {
    client.reset();
    return process->Stop();
  }

  std::string Path(const std::string& name) const { return directory.Path() + "/" + name; }

 private:
  // In place, since the daemon holds it open.
  void SetFault(const std::string& text) const { WriteFile(Path("fault"), text); }

  const TemporaryDirectory directory;
  NetworkHost host;
  Link link;
  std::unique_ptr<ChildProcess> process;
  std::unique_ptr<ConsoleClient> client;
  std::size_t said = 0;
  int round = 0;
};

// Whether a call changes what is root's.
bool NeedsRights(const std::string& call, const std::string& what) {
  static const std::set<std::string> acts = {"fchmod",       "fchown",  "rename", "link", "symlink",
                                             "settimeofday", "set_rtc", "system", "route"};
  return acts.contains(call) || (call == "open" && !what.ends_with("/lumet.log")) ||
         (call == "unlink" && what.starts_with("/etc"));
}

TEST_F(Rights, AreRaisedForActsThatNeedThemAndForNothingElse) {
  Daemon daemon;
  daemon.Work("none", 0);
  for (const int error_number : {EROFS, ENOENT, EPERM})
    for (const char* call : {"open", "rename", "symlink"}) daemon.Work(call, error_number);
  for (const char* call : {"fsync", "settimeofday", "set_rtc", "system", "raise"})
    daemon.Work(call, EPERM);
  daemon.Work("none", 0);
  EXPECT_EQ(daemon.Stop(), 0);

  // From the drop of rights at the start to the end, where the process has them back for its files.
  const std::string journal = ReadFile(daemon.Path("journal"));
  const std::size_t begin = journal.find("0 lower " + kAccount + "\n");
  const std::size_t end = journal.rfind(" raise ");
  ASSERT_LT(begin, end);
  std::istringstream lines(journal.substr(begin, journal.rfind('\n', end) - begin));
  std::map<std::string, int> acts;
  std::map<std::string, int> others;
  std::string user;
  std::string call;
  for (std::string what; lines >> user >> call && std::getline(lines >> std::ws, what);) {
    if (call == "lower") {
      EXPECT_EQ(what, kAccount);
    }
    if (call == "lower" || call == "raise") continue;
    const bool needs_rights = NeedsRights(call, what);
    ++(needs_rights ? acts : others)[call];
    // What is read or synced belongs to what is done with it.
    if (call == "look" || call == "fsync") continue;
    EXPECT_EQ(user, needs_rights ? "0" : kAccount) << call << " " << what;
  }
  for (const char* name :
       {"open", "rename", "fchown", "symlink", "settimeofday", "set_rtc", "system", "route"})
    EXPECT_GT(acts[name], 0) << name;
  for (const char* name : {"poll", "send", "recv"}) EXPECT_GT(others[name], 0) << name;
}

}  // namespace
