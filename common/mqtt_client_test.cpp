#include "common/mqtt_client.h"

#include <poll.h>
#include <sys/socket.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "common/socket.h"
#include "common/test_registry.h"

namespace {

using self_test::ExpectEqual;
using self_test::ExpectThrows;
using self_test::ExpectTrue;

void UnconnectedCases() {
  MQTTClient client(nullptr, "test", true);
  ExpectEqual(client.Publish("a", "b", 0, false), 0, "a publication that goes nowhere");
  ExpectEqual(client.Subscribe("a", 0) + client.Unsubscribe("a"), 0);
  client.Disconnect();
  client.Flush();
  client.Drain(1000);
  ExpectEqual(client.GetFD(), -1);
  ExpectThrows<MQTTClient::Error>(
      [&] { client.SetWill("a/#", "", 0, false); },
      "Unable to set will a/#: MQTTClient: Invalid function arguments provided.");
  ExpectThrows<MQTTClient::Error>([&] { client.Connect("::1", 1, 60); },
                                  "Unable to connect: MQTTClient: Connection refused");
  ExpectTrue(!client.IsConnected() && client.GetEvents() == 0 && !client.IsArmed(),
             "after a failed connect");
}

// What a listener throws leaves the operation that was under way, and no later one. The broker
// takes the connection and says nothing.
void ThrowingListenerCases() {
  Socket broker(AF_INET6, SOCK_STREAM, 0);
  broker.Bind(SocketAddress("::1"));
  broker.Listen(1);
  struct Thrower : MQTTClient::Listener {
    void OnLog(int, const std::string&) override { Throw("OnLog"); }
    void OnPublish(int) override { Throw("OnPublish"); }
    void Throw(const std::string& name) const {
      if (name == active) throw std::runtime_error(name);
    }
    std::string active;
  } thrower;
  MQTTClient client(&thrower, "test", true);
  SocketAddress address(AF_INET6);
  broker.GetSockName(address);
  client.Connect("::1", address.GetPort(), 60);
  const Socket connection(broker, nullptr);

  thrower.active = "OnLog";
  ExpectThrows<std::runtime_error>([&] { client.Publish("a", "b", 0, false); }, "OnLog");
  ExpectThrows<std::runtime_error>([&] { client.Subscribe("a", 0); }, "OnLog");
  ExpectThrows<std::runtime_error>([&] { client.Unsubscribe("a"); }, "OnLog");
  thrower.active = "";
  client.Publish("a", "b", 0, false);

  // More than the socket takes waits, and is sent by and by.
  client.Publish("a", std::string(std::size_t{32} << 20, 'x'), 0, false);
  ExpectTrue((client.GetEvents() & POLLOUT) != 0, "something that waits");
  thrower.active = "OnPublish";
  std::string thrown;
  for (std::vector<char> room(1 << 20); thrown.empty();) {
    recv(connection.GetFD(), room.data(), room.size(), MSG_DONTWAIT);
    try {
      client.Flush();
      ExpectTrue(client.IsConnected() && client.GetEvents() != POLLIN, "a word of its end");
    } catch (const std::runtime_error& error) {
      thrown = error.what();
    }
  }
  ExpectEqual(thrown, "OnPublish");
  client.Flush();
}

}  // namespace

void MQTTClientCases() {
  UnconnectedCases();
  ThrowingListenerCases();
}
