#include "common/mqtt_client.h"

#include <mosquitto.h>
#include <poll.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

namespace {

constexpr int kTickMs = 1000;

// Brackets all use of the library.
struct Library {
  Library() { mosquitto_lib_init(); }
  ~Library() { mosquitto_lib_cleanup(); }
};
const Library library;

void Check(int code, const std::string& words) {
  if (code != MOSQ_ERR_SUCCESS) throw MQTTClient::Error(words, code);
}

}  // namespace

// What the library calls, with the client as its user data.
struct MQTTClient::Callbacks {
  static MQTTClient& Self(void* object) { return *static_cast<MQTTClient*>(object); }

  static void Connected(struct mosquitto*, void* object, int result) {
    Self(object).Tell([&](Listener& heard_by) { heard_by.OnConnect(result); });
  }
  static void Disconnected(struct mosquitto*, void* object, int result) {
    Self(object).connected = false;
    Self(object).Tell([&](Listener& heard_by) { heard_by.OnDisconnect(result); });
  }
  static void Published(struct mosquitto*, void* object, int message_id) {
    Self(object).Tell([&](Listener& heard_by) { heard_by.OnPublish(message_id); });
  }
  static void Message(struct mosquitto*, void* object, const struct mosquitto_message* message) {
    Self(object).Tell([&](Listener& heard_by) {
      heard_by.OnMessage(message->mid, message->topic, message->payload, message->payloadlen,
                         message->qos, message->retain);
    });
  }
  static void Subscribed(struct mosquitto*, void* object, int message_id, int count,
                         const int* granted_qos) {
    Self(object).Tell(
        [&](Listener& heard_by) { heard_by.OnSubscribe(message_id, count, granted_qos); });
  }
  static void Unsubscribed(struct mosquitto*, void* object, int message_id) {
    Self(object).Tell([&](Listener& heard_by) { heard_by.OnUnsubscribe(message_id); });
  }
  static void Log(struct mosquitto*, void* object, int level, const char* text) {
    Self(object).Tell([&](Listener& heard_by) { heard_by.OnLog(level, text); });
  }
};

MQTTClient::Error::Error(const std::string& words, int code)
    : std::runtime_error(
          words + ": MQTTClient: " +
          (code == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(code))) {}

void MQTTClient::HandleDeleter::operator()(struct mosquitto* handle) const {
  mosquitto_destroy(handle);
}

MQTTClient::MQTTClient(Listener* its_listener, const std::string& client_id, bool clean_session)
    : PollItem(0, true),
      PollTimer(-1, true),
      listener(its_listener),
      client(mosquitto_new(client_id.empty() ? nullptr : client_id.c_str(), clean_session, this)) {
  if (!client) throw Error("Unable to create client", MOSQ_ERR_ERRNO);
  mosquitto_connect_callback_set(client.get(), Callbacks::Connected);
  mosquitto_disconnect_callback_set(client.get(), Callbacks::Disconnected);
  mosquitto_publish_callback_set(client.get(), Callbacks::Published);
  mosquitto_message_callback_set(client.get(), Callbacks::Message);
  mosquitto_subscribe_callback_set(client.get(), Callbacks::Subscribed);
  mosquitto_unsubscribe_callback_set(client.get(), Callbacks::Unsubscribed);
  mosquitto_log_callback_set(client.get(), Callbacks::Log);
}

MQTTClient::~MQTTClient() {
  // The library calls back from inside of both.
  listener = nullptr;
  if (connected) mosquitto_disconnect(client.get());
  client.reset();
}

void MQTTClient::SetWill(const std::string& topic, const std::string& payload, int qos,
                         bool retain) {
  if (connected) return;
  Check(mosquitto_will_set(client.get(), topic.c_str(), static_cast<int>(payload.size()),
                           payload.data(), qos, retain),
        "Unable to set will " + topic);
}

void MQTTClient::ClearWill() {
  if (connected) return;
  Check(mosquitto_will_clear(client.get()), "Unable to clear will.");
}

template <class Calls>
void MQTTClient::Run(const std::string& words, Calls calls) {
  // A listener may run operations in turn, from inside of one; each throws its own.
  const std::exception_ptr outer = std::exchange(caught, nullptr);
  const int code = calls();
  const int errnum = errno;
  UpdateEvents();
  if (const std::exception_ptr thrown = std::exchange(caught, outer))
    std::rethrow_exception(thrown);
  errno = errnum;
  if (code != MOSQ_ERR_SUCCESS) throw Error(words, code);
}

void MQTTClient::Connect(const std::string& host, int port, int keepalive_seconds) {
  Run("Unable to connect", [&] {
    if (connected) return int{MOSQ_ERR_SUCCESS};
    const int code = mosquitto_connect(client.get(), host.c_str(), port, keepalive_seconds);
    connected = code == MOSQ_ERR_SUCCESS;
    return code;
  });
}

void MQTTClient::Disconnect() {
  Run("Unable to disconnect", [&] {
    if (!connected) return int{MOSQ_ERR_SUCCESS};
    const int code = mosquitto_disconnect(client.get());
    connected = false;
    return code;
  });
}

int MQTTClient::Publish(const std::string& topic, int length, const void* payload, int qos,
                        bool retain) {
  int message_id = 0;
  Run("Unable to publish topic " + topic, [&] {
    return connected ? mosquitto_publish(client.get(), &message_id, topic.c_str(), length, payload,
                                         qos, retain)
                     : MOSQ_ERR_SUCCESS;
  });
  return message_id;
}

int MQTTClient::Publish(const std::string& topic, const std::string& payload, int qos,
                        bool retain) {
  return Publish(topic, static_cast<int>(payload.size()), payload.data(), qos, retain);
}

int MQTTClient::Subscribe(const std::string& topic, int qos) {
  int message_id = 0;
  Run("Unable to subscribe to " + topic, [&] {
    return connected ? mosquitto_subscribe(client.get(), &message_id, topic.c_str(), qos)
                     : MOSQ_ERR_SUCCESS;
  });
  return message_id;
}

int MQTTClient::Unsubscribe(const std::string& topic) {
  int message_id = 0;
  Run("Unable to unsubscribe to " + topic, [&] {
    return connected ? mosquitto_unsubscribe(client.get(), &message_id, topic.c_str())
                     : MOSQ_ERR_SUCCESS;
  });
  return message_id;
}

bool MQTTClient::WantsWrite() const { return mosquitto_want_write(client.get()); }

void MQTTClient::Flush() {
  Run("", [&] {
    // A connection that is lost shows in OnDisconnect.
    if (connected && WantsWrite()) mosquitto_loop_write(client.get(), 1);
    return int{MOSQ_ERR_SUCCESS};
  });
}

void MQTTClient::Drain(int timeout_ms) {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  while (connected && WantsWrite()) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    struct pollfd socket = {GetFD(), POLLOUT, 0};
    if (left <= 0 || poll(&socket, 1, static_cast<int>(left)) <= 0) return;
    Flush();
  }
}

int MQTTClient::GetFD() { return mosquitto_socket(client.get()); }

void MQTTClient::HandleEvents(int revents) {
  Run("", [&] {
    PollItem::HandleEvents(revents);
    if (connected) Tick();
    return int{MOSQ_ERR_SUCCESS};
  });
}

void MQTTClient::HandleRead() {
  if (connected) mosquitto_loop_read(client.get(), 1);
}

void MQTTClient::HandleWrite() {
  if (connected) mosquitto_loop_write(client.get(), 1);
}

void MQTTClient::Expired() {
  Run("", [&] {
    if (connected) Tick();
    return int{MOSQ_ERR_SUCCESS};
  });
}

void MQTTClient::Tick() {
  mosquitto_loop_misc(client.get());
  SetTimeout(kTickMs);
}

void MQTTClient::UpdateEvents() {
  if (!connected) {
    SetEvents(0);
    SetTimeout(-1);
    return;
  }
  SetEvents(WantsWrite() ? POLLIN | POLLOUT : POLLIN);
  if (!IsArmed()) SetTimeout(kTickMs);
}

void MQTTClient::Tell(const std::function<void(Listener&)>& operation) {
  if (listener == nullptr) return;
  try {
    operation(*listener);
  } catch (...) {
    if (!caught) caught = std::current_exception();
  }
}
