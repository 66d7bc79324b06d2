#include "leaf/lumet/bus/announcement.h"

#include "common/host_name.h"
#include "common/network_interface.h"
#include "common/str_util.h"

void Announce(const ConfigTavo& tavo, const std::string& interface, int port,
              BonjourClient& bonjour) {
  const TxtMap txt = {
      {"company", "Nemra Sciences"},
      {"dsp", tavo.Dsp().get()},
      {"fpga", tavo.Fpga().get()},
      {"macaddress", NetworkInterface::Read(interface).hardwareAddress},
      {"model", "TAVO"},
      {"sn", tavo.Factory().Serialnumber().get()},
      {"type", "Fluorometer System"},
      {"ver", tavo.Ver().get()},
  };
  bonjour.Restart();
  bonjour.Publish(GetHostName(), "_nemra-tavo._tcp", "local", port, txt);
  bonjour.Browse("_nemra-kesh._tcp");
}

std::optional<std::string> BrokerOfOwnConsoleUnit(const SocketAddress& address, const TxtMap& txt,
                                                  const std::string& serial_number,
                                                  const std::string& interface) {
  if (address.Family() != AF_INET6 || !address.IsLinkLocal()) return std::nullopt;
  // The unit names the head that is attached to it.
  const auto chamber = txt.find("chamber");
  if (chamber == txt.end() || CaseInsensitiveStringCompare(chamber->second, serial_number) != 0)
    return std::nullopt;
  return address.ToString() + "%" + interface;
}
