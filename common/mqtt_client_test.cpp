#include "common/mqtt_client.h"

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "common/host_lookup.h"
#include "common/socket.h"
#include "common/test_registry.h"

namespace {

using namespace self_test;
using namespace std::string_view_literals;

void Turn(int timeout_ms = 1) { PollProcessor::Instance()->Process(timeout_ms); }

// What comes of an attempt to connect, at once or later.
std::string OutcomeOf(MQTTClient& client, int port) {
  std::string outcome;
  const auto failed = [&](const MQTTClient::Error& error) { outcome = error.what(); };
  try {
    client.Connect("::1", port, 60, failed);
  } catch (const MQTTClient::Error& error) {
    failed(error);
  }
  while (outcome.empty() && !client.IsConnected()) Turn(1000);
  return outcome;
}

// A broker in this process.
struct TestBroker {
  TestBroker() {
    listener.Bind(SocketAddress("::1"));
    listener.Listen(1);
    listener.GetSockName(address);
  }
  // The broker's end of a connection of `client`, at which it has said this.
  Socket Take(MQTTClient& client, const std::string& words = "") const {
    ExpectEqual(OutcomeOf(client, address.GetPort()), "");
    Socket connection(listener, nullptr);
    if (!words.empty()) connection.Write(words);
    return connection;
  }

  Socket listener{AF_INET6, SOCK_STREAM, 0};
  SocketAddress address{AF_INET6};
};
const std::string kGreeting("\x20\x02\0\0", 4);

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
  ExpectThrows<MQTTClient::Error>([&] { client.Connect("", 1, 60, {}); },
                                  "Unable to connect: MQTTClient: Lookup error.");
  ExpectEqual(OutcomeOf(client, 1), "Unable to connect: MQTTClient: Connection refused");
  ExpectTrue(!client.IsConnected() && client.GetEvents() == 0 && !client.IsArmed(),
             "after a failed connect");
}

// What a listener throws leaves the operation that was under way, and no later one. The broker
// takes the connection and says nothing.
void ThrowingListenerCases() {
  TestBroker broker;
  struct Thrower : MQTTClient::Listener {
    void OnLog(int, const std::string&) override { Throw("OnLog"); }
    void OnPublish(int) override { Throw("OnPublish"); }
    void Throw(const std::string& name) const {
      if (name == active) throw std::runtime_error(name);
    }
    std::string active;
  } thrower;
  MQTTClient client(&thrower, "test", true);
  const Socket connection = broker.Take(client);

  thrower.active = "OnLog";
  ExpectThrows<std::runtime_error>([&] { client.Publish("a", "b", 0, false); }, "OnLog");
  ExpectThrows<std::runtime_error>([&] { client.Subscribe("a", 0); }, "OnLog");
  ExpectThrows<std::runtime_error>([&] { client.Unsubscribe("a"); }, "OnLog");
  thrower.active = "";
  client.Publish("a", "b", 0, false);

  // What the socket does not take waits, and is sent bit by bit.
  client.Publish("a", std::string(std::size_t{32} << 20, 'x'), 0, false);
  ExpectTrue((client.GetEvents() & POLLOUT) != 0, "something that waits");
  thrower.active = "OnPublish";
  ExpectThrows<std::runtime_error>(
      [&] {
        for (std::vector<char> room(1 << 20); client.IsConnected(); client.Flush())
          recv(connection.GetFD(), room.data(), room.size(), MSG_DONTWAIT);
      },
      "OnPublish");
  client.Flush();
}

// A broker in this process sends what it is given, a byte at a time.
void PacketCases() {
  TestBroker broker;
  struct Hearer : MQTTClient::Listener {
    void OnConnect(int) override { log += "connect "; }
    void OnDisconnect(int) override { log += "disconnect "; }
    void OnMessage(int, const std::string& topic, const void*, int length, int, bool) override {
      log += topic + std::to_string(length) + " ";
    }
    std::string log;
  };
  const std::string longest =
      std::string("\x30\xFC\xFF\x0F\0\x01t", 7) + std::string(MQTTClient::kLongestPacket - 7, 'x');
  const std::pair<std::string, std::string> cases[] = {
      {std::string("\x30\x04\0\x01t!\xD0\0\x31\x03\0\x01u", 13), "t1 u0 disconnect "},
      {longest.substr(0, 5) + "x", "disconnect "},                  // and it closes in the middle
      {kGreeting, "disconnect "},                                   // which comes once
      {std::string("\x32\x05\0\x01t\0\x01", 7), "disconnect "},     // at QoS 1
      {std::string("\x62\x02\0\x01", 4), "disconnect "},            // wants an answer
      {std::string("\x30\xFF\xFF\xFF\xFF\x01", 6), "disconnect "},  // no length at all
      {std::string("\x30\xFD\xFF\x0F\0\x01t", 7), "disconnect "},   // too long by one
  };
  for (const auto& [said, heard] : cases) {
    Hearer hearer;
    MQTTClient client(&hearer, "test", true);
    Socket connection = broker.Take(client);
    for (const char byte : kGreeting + said) {
      send(connection.GetFD(), &byte, 1, MSG_NOSIGNAL);
      Turn();
    }
    connection.Close();
    while (client.IsConnected()) Turn();
    ExpectEqual(hearer.log, "connect " + heard);
    ExpectEqual(client.GetFD(), -1);
  }

  // The longest there may be, which the socket holds as a whole.
  Hearer hearer;
  MQTTClient client(&hearer, "test", true);
  Socket connection = broker.Take(client, kGreeting);
  for (std::size_t sent = 0; sent < longest.size(); Turn()) {
    const ssize_t count = send(connection.GetFD(), longest.data() + sent, longest.size() - sent,
                               MSG_DONTWAIT | MSG_NOSIGNAL);
    sent += static_cast<std::size_t>(count < 0 ? 0 : count);
  }
  while (hearer.log.find("t2") == std::string::npos) Turn();
  ExpectEqual(hearer.log, "connect t" + std::to_string(MQTTClient::kLongestPacket - 7) + " ");
}

// A text of so many pieces, each with its number.
class Numbers : public LongText {
 public:
  explicit Numbers(int pieces) : pieces(pieces) {}
  std::string_view Next() override {
    piece = next < pieces ? std::string(1 << 16, '.') + std::to_string(next++) : "";
    return piece;
  }
  void Rewind() override { next = 0; }
  std::size_t Bytes() const override { return 8; }

 private:
  int pieces;
  int next = 0;
  std::string piece;
};

// Nothing comes between the bytes of a long publication, and everything comes in its turn.
void LongPublicationCases() {
  TestBroker broker;
  struct Counter : MQTTClient::Listener {
    void OnPublish(int) override { ++published; }
    int published = 0;
  } counter;
  MQTTClient client(&counter, "test", true);
  Socket connection = broker.Take(client, kGreeting);

  constexpr int kPieces = 400;  // more than sockets hold
  client.Publish("first", "1", 0, false);
  client.Publish("long", std::make_unique<Numbers>(kPieces), true);
  const int id = client.Publish("second", "2", 0, false) + client.Subscribe("topic", 0);
  ExpectEqual(id, 0, "both wait");
  client.Publish("empty", std::make_unique<Numbers>(0), false);
  client.Publish("third", "3", 0, false);
  ExpectThrows<MQTTClient::Error>(
      [&] { client.Publish("#", std::make_unique<Numbers>(1), false); },
      "Unable to publish topic #: MQTTClient: Invalid function arguments provided.");
  for (int i = 0; i < kPieces + 1000; ++i) Turn(0);
  ExpectEqual(counter.published, 1, "one that the broker has taken");
  ExpectTrue(client.IsAnythingWaiting() && client.WaitingBytes() == 10,
             "others after the long one");
  std::string heard;
  for (const std::string last("\x30\x08\0\x05third3", 10); !heard.ends_with(last); Turn(0)) {
    std::string bytes(1 << 20, '\0');
    const ssize_t count = recv(connection.GetFD(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    heard.append(bytes, 0, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  }
  std::string expected("\x30\x08\0\5first1\x31\xC8\x88\xC0\x0C\0\4long", 21);
  Numbers text(kPieces);
  for (std::string_view piece = text.Next(); !piece.empty(); piece = text.Next()) expected += piece;
  expected += "\x30\x09\0\6second2\x82\x0A\0\3\0\5topic\0\x30\7\0\5empty\x30\x08\0\5third3"sv;
  ExpectTrue(heard.ends_with(expected), "all in turn, and the same text");
  ExpectTrue(counter.published == 5 && !client.IsAnythingWaiting(), "an end of all");

  // With the connection goes all that has waited for it.
  client.Publish("long", std::make_unique<Numbers>(kPieces), false);
  client.Publish("after", "", 0, false);
  for (int i = 0; i < kPieces + 1000; ++i) Turn(0);
  connection.Close();
  while (client.IsConnected()) Turn(0);
  client.Flush();
  ExpectEqual(counter.published, 5);
}

void HostLookupCases() {
  HostLookup lookup;
  HostLookup::Addresses addresses;
  const auto found = [&](const HostLookup::Addresses& all) { addresses = all; };
  for (const char* address : {"::1", "127.0.0.1", "fe80::1%lo"}) {
    lookup.Start(address, found);
    ExpectEqual(addresses.at(0), address);
  }
  for (const std::string name : {"localhost", "no such host"}) {
    lookup.Start(name, found);
    ExpectTrue(lookup.IsRunning(), "names take time");
    while (lookup.IsRunning()) Turn(1000);
    ExpectEqual(addresses.empty(), name != "localhost", name);
  }
}

}  // namespace

void MQTTClientCases() {
  UnconnectedCases();
  ThrowingListenerCases();
  PacketCases();
  LongPublicationCases();
  HostLookupCases();
}
