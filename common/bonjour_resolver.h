#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "common/bonjour_client.h"

// Remembers the services that a BonjourClient finds, by their names, until they are removed.
class BonjourResolver : public BonjourClientListener {
 public:
  struct HostInfo {
    std::string name;
    std::string type;
    std::string domain;
    std::string host_name;
    int port = 0;
    std::vector<SocketAddress> addresses;  // in the order in which they were found, each once
    TxtMap txt;
  };

  // Null for an unknown name. What is found of the service later shows in the result too.
  std::shared_ptr<const HostInfo> Find(const std::string& name) const;

  void ServiceFound(const std::string& name, const std::string& type, const std::string& domain,
                    int interface_index, const std::string& host_name, const SocketAddress& address,
                    const TxtMap& txt) override;
  void ServiceRemoved(const std::string& name, const std::string& type,
                      const std::string& domain) override;

 private:
  std::map<std::string, std::shared_ptr<HostInfo>> hosts;
};
