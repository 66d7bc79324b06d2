#include "client/bus.h"

#include <mosquitto.h>
#include <poll.h>

#include <cerrno>
#include <cstring>

#include "client/json_text.h"
#include "client/lines.h"
#include "common/host_port.h"

namespace {

constexpr int kKeepAliveSeconds = 60;
constexpr Timeout kHousekeeping = std::chrono::seconds(1);
constexpr int kRefusedSubscription = 128;

// Brackets all use of the library.
struct Library {
  Library() { mosquitto_lib_init(); }
  ~Library() { mosquitto_lib_cleanup(); }
};

std::string TextOf(int code) {
  return code == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(code);
}

}  // namespace

// What the library calls, with the client as its user data.
struct BusClient::Callbacks {
  static BusClient& Self(void* object) { return *static_cast<BusClient*>(object); }

  static void Connected(struct mosquitto*, void* object, int result) {
    Self(object).greeting = result;
  }
  static void Disconnected(struct mosquitto*, void* object, int result) {
    Self(object).lost = result == 0 ? "it was ended" : TextOf(result);
  }
  static void Published(struct mosquitto*, void* object, int id) {
    Self(object).confirmed.insert(id);
  }
  static void Subscribed(struct mosquitto*, void* object, int id, int count, const int* granted) {
    if (count > 0 && granted[0] >= kRefusedSubscription)
      Self(object).refused = id;
    else
      Self(object).confirmed.insert(id);
  }
  static void Message(struct mosquitto*, void* object, const struct mosquitto_message* message) {
    Self(object).received.push_back({message->topic,
                                     std::string(static_cast<const char*>(message->payload),
                                                 static_cast<std::size_t>(message->payloadlen)),
                                     message->retain});
  }
};

std::map<std::string, double> BusMessage::Values() const {
  const Json::Value members = ReadJson(payload, "row of values");
  std::map<std::string, double> values;
  for (const std::string& name : members.getMemberNames()) {
    if (!members[name].isNumeric()) throw ClientError("this is no number: " + name);
    values[name] = members[name].asDouble();
  }
  return values;
}

void BusClient::HandleDeleter::operator()(struct mosquitto* handle) const {
  mosquitto_destroy(handle);
}

BusClient::BusClient(const BusOptions& options)
    : place("the broker at " + Place(options.host, options.port)), timeout(options.timeout) {
  static const Library library;
  // The library would wait for a vanished machine for as long as the system does.
  Socket probe;
  ConnectWithin(probe, options.host, options.port, timeout);
  probe.Close();

  const Deadline deadline(timeout);
  handle.reset(mosquitto_new(nullptr, true, this));
  if (!handle) Check(MOSQ_ERR_ERRNO, "connect to");
  mosquitto_connect_callback_set(handle.get(), Callbacks::Connected);
  mosquitto_disconnect_callback_set(handle.get(), Callbacks::Disconnected);
  mosquitto_publish_callback_set(handle.get(), Callbacks::Published);
  mosquitto_subscribe_callback_set(handle.get(), Callbacks::Subscribed);
  mosquitto_message_callback_set(handle.get(), Callbacks::Message);
  Check(mosquitto_connect(handle.get(), options.host.c_str(), options.port, kKeepAliveSeconds),
        "connect to");
  if (!TurnUntil(deadline, [this] { return greeting.has_value(); }))
    deadline.Fail("the greeting of " + place, "nothing came");
  if (*greeting != 0)
    throw NoConnection(place + " refuses: " + mosquitto_connack_string(*greeting));
  for (const std::string& topic : options.topics) Subscribe(topic);
}

BusClient::~BusClient() {
  mosquitto_disconnect_callback_set(handle.get(), nullptr);
  mosquitto_disconnect(handle.get());
}

void BusClient::Check(int code, const std::string& act) const {
  if (code != MOSQ_ERR_SUCCESS)
    throw NoConnection("unable to " + act + " " + place + ": " + TextOf(code));
}

int BusClient::Descriptor() const { return mosquitto_socket(handle.get()); }

short BusClient::Events() const {
  return mosquitto_want_write(handle.get()) ? POLLIN | POLLOUT : POLLIN;
}

void BusClient::Turn() {
  // What these calls return shows in the disconnect as well.
  struct pollfd entry = {Descriptor(), POLLIN, 0};
  if (entry.fd >= 0 && poll(&entry, 1, 0) > 0) mosquitto_loop_read(handle.get(), 1);
  if (mosquitto_want_write(handle.get())) mosquitto_loop_write(handle.get(), 1);
  mosquitto_loop_misc(handle.get());
  if (Descriptor() < 0 && lost.empty()) lost = "it was ended";
}

void BusClient::FailLost() const {
  throw NoConnection("the connection to " + place + " is lost: " + lost);
}

bool BusClient::TurnUntil(const Deadline& deadline, const std::function<bool()>& done) {
  while (!done()) {
    if (!lost.empty()) FailLost();
    if (deadline.IsOver()) return false;
    deadline.WaitFor(Descriptor(), Events(), kHousekeeping);
    Turn();
  }
  return true;
}

void BusClient::Subscribe(const std::string& topic) {
  const Deadline deadline(timeout);
  int id = 0;
  Check(mosquitto_subscribe(handle.get(), &id, topic.c_str(), 0), "hear " + topic + " from");
  if (!TurnUntil(deadline, [&] { return refused == id || confirmed.erase(id) > 0; }))
    deadline.Fail("the subscription to " + topic, "nothing came");
  if (refused == id) throw ClientError(place + " refuses the subscription to " + topic);
}

void BusClient::Publish(const std::string& topic, const std::string& payload, bool retain) {
  const Deadline deadline(timeout);
  int id = 0;
  constexpr int kAtLeastOnce = 1;
  Check(mosquitto_publish(handle.get(), &id, topic.c_str(), static_cast<int>(payload.size()),
                          payload.data(), kAtLeastOnce, retain),
        "publish " + topic + " to");
  if (!TurnUntil(deadline, [&] { return confirmed.erase(id) > 0; }))
    deadline.Fail(place + " to take " + topic, "nothing came");
}

void BusClient::Set(std::string_view path, std::string_view value) {
  Publish(bus_topic::kUpdate, SettingsDocument(path, EscapedValue(value)));
}

std::optional<BusMessage> BusClient::TakeReceived() {
  if (received.empty()) return std::nullopt;
  std::optional<BusMessage> first = std::move(received.front());
  received.pop_front();
  return first;
}

std::optional<BusMessage> BusClient::Take() {
  // Some of what comes is no message.
  while (received.empty()) {
    struct pollfd entry = {Descriptor(), POLLIN, 0};
    const bool has_come = poll(&entry, 1, 0) > 0;
    if (lost.empty()) Turn();
    if (received.empty() && !lost.empty()) FailLost();
    if (!has_come) break;
  }
  return TakeReceived();
}

BusMessage BusClient::Await(const std::string& awaited,
                            const std::function<bool(const BusMessage&)>& matches) {
  const Deadline deadline(timeout);
  std::string last;
  while (TurnUntil(deadline, [this] { return !received.empty(); })) {
    BusMessage message = *TakeReceived();
    if (matches(message)) return message;
    last = message.topic + " " + Quoted(message.payload);
    if (deadline.IsOver()) break;
  }
  deadline.Fail(awaited + " from " + place,
                last.empty() ? "nothing came" : "the last that came is " + last);
}

BusMessage BusClient::Next() {
  return Await("a message", [](const BusMessage&) { return true; });
}

BusMessage BusClient::WaitFor(const std::string& topic,
                              const std::function<bool(const BusMessage&)>& matches) {
  return Await(topic, [&](const BusMessage& message) {
    return message.topic == topic && (!matches || matches(message));
  });
}

EventRecord BusClient::NextEvent() {
  return Await("the record of an event",
               [](const BusMessage& message) { return message.IsEvent(); })
      .Event();
}

void BusClient::WaitForHead() {
  WaitFor(bus_topic::kIdentity,
          [](const BusMessage& message) { return message.payload.starts_with("{\""); });
}
