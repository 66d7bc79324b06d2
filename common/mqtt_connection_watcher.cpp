#include "common/mqtt_connection_watcher.h"

#include <mosquitto.h>
#include <poll.h>

#include <cerrno>
#include <iostream>
#include <utility>

namespace {

constexpr int kRetryMs = 5000;
constexpr int kKeepaliveSeconds = 60;

}  // namespace

MQTTConnectionWatcher::MQTTConnectionWatcher(MQTTClient& mqtt, std::string broker, int broker_port)
    : PollTimer(-1, true),
      PollItem(0, true),
      client(mqtt),
      host(std::move(broker)),
      port(broker_port) {}

void MQTTConnectionWatcher::SetHost(const std::string& broker) {
  host = broker;
  StopProbe();
}

void MQTTConnectionWatcher::Expired() {
  if (!client.IsConnected()) {
    if (probe.IsOpen()) Report(ETIMEDOUT);
    StartProbe();
  }
  Extend(kRetryMs);
}

void MQTTConnectionWatcher::StartProbe() {
  StopProbe();
  try {
    SocketAddress address(host, AF_UNSPEC);
    address.SetPort(port);
    probe.Create(address.Family(), SOCK_STREAM, 0);
    probe.SetNonBlocking();
    probe.Connect(address);
    SetEvents(POLLOUT);
  } catch (const SocketError&) {
    Report(MQTTClient::Error("Unable to connect", MOSQ_ERR_EAI));
  } catch (const ErrnoError& error) {
    StopProbe();
    Report(error.ErrorNumber());
  }
}

void MQTTConnectionWatcher::StopProbe() {
  SetEvents(0);
  probe.Close();
}

void MQTTConnectionWatcher::HandleEvents(int) {
  try {
    probe.CheckConnected();
    StopProbe();
    client.Connect(host, port, kKeepaliveSeconds);
  } catch (const ErrnoError& error) {
    StopProbe();
    Report(error.ErrorNumber());
  } catch (const MQTTClient::Error& error) {
    Report(error);
  }
}

void MQTTConnectionWatcher::Report(int errnum) const {
  errno = errnum;
  Report(MQTTClient::Error("Unable to connect", MOSQ_ERR_ERRNO));
}

void MQTTConnectionWatcher::Report(const MQTTClient::Error& error) const {
  std::cout << "Unable to connect to MQTT broker " << host << ": " << error.what() << "\n";
}
