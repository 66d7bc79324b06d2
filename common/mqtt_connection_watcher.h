#pragma once

#include <cstddef>
#include <string>

#include "common/host_lookup.h"
#include "common/mqtt_client.h"
#include "common/poll_processor.h"

// Connects a client to its broker, again and again for as long as there is no connection: from the
// moment that its timer is armed, then every five seconds until its owner stops the timer.
//
// Each attempt is one connection to one address, and a line on standard output if it fails. It has
// until the next one to succeed; the loop keeps turning meanwhile. If a host has several addresses,
// the attempts take them in turn.
class MQTTConnectionWatcher : public PollTimer {
 public:
  // `client` must outlive this. `host` is the broker's name or address.
  MQTTConnectionWatcher(MQTTClient& client, std::string host, int port);

  // Takes effect at the next attempt; one that is under way is given up.
  void SetHost(const std::string& host);

  void Expired() override;
  const char* GetName() override { return "MQTTConnectionWatcher"; }

 private:
  void StartAttempt();
  void Connect(const HostLookup::Addresses& addresses);
  // Says why the attempt has failed.
  void Report(const MQTTClient::Error& error) const;

  MQTTClient& client;
  std::string host;
  int port;
  HostLookup lookup;
  std::size_t attempts = 0;
};
