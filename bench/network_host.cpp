#include "bench/network_host.h"

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

#include <stdexcept>

#include "common/errno_error.h"

namespace {

// Everything under /run is this host's own: the bus and the daemon keep their sockets there.
constexpr const char* kSetUp =
    "mount -t tmpfs tmpfs /run && mkdir /run/dbus /run/avahi-daemon && hostname \"$0\" && "
    "ip link set lo up && echo ready && exec sleep infinity";

}  // namespace

bool NetworkHost::CanBeMade() {
  ChildProcess attempt(
      {"unshare", "--net", "--mount", "--uts", "sh", "-c",
       "mount -t tmpfs tmpfs /run && ip link add veth0 type veth peer name veth1"});
  return attempt.Wait() == 0;
}

NetworkHost::NetworkHost(const std::string& name)
    : keeper({"unshare", "--net", "--mount", "--uts", "sh", "-c", kSetUp, name}) {
  keeper.WaitForOutput("ready");
}

void NetworkHost::Join(NetworkHost& a, NetworkHost& b) {
  a.Run("ip link add eth0 type veth peer name eth0 netns " + std::to_string(b.keeper.Pid()));
  for (const auto& [host, name, number] : {std::tuple{&a, "a", "10"}, {&b, "b", "11"}})
    host->Run(std::string("ip link set eth0 addrgenmode none up && ip addr add fe80::") + name +
              "/64 dev eth0 nodad && ip addr add 10.99.0." + number + "/24 dev eth0");
}

std::vector<std::string> NetworkHost::Wrapper() const {
  return {"nsenter", "-t", std::to_string(keeper.Pid()), "-n", "-m", "-u"};
}

std::unique_ptr<ChildProcess> NetworkHost::Start(const std::vector<std::string>& command) const {
  std::vector<std::string> words = Wrapper();
  words.insert(words.end(), command.begin(), command.end());
  return std::make_unique<ChildProcess>(words);
}

std::string NetworkHost::Run(const std::string& command) const {
  const auto process = Start({"sh", "-c", command});
  if (process->Wait() != 0) throw std::runtime_error("this failed: " + command);
  return process->Output();
}

void NetworkHost::StartDiscovery() {
  if (!bus) {
    bus = Start({"dbus-daemon", "--system", "--nofork", "--nopidfile", "--print-address"});
    bus->WaitForOutput("\n");
  }
  Run("printf '[server]\\nallow-interfaces=eth0\\nenable-dbus=yes\\n' > /run/avahi.conf");
  avahi =
      Start({"sh", "-c",
             "exec avahi-daemon --no-drop-root --no-rlimits --no-chroot -f /run/avahi.conf 2>&1"});
  avahi->WaitForOutput("Server startup complete");
}

void NetworkHost::StopDiscovery() {
  avahi->Stop();
  avahi.reset();
}

NetworkHost::Visit::Visit(const NetworkHost& host)
    : home(open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC)) {
  const std::string there = "/proc/" + std::to_string(host.keeper.Pid()) + "/ns/net";
  const StreamFile away(there, O_RDONLY | O_CLOEXEC);
  if (setns(away.GetFD(), CLONE_NEWNET) != 0) throw ErrnoError("unable to enter " + there);
}

NetworkHost::Visit::~Visit() {
  setns(home, CLONE_NEWNET);
  close(home);
}
