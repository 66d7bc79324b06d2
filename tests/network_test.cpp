// The head among other machines: service discovery with real daemons, a broker elsewhere, and the
// kernel's routes. The machines are namespaces of this one.

#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "bench/broker.h"
#include "bench/head.h"
#include "bench/network_host.h"
#include "client/bus.h"
#include "client/console.h"

namespace {

using Clock = std::chrono::steady_clock;

class Network : public testing::Test {
 protected:
  void SetUp() override {
    if (!NetworkHost::CanBeMade())
      GTEST_SKIP() << "this user may make no namespaces, in which the other machines would be";
  }
};

// Finds the service in the output of avahi-browse -p: "=;eth0;IPv6;name;type;...".
std::string Browse(const NetworkHost& host, const std::string& type, const std::string& protocol) {
  const auto browser = host.Start({"avahi-browse", "-rp", type});
  const std::string start = "=;eth0;" + protocol + ";";
  const std::string said = browser->WaitForOutput(start);
  const std::string& whole = browser->WaitForOutput("\n", said.find(start));
  const std::size_t at = whole.find(start);
  return whole.substr(at, whole.find('\n', at) - at);
}

void ExpectRecord(NetworkHost& other, int port) {
  const std::string record = Browse(other, "_nemra-tavo._tcp", "IPv6");
  EXPECT_TRUE(record.starts_with("=;eth0;IPv6;head;_nemra-tavo._tcp;local;head.local;fe80::a;" +
                                 std::to_string(port) + ";"))
      << record;
  for (const char* text : {"\"company=Nemra Sciences\"", "\"dsp=bench-1.0\"", "\"fpga=bench-1.0\"",
                           "\"macaddress=", "\"model=TAVO\"", "\"sn=TVF-XXXX\"",
                           "\"type=Fluorometer System\"", "\"ver=1.3.1\""})
    EXPECT_NE(record.find(text), std::string::npos) << record;
}

TEST_F(Network, HeadFindsTheBrokerOfItsConsoleUnit) {
  const TemporaryDirectory root;
  NetworkHost a("head");
  NetworkHost b("unit");
  NetworkHost::Join(a, b);
  a.StartDiscovery();
  b.StartDiscovery();
  const Broker own_broker(root.Path() + "/own", 1883, a.Wrapper());
  const Broker broker(root.Path() + "/broker", 1883, b.Wrapper());
  Head head(root.Path(), Head::PlayedBy::kSimulator,
            {.wrapper = a.Wrapper(),
             .bench = {"--broker", "[::1]:1883", "--discovery", "--rate", "200"}});
  const auto client = [&] {
    const NetworkHost::Visit visit(a);
    return std::make_unique<ConsoleClient>(head.Port());
  }();
  EXPECT_EQ(client->Get("ipaddress").text, "10.99.0.10");

  // Others see its record.
  ExpectRecord(b, head.Port());

  // Content with the broker on its own machine, it finds its unit, and moves at once. But what is
  // sent to the unit vanishes, so its broker is as good as gone; samples don't wait for it.
  std::size_t from = head.WaitForLog("MQTT Connected\n").size();
  a.Run("ip -6 neigh replace fe80::b dev eth0 nud permanent lladdr 02:00:00:00:00:99");
  const auto stranger =
      b.Start({"avahi-publish", "-s", "Stranger", "_nemra-kesh._tcp", "1884", "chamber=TVF-0001"});
  const auto unit =
      b.Start({"avahi-publish", "-s", "Unit", "_nemra-kesh._tcp", "1883", "chamber=tvf-xxxx"});
  const std::string failure =
      "Unable to connect to MQTT broker fe80::b%eth0: Unable to connect: "
      "MQTTClient: Connection timed out\n";
  const auto gap = LongestGap(*client, [&, deadline = Clock::now() + kDeadline](auto&) {
    if (Clock::now() > deadline) throw std::runtime_error("the head does not look for its unit");
    return head.HasLogged(failure);
  });
  std::cout << "longest gap between rows, with an unreachable broker: " << gap.count() << " ms\n";
  EXPECT_LT(gap, kLongestGap);

  // The way is there again.
  a.Run("ip -6 neigh del fe80::b dev eth0");
  from = head.WaitForLog("MQTT Connected\n", from).size();
  const auto bus = [&] {
    const NetworkHost::Visit visit(b);
    return std::make_unique<BusClient>(BusOptions{});
  }();
  bus->WaitForHead();
  bus->WaitFor(bus_topic::kData);

  // Discovery that restarts costs nothing, and finds the head at its next announcement.
  a.StopDiscovery();
  a.StartDiscovery();
  kill(head.Pid(), SIGUSR1);
  EXPECT_TRUE(Browse(b, "_nemra-tavo._tcp", "IPv4").starts_with("=;eth0;IPv4;head;"));
  EXPECT_EQ(head.Stop(), 0);
  EXPECT_EQ(bus->WaitFor("nemra/ROLES/deactivate/tavo").payload, "head");
  EXPECT_EQ(head.WaitForLog("").find("MQTT Disconnected", from), std::string::npos);
}

TEST_F(Network, ZeroRoutesAreRemovedAndOthersStay) {
  const TemporaryDirectory root;
  NetworkHost a("head");
  NetworkHost b("unit");
  NetworkHost::Join(a, b);
  a.Run("ip route add default dev eth0 metric 2048");
  Head head(root.Path(), Head::PlayedBy::kCaller, {.wrapper = a.Wrapper(), .bench = {"--routes"}});
  head.WaitForLog("Deleting IPv4 zero route with metric: 2048\n");
  EXPECT_EQ(a.Run("ip route show default"), "");

  a.Run(
      "ip route add default via 10.99.0.11 metric 50 && ip route add 10.98.0.0/16 dev eth0 "
      "metric 60 && ip route add default dev eth0 metric 70 table 7 && "
      "ip route add default dev eth0 && "
      "ip route add default dev eth0 metric 4000 && "
      "ip route add default metric 80 nexthop via 10.99.0.11 dev eth0 nexthop dev eth0 && "
      "ip -4 route add default via inet6 fe80::b dev eth0 metric 90 && "
      "ip route add unreachable default metric 100 && ip route add blackhole default metric 110");
  head.WaitForLog("Deleting IPv4 zero route with metric: 4000\n");
  EXPECT_EQ(a.Run("ip route show table all default | grep -v '^default.*proto kernel'"),
            "default dev eth0 table 7 scope link metric 70 \ndefault dev eth0 scope link \n"
            "default via 10.99.0.11 dev eth0 metric 50 \ndefault metric 80 \n"
            "\tnexthop via 10.99.0.11 dev eth0 weight 1 \n\tnexthop dev eth0 weight 1 \n"
            "default via inet6 fe80::b dev eth0 metric 90 \nunreachable default metric 100 \n"
            "blackhole default metric 110 \n");
  EXPECT_EQ(head.Stop(), 0);
}

}  // namespace
