#include "common/mqtt_connection_watcher.h"

#include <mosquitto.h>

#include <cerrno>
#include <iostream>
#include <utility>

#include "common/errno_error.h"

namespace {

constexpr int kRetryMs = 5000;
constexpr int kKeepaliveSeconds = 60;
constexpr const char* kWords = "Unable to connect";

}  // namespace

MQTTConnectionWatcher::MQTTConnectionWatcher(MQTTClient& client, std::string host, int port)
    : PollTimer(-1, true), client(client), host(std::move(host)), port(port) {}

void MQTTConnectionWatcher::SetHost(const std::string& host) {
  this->host = host;
  attempts = 0;
  lookup.Cancel();
  client.GiveUpConnecting();
}

void MQTTConnectionWatcher::Expired() {
  if (lookup.IsRunning()) {
    // One name service that hangs is enough to wait for.
    Report(MQTTClient::Error(kWords, MOSQ_ERR_EAI));
  } else if (!client.IsConnected()) {
    if (client.GiveUpConnecting()) Report(MQTTClient::Error(kWords, MOSQ_ERR_ERRNO, ETIMEDOUT));
    StartAttempt();
  }
  Extend(kRetryMs);
}

void MQTTConnectionWatcher::StartAttempt() {
  try {
    lookup.Start(host, [this](const HostLookup::Addresses& addresses) { Connect(addresses); });
  } catch (const ErrnoError& error) {
    Report(MQTTClient::Error(kWords, MOSQ_ERR_ERRNO, error.ErrorNumber()));
  }
}

void MQTTConnectionWatcher::Connect(const HostLookup::Addresses& addresses) {
  if (addresses.empty()) {
    Report(MQTTClient::Error(kWords, MOSQ_ERR_EAI));
    return;
  }
  try {
    client.Connect(addresses[attempts++ % addresses.size()], port, kKeepaliveSeconds,
                   [this](const MQTTClient::Error& error) { Report(error); });
  } catch (const MQTTClient::Error& error) {
    Report(error);
  }
}

void MQTTConnectionWatcher::Report(const MQTTClient::Error& error) const {
  std::cout << "Unable to connect to MQTT broker " << host << ": " << error.what() << "\n";
}
