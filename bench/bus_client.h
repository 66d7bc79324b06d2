#pragma once

// For programs that listen in on the bus of a head, with the broker's own clients.

#include <stdexcept>
#include <string>

#include "bench/broker.h"
#include "bench/child_process.h"

// Publishes through the broker on `port` of ::1. Throws std::runtime_error.
inline void Publish(int port, const std::string& topic, const std::string& payload) {
  ChildProcess process(
      {"mosquitto_pub", "-h", "::1", "-p", std::to_string(port), "-t", topic, "-m", payload});
  if (process.Wait() != 0) throw std::runtime_error("unable to publish " + topic);
}

// Prints each message as its retain flag, topic and payload.
class Subscriber : public ChildProcess {
 public:
  explicit Subscriber(int port, const std::string& topic = "nemra/#")
      : ChildProcess({"mosquitto_sub", "-h", "::1", "-p", std::to_string(port), "-t", topic, "-F",
                      "%r %t %p"}) {}
};
