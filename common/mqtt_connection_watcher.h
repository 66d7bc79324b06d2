#pragma once

#include <string>

#include "common/mqtt_client.h"
#include "common/poll_processor.h"
#include "common/socket.h"

// Connects a client to its broker, again and again for as long as there is no connection: from the
// moment that its timer is armed, then every five seconds until its owner stops the timer.
//
// The library stands still for as long as a broker takes to be reached, a minute or two for a
// machine that is gone. So the loop waits instead: a connection of its own, dropped again at once,
// tells that the broker is there.
class MQTTConnectionWatcher : public PollTimer, private PollItem {
 public:
  // `mqtt` must outlive this. `broker` is a host's name or address.
  MQTTConnectionWatcher(MQTTClient& mqtt, std::string broker, int broker_port);

  // For the next attempt; one that is under way is given up.
  void SetHost(const std::string& broker);

  void Expired() override;
  const char* GetName() override { return "MQTTConnectionWatcher"; }

 private:
  void StartProbe();
  void StopProbe();
  int GetFD() override { return probe.GetFD(); }
  void HandleEvents(int revents) override;
  // Says why the attempt has failed.
  void Report(int errnum) const;
  void Report(const MQTTClient::Error& error) const;

  MQTTClient& client;
  std::string host;
  int port;
  Socket probe;  // open while it is under way
};
