#include <sys/stat.h>

#include <filesystem>
#include <utility>

#include "common/errno_error.h"
#include "common/system_clock.h"
#include "common/temporary_directory.h"
#include "common/test_registry.h"
#include "liborrel/network_config.h"
#include "liborrel/ptp_config.h"

namespace {

using namespace self_test;
namespace fs = std::filesystem;

// A host whose files are in a directory of their own, and whose acts are recorded.
struct TestHost {
  TestHost() {
    for (const char* directory : {"/etc/network", "/etc/sysconfig"})
      fs::create_directories(root.Path() + directory);
    for (const char* file : {"zones/UTC", "zones/Europe/Berlin", "zones/Europe/.hidden",
                             "zones/America/Indiana/Knox", "dev/rtc0"})
      root.Write(file, "");
    // Rights are taken and given back in turn, whoever runs this.
    machine.set_effective_user = [this, raised = false](uid_t) mutable {
      raised = !raised;
      acts << (raised ? "(" : ")");
      return 0;
    };
    machine.run_command = [this](const std::string& command) {
      acts << command.substr(root.Path().size());
      return 1;
    };
    machine.set_system_time = [this](const struct timeval& time) {
      acts << time.tv_sec << "." << time.tv_usec;
      return 0;
    };
    machine.set_hardware_clock = [this](int, const struct rtc_time& time) {
      acts << " rtc " << time.tm_hour << ":" << time.tm_min << ":" << time.tm_sec << " day "
           << time.tm_wday << " " << time.tm_yday;
      return 0;
    };
    machine.read_hardware_clock = [](int, struct rtc_time& time) {
      time.tm_sec = 5;
      time.tm_min = 1;
      time.tm_mday = 2;
      time.tm_year = 70;
      return 0;
    };
    machine.take_zone = [this] { acts << "zone"; };
  }
  std::string Acts() { return std::exchange(acts, std::ostringstream()).str(); }
  SystemClock Clock() const { return {zoneinfo, localtime, timezone, device, machine}; }
  PtpConfig Ptp() const { return {ptp_options, ptp_script, machine}; }
  NetworkConfig Network() const { return {"eth0", hostname, interfaces, machine}; }

  const TemporaryDirectory root;
  const std::string localtime = root.Path() + "/etc/localtime";
  const std::string timezone = root.Path() + "/etc/timezone";
  const std::string device = root.Path() + "/dev/rtc0";
  const std::string ptp_options = root.Path() + "/etc/sysconfig/ptpd";
  const std::string ptp_script = root.Path() + "/etc/rc.d/init.d/ptpd";
  const std::string hostname = root.Path() + "/etc/hostname";
  const std::string interfaces = root.Path() + "/etc/network/interfaces";
  std::string zoneinfo = root.Path() + "/zones";
  Machine machine;
  std::ostringstream acts;
};

void PtpCases() {
  const struct {
    const char* before;
    int mode;
    int wanted;
    const char* after;
  } rows[] = {
      {"A=1\nPTPD_OPTS=-g\n#PTPD_OPTS=-p\nB=2", 1, 0, "A=1\nB=2\n"},
      {"PTPD_OPTS=-p\n", 2, 1, "PTPD_OPTS=-g\n"},
      {" PTPD_OPTS=-g\n", 0, 2, "PTPD_OPTS=-p\n"},
      {"PTPD_OPTS=\"-g -p\"\n", 1, 1, "PTPD_OPTS=\"-g -p\"\n"},
      {nullptr, 0, 2, "PTPD_OPTS=-p\n"},
  };
  for (const auto& row : rows) {
    TestHost host;
    const std::string path = "etc/sysconfig/ptpd";
    if (row.before != nullptr) host.root.Write(path, row.before);
    PtpConfig ptp = host.Ptp();
    ExpectEqual(ptp.GetMode(), row.mode, row.after);
    ptp.Set(row.wanted);
    ExpectEqual(host.root.Read(path), row.after);
    ExpectEqual(host.Acts(), row.mode == row.wanted ? "" : "()(/etc/rc.d/init.d/ptpd restart)",
                row.after);
    ExpectEqual(host.Ptp().GetMode(), row.wanted, row.after);
    ExpectTrue(!fs::exists(host.ptp_options + ".new"), "nothing is left behind");
  }
}

void SetNetworkCases() {
  const std::string manual =
      "auto eth0\niface eth0 inet static\n\taddress 10.0.0.7\n\tnetmask 255.255.0.0\n"
      "\tbroadcast 10.0.255.255\n\tgateway 10.0.0.1\n";
  const std::string commented =
      "auto eth0\niface eth0 inet dhcp\n#\taddress 10.0.0.7\n#\tnetmask 255.255.0.0\n"
      "#\tbroadcast 10.0.255.255\n#\tgateway 10.0.0.1\n";
  const struct {
    const char* name;
    std::string before;
    bool dhcp;            // as it is read
    const char* address;  // as it is read
    bool wanted_dhcp;
    std::string after;
  } rows[] = {
      {"from DHCP to manual, between other things",
       "# mine\nauto lo\niface lo inet loopback\n\nauto eth0\niface eth0 inet dhcp\n# about it\n\n"
       "iface eth1 inet dhcp",
       true, "192.168.1.95", false,
       "# mine\nauto lo\niface lo inet loopback\n\niface eth1 inet dhcp\n" + manual},
      {"manual values outlive DHCP", commented, true, "10.0.0.7", false, manual},
      {"no file", "", true, "192.168.1.95", true, commented},
      {"several stanzas", manual + "auto lo\n" + manual, false, "10.0.0.7", true,
       "auto lo\n" + commented},
      // The line after a stanza is copied, whatever it is; names count by their beginning.
      {"an interface of two families", "iface eth0 inet dhcp\niface eth0 inet6 auto\n\tx 1\n", true,
       "192.168.1.95", false, "iface eth0 inet6 auto\n\tx 1\n" + manual},
      {"two stanzas side by side",
       "iface eth0 inet static\n\taddress 10.1.1.1\niface eth0 inet dhcp\nauto eth0\n", false,
       "10.1.1.1", true, "auto eth0\n" + commented},
      {"names that begin alike",
       "auto eth00\nauto eth0 eth1\nauto lo eth0\nifaces eth0 inet static\niface eth0:1 inet "
       "static\n\taddress 1.2.3.4\n",
       true, "192.168.1.95", true,
       "auto eth00\nauto eth1\nauto lo eth0\nifaces eth0 inet static\niface eth0:1 inet "
       "static\n\taddress 1.2.3.4\n" +
           commented},
      {"what is no address",
       "iface eth0 inet static\n\thwaddress ether 02:00:00:00:00:01\n\taddress 2001:db8::1/64\n",
       false, "192.168.1.95", true, commented},
  };
  for (const auto& row : rows) {
    TestHost host;
    const std::string path = "etc/network/interfaces";
    if (!row.before.empty()) host.root.Write(path, row.before);
    if (!row.before.empty()) chmod(host.interfaces.c_str(), 0640);
    NetworkConfig network = host.Network();
    ExpectEqual(network.Get().dhcp, row.dhcp, row.name);
    ExpectEqual(network.Get().address.ToString(), row.address, row.name);
    network.set({"ch4-xxxx", row.wanted_dhcp, SocketAddress("10.0.0.7"),
                 SocketAddress("255.255.0.0"), SocketAddress("10.0.0.1")});
    ExpectEqual(host.root.Read(path), row.after, row.name);
    ExpectEqual(host.Acts(), "()", row.name);
    struct stat status = {};
    stat(host.interfaces.c_str(), &status);
    ExpectTrue(row.before.empty() || (status.st_mode & 0777) == 0640, "its mode");
    const NetworkConfig again = host.Network();
    ExpectEqual(again.Get().dhcp, row.wanted_dhcp, row.name);
    ExpectEqual(again.Get().gateway.ToString(), "10.0.0.1", row.name);
  }
}

void ReadNetworkCases() {
  // Options as the system reads them: address, netmask, gateway.
  const std::pair<const char*, const char*> stanzas[] = {
      {"\taddress 10.0.0.5/24\n\tgateway 10.0.0.1 # router\n", "10.0.0.5 255.255.255.0 10.0.0.1"},
      {"\taddress\t10.0.0.5/255.0.0.0#x\n", "10.0.0.5 255.0.0.0 192.168.1.1"},
      {"\tnetmask 255.255.0.0\n\taddress 10.0.0.5/24\n", "10.0.0.5 255.255.0.0 192.168.1.1"},
      {"\taddress 10.0.0.5/0\n\tnetmask 32\n", "10.0.0.5 255.255.255.255 192.168.1.1"},
      {"\taddress 10.0.0.5/33\n\tgateway 10.0.0.1/8\n", "192.168.1.95 255.255.255.0 192.168.1.1"},
      {"\taddress 10.0.0.5\n# old address 10.0.0.7\n#gateway 10.0.0.1\n",
       "10.0.0.5 255.255.255.0 10.0.0.1"},
      {"\taddress 10.0.0.5/8\n#\tnetmask 255.255.0.0\n#\taddress 10.0.0.7/24\n",
       "10.0.0.5 255.0.0.0 192.168.1.1"},
      {"\tup route add -net 10.0.0.0 netmask 255.0.0.0 gateway 10.0.0.1\n",
       "192.168.1.95 255.255.255.0 192.168.1.1"},
  };
  for (const auto& [options, values] : stanzas) {
    TestHost host;
    host.root.Write("etc/network/interfaces", std::string("iface\teth0  inet static\n") + options);
    const NetworkConfig network = host.Network();
    const NetworkConfig::Values& read = network.Get();
    ExpectEqual(
        read.address.ToString() + " " + read.netmask.ToString() + " " + read.gateway.ToString(),
        values, options);
  }
}

void HostNameCases() {
  TestHost host;
  host.root.Write("etc/hostname", "old\nname\n");
  NetworkConfig network = host.Network();
  NetworkConfig::Values values = network.Get();
  ExpectEqual(values.host_name, "old");
  network.set(values);
  ExpectEqual(host.Acts(), "", "nothing new");
  values.host_name = "new";
  network.set(values);
  ExpectEqual(host.root.Read("etc/hostname"), "new\n");
  ExpectTrue(!fs::exists(host.interfaces), "the other file is left alone");
}

void ClockCases() {
  TestHost host;
  host.root.Write("etc/timezone", "Europe/Berlin\n");
  SystemClock clock = host.Clock();
  std::string zones;
  for (const std::string& zone : clock.Zones()) zones += zone + " ";
  ExpectEqual(zones, "America/Indiana/Knox Europe/Berlin UTC ");
  ExpectEqual(clock.CurrentZone(), "Europe/Berlin");
  clock.SetTime(86'461);
  ExpectEqual(host.Acts(), "(86461.0 rtc 0:1:1 day 5 1)");
  ExpectEqual(clock.ReadHardwareClock(), std::time_t{86'465}, "a day, a minute and 5 s");
  ExpectEqual(host.Acts(), "()");

  clock.SetZone("/America/Indiana/Knox");
  ExpectEqual(host.Acts(), "(zone)");
  ExpectEqual(fs::read_symlink(host.localtime).string(), host.zoneinfo + "/America/Indiana/Knox");
  ExpectEqual(host.Clock().CurrentZone(), "America/Indiana/Knox");
  ExpectThrows<std::runtime_error>([&] { clock.SetZone("Mars"); }, "Invalid timezone \"Mars\"");

  // What can't be set is still wanted.
  fs::create_directory(host.localtime + ".new");
  ExpectThrows<ErrnoError>([&] { clock.SetZone("Europe/Berlin"); },
                           "Unable to set timezone: File exists");
  ExpectEqual(clock.CurrentZone() + " " + clock.WantedZone(), "America/Indiana/Knox Europe/Berlin");
  fs::remove(host.localtime + ".new");
  clock.SaveAgain();
  ExpectEqual(host.Clock().CurrentZone(), "Europe/Berlin");
  host.Acts();
  clock.SaveAgain();
  ExpectEqual(host.Acts(), "", "saved");
}

void ClockFailureCases() {
  TestHost host;
  SystemClock clock = host.Clock();
  // Whatever fails, rights are given back.
  const std::string device = host.device;
  fs::remove(device);
  ExpectThrows<ErrnoError>([&] { clock.SetTime(1); }, "Unable to open clock device: " + device +
                                                          ": No such file or directory");
  ExpectEqual(host.Acts(), "(1.0)");
  host.machine.set_system_time = [](const struct timeval&) {
    errno = EPERM;
    return -1;
  };
  ExpectThrows<ErrnoError>([&] { clock.SetTime(1); },
                           "Unable to set system time: Operation not permitted");
  ExpectEqual(host.Acts(), "()");
  host.machine.set_effective_user = [](uid_t) {
    errno = EPERM;
    return -1;
  };
  ExpectThrows<std::runtime_error>(
      [&] { clock.SetTime(1); }, "Unable to gain super user priviledges: Operation not permitted");
  host.zoneinfo += "/none";
  ExpectThrows<ErrnoError>(
      [&] { host.Clock(); },
      "Unable to open timezone directory: " + host.zoneinfo + ": No such file or directory");
}

}  // namespace

void SystemFileCases() {
  PtpCases();
  SetNetworkCases();
  ReadNetworkCases();
  HostNameCases();
  ClockCases();
  ClockFailureCases();
}
