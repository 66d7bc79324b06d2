#include "common/mqtt_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/avahi_poll.h"
#include "common/bonjour_client.h"
#include "common/errno_error.h"
#include "common/socket.h"
#include "common/test_registry.h"

void LibraryOnLoopCases();

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

// What a library sees of the loop through Avahi's table.
void AvahiPollCases() {
  const AvahiPoll& table = *AvahiPollOfLoop();
  std::array<int, 2> ends = {};
  if (pipe(ends.data()) != 0) throw ErrnoError("pipe");
  struct Seen {
    const AvahiPoll& table;
    std::string log;
    bool free_next = false;
  } seen{table, "", false};
  AvahiWatch* watch = table.watch_new(
      &table, ends[0], static_cast<AvahiWatchEvent>(AVAHI_WATCH_IN | AVAHI_WATCH_ERR),
      [](AvahiWatch* self, int, AvahiWatchEvent event, void* data) {
        auto* what = static_cast<Seen*>(data);
        what->log +=
            std::to_string(event) + std::to_string(what->table.watch_get_events(self)) + " ";
        if (what->free_next) what->table.watch_free(self);
      },
      &seen);
  const auto turn = [&] {
    seen.log.clear();
    PollProcessor::Instance()->Process(0);
    return seen.log;
  };
  ExpectEqual(turn(), "", "nothing to read");
  ExpectEqual(write(ends[1], "x", 1), ssize_t{1});
  ExpectEqual(turn(), "10 ", "an event, and none during its callback");
  ExpectEqual(int{table.watch_get_events(watch)}, int{AVAHI_WATCH_IN});
  table.watch_update(watch, AVAHI_WATCH_OUT);
  ExpectEqual(turn(), "", "reading is no longer wanted");
  table.watch_update(watch, AVAHI_WATCH_IN);
  seen.free_next = true;
  // With a hang-up at once, as when a daemon dies.
  close(ends[1]);
  ExpectEqual(turn(), "10 ", "a callback that frees its watch");
  ExpectEqual(turn(), "");
  close(ends[0]);

  struct timeval when = {};
  gettimeofday(&when, nullptr);
  when.tv_sec -= 5;
  AvahiTimeout* timeout = table.timeout_new(
      &table, &when, [](AvahiTimeout*, void* data) { static_cast<Seen*>(data)->log += "due "; },
      &seen);
  ExpectEqual(turn(), "due ", "a moment in the past");
  ExpectEqual(turn(), "", "once");
  table.timeout_update(timeout, &when);
  table.timeout_update(timeout, nullptr);
  ExpectEqual(turn(), "", "disarmed");
  when.tv_sec += 3600;
  table.timeout_update(timeout, &when);
  ExpectEqual(turn(), "", "in an hour");
  table.timeout_update(nullptr, &when);
  table.timeout_free(timeout);
  table.timeout_free(nullptr);
}

// No daemon is reached where there is no bus.
void BonjourCases() {
  struct Errors : BonjourClientListener {
    void GotError(const std::string& text) override { log += text; }
    std::string log;
  } errors;
  const char* variable = "DBUS_SYSTEM_BUS_ADDRESS";
  const char* before = std::getenv(variable);
  const std::string kept = before != nullptr ? before : "";
  setenv(variable, "unix:path=/nowhere", 1);
  BonjourClient bonjour(errors);
  bonjour.Browse("_a._tcp");
  bonjour.Restart();
  bonjour.Publish("a", "_a._tcp", "local", 1, {{"key", "value"}});
  bonjour.Browse("_a._tcp");
  ExpectEqual(errors.log, "Unable to create Avahi client\n");
  if (before != nullptr)
    setenv(variable, kept.c_str(), 1);
  else
    unsetenv(variable);
}

}  // namespace

void LibraryOnLoopCases() {
  BonjourCases();
  UnconnectedCases();
  ThrowingListenerCases();
  AvahiPollCases();
}
