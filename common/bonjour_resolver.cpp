#include "common/bonjour_resolver.h"

#include <algorithm>

std::shared_ptr<const BonjourResolver::HostInfo> BonjourResolver::Find(
    const std::string& name) const {
  const auto found = hosts.find(name);
  return found == hosts.end() ? nullptr : found->second;
}

void BonjourResolver::ServiceFound(const std::string& name, const std::string& type,
                                   const std::string& domain, int, const std::string& host_name,
                                   const SocketAddress& address, const TxtMap& txt) {
  std::shared_ptr<HostInfo>& host = hosts[name];
  if (!host) host = std::make_shared<HostInfo>();
  host->name = name;
  host->type = type;
  host->domain = domain;
  host->host_name = host_name;
  host->port = address.GetPort();
  host->txt = txt;
  if (std::find(host->addresses.begin(), host->addresses.end(), address) == host->addresses.end())
    host->addresses.push_back(address);
}

void BonjourResolver::ServiceRemoved(const std::string& name, const std::string&,
                                     const std::string&) {
  hosts.erase(name);
}
