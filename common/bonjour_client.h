#pragma once

#include <map>
#include <memory>
#include <string>

#include "common/socket_address.h"

// The texts of a service record by their keys.
using TxtMap = std::map<std::string, std::string>;

// Hears of services on the local network.
class BonjourClientListener {
 public:
  virtual ~BonjourClientListener() = default;
  // `address` has the port of the service; a link-local one has the scope of the interface.
  virtual void ServiceFound(const std::string& /*name*/, const std::string& /*type*/,
                            const std::string& /*domain*/, int /*interface_index*/,
                            const std::string& /*host_name*/, const SocketAddress& /*address*/,
                            const TxtMap& /*txt*/) {}
  virtual void ServiceRemoved(const std::string& /*name*/, const std::string& /*type*/,
                              const std::string& /*domain*/) {}
  virtual void GotMessage(const std::string& /*text*/) {}
  virtual void GotError(const std::string& /*text*/) {}
};

// Service discovery by DNS-SD, through the machine's Avahi daemon. Nothing that fails here throws;
// the listener's GotError hears of it. Without a daemon every operation does nothing, until the
// next Restart finds one.
class BonjourClient {
 public:
  // `listener` must outlive this. Talks to no daemon before the first Restart.
  explicit BonjourClient(BonjourClientListener& listener);
  ~BonjourClient();
  BonjourClient(const BonjourClient&) = delete;
  BonjourClient& operator=(const BonjourClient&) = delete;

  // Gives up all that was published and browsed for, and connects to the daemon again.
  void Restart();
  // Announces a service of this machine, on all its interfaces.
  void Publish(const std::string& name, const std::string& type, const std::string& domain,
               int port, const TxtMap& txt);
  // Tells the listener of each service of this type from now on.
  void Browse(const std::string& type);

 private:
  class Core;

  BonjourClientListener& listener;
  std::unique_ptr<Core> core;
};
