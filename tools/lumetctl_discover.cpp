// lumetctl's command for the heads on the network.

#include <net/if.h>

#include <algorithm>
#include <iostream>
#include <map>

#include "common/bonjour_client.h"
#include "common/host_port.h"
#include "common/poll_processor.h"
#include "tools/lumetctl.h"

namespace {

struct Found {
  std::vector<std::string> places;
  TxtMap txt;
};

// Gathers heads by their names.
class Gatherer : public BonjourClientListener {
 public:
  void ServiceFound(const std::string& name, const std::string&, const std::string&,
                    int interface_index, const std::string&, const SocketAddress& address,
                    const TxtMap& txt) override {
    std::string host = address.ToString();
    char interface[IF_NAMESIZE] = {};
    if (address.IsLinkLocal() && host.find('%') == std::string::npos &&
        if_indextoname(static_cast<unsigned>(interface_index), interface) != nullptr)
      host += std::string("%") + interface;
    Found& head = heads[name];
    head.txt = txt;
    const std::string place = Place(host, address.GetPort());
    if (std::find(head.places.begin(), head.places.end(), place) == head.places.end())
      head.places.push_back(place);
  }
  void GotError(const std::string& text) override { error = text.substr(0, text.find('\n')); }

  std::map<std::string, Found> heads;
  std::string error;
};

std::string Text(const TxtMap& txt, const std::string& key) {
  const auto found = txt.find(key);
  return found == txt.end() ? "" : found->second;
}

}  // namespace

void Discover(const Ctl& ctl, Timeout duration) {
  Gatherer gatherer;
  {
    BonjourClient discovery(gatherer);
    discovery.Restart();
    if (gatherer.error.empty()) {
      discovery.Browse("_nemra-tavo._tcp");
      constexpr int kTurn = 50;
      const Deadline end(duration);
      while (!end.IsOver() && !IsInterrupted()) PollProcessor::Instance()->Process(kTurn);
    }
  }
  if (!gatherer.error.empty() && gatherer.heads.empty())
    throw NoConnection("service discovery does not work, is avahi-daemon running? " +
                       gatherer.error);
  std::string json;
  Table table;
  for (const auto& [name, head] : gatherer.heads) {
    std::string places;
    std::string quoted;
    for (const std::string& place : head.places) {
      places += (places.empty() ? "" : " ") + place;
      quoted += (quoted.empty() ? "" : ",") + JsonText(place);
    }
    json += (json.empty() ? "" : ",\n ") + ("{\"name\":" + JsonText(name)) +
            ",\"serialnumber\":" + JsonText(Text(head.txt, "sn")) +
            ",\"version\":" + JsonText(Text(head.txt, "ver")) + ",\"heads\":[" + quoted + "]}";
    table.Add({name, Text(head.txt, "sn"), Text(head.txt, "ver"), places});
  }
  std::cout << (ctl.json ? "[" + json + "]\n" : table.Text());
  Flush();
  if (gatherer.heads.empty()) throw Failed("no head has answered");
}
