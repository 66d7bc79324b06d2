// Whatever stands in the system's files, the head's settings go into them, come back as they went
// in, and cost the settings of others nothing.

#include <arpa/inet.h>

#include "bench/bench_instrument.h"
#include "common/system_clock.h"
#include "common/temporary_directory.h"
#include "fuzz/fuzz_target.h"
#include "liborrel/network_config.h"
#include "liborrel/ptp_config.h"

namespace {

using Values = NetworkConfig::Values;

bool Same(const Values& a, const Values& b) {
  return a.host_name == b.host_name && a.dhcp == b.dhcp && a.address == b.address &&
         a.netmask == b.netmask && a.gateway == b.gateway;
}

// Lines without the word that the head writes.
std::string LinesOfOthers(const std::string& text, const std::string& word) {
  std::istringstream in(text);
  std::string others;
  for (std::string line; std::getline(in, line);)
    if (line.find(word) == std::string::npos) others += line + "\n";
  return others;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const TemporaryDirectory files;
  static const Machine machine = [] {
    Machine quiet = BenchMachine(BenchInstrument(files.Path() + "/bench"));
    quiet.take_zone = [] {};
    return quiet;
  }();
  const Quiet quiet;
  const std::string at = files.Path() + "/";
  for (const char* zone : {"UTC", "Europe/Berlin"}) files.Write(std::string("zones/") + zone, "");
  std::vector<std::string> before = Pieces(data, size, 4, '\f');
  before.resize(4);
  const char* const names[] = {"interfaces", "hostname", "ptpd", "timezone"};
  for (int i = 0; i < 4; ++i) files.Write(names[i], before[static_cast<std::size_t>(i)]);

  const auto network = [&](const char* interface) {
    return NetworkConfig(interface, at + "hostname", at + "interfaces", machine);
  };
  const Values others = network("eth1").Get();
  NetworkConfig head = network("eth0");
  Values wanted = head.Get();
  for (const bool dhcp : {!wanted.dhcp, wanted.dhcp}) {
    wanted.dhcp = dhcp;
    wanted.host_name = "head-" + std::to_string(size);
    wanted.address = SocketAddress(size % 2 == 0 ? "10.1.2.3" : "192.168.1.95");
    head.set(wanted);
    Check(Same(network("eth0").Get(), wanted));
  }
  Values others_after = network("eth1").Get();
  others_after.host_name = others.host_name;
  Check(Same(others_after, others));
  // A second rewrite finds nothing to change.
  const std::string once = files.Read("interfaces");
  wanted.dhcp = !wanted.dhcp;
  head.set(wanted);
  wanted.dhcp = !wanted.dhcp;
  head.set(wanted);
  Check(files.Read("interfaces") == once);

  const auto ptp = [&] { return PtpConfig(at + "ptpd", at + "script", machine); };
  for (const int mode : {PtpConfig::kSlaveOnly, PtpConfig::kAuto, PtpConfig::kPreferred}) {
    ptp().Set(mode);
    Check(ptp().GetMode() == mode);
  }
  Check(LinesOfOthers(files.Read("ptpd"), "PTPD_OPTS") == LinesOfOthers(before[2], "PTPD_OPTS"));

  SystemClock clock(at + "zones", at + "localtime", at + "timezone", at + "rtc", machine);
  Check(clock.IsZone(clock.CurrentZone()));
  clock.SetZone("Europe/Berlin");
  Check(SystemClock(at + "zones", at + "localtime", at + "timezone", at + "rtc", machine)
            .CurrentZone() == "Europe/Berlin");
  return 0;
}
