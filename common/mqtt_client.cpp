#include "common/mqtt_client.h"

#include <linux/close_range.h>
#include <mosquitto.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <utility>

#include "common/mqtt_packet.h"

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
    // A connection that never was is not lost either.
    if (!Self(object).connected) return;
    Self(object).connected = false;
    Self(object).held.clear();
    Self(object).Tell([&](Listener& heard_by) { heard_by.OnDisconnect(result); });
  }
  static void Published(struct mosquitto*, void* object, int message_id) {
    MQTTClient& self = Self(object);
    self.FirstHasGone();
    self.Tell([&](Listener& heard_by) { heard_by.OnPublish(message_id); });
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

MQTTClient::Error::Error(const std::string& words, int code, int errnum)
    : std::runtime_error(
          words + ": MQTTClient: " +
          (code == MOSQ_ERR_ERRNO ? std::strerror(errnum) : mosquitto_strerror(code))) {}

void MQTTClient::HandleDeleter::operator()(struct mosquitto* handle) const {
  mosquitto_destroy(handle);
}

MQTTClient::MQTTClient(Listener* listener, const std::string& client_id, bool clean_session)
    : PollItem(0, true),
      PollTimer(-1, true),
      listener(listener),
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
  // The library calls back from inside both.
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
  // A listener may run further operations from inside one; each throws its own.
  const std::exception_ptr outer = std::exchange(caught, nullptr);
  const int code = calls();
  const int errnum = errno;
  UpdateEvents();
  if (const std::exception_ptr thrown = std::exchange(caught, outer))
    std::rethrow_exception(thrown);
  if (code != MOSQ_ERR_SUCCESS) throw Error(words, code, errnum);
}

void MQTTClient::Connect(const std::string& address, int port, int keepalive_seconds,
                         std::function<void(const Error&)> failed) {
  GiveUpConnecting();
  Run("Unable to connect", [&] {
    if (connected) return int{MOSQ_ERR_SUCCESS};
    waiting.clear();
    waiting_bytes = 0;
    greeted = false;
    awaited = 1;
    // As long as the library waits for an answer to what it says after a silence.
    patience = 2 * std::chrono::seconds(keepalive_seconds);
    const int code =
        mosquitto_connect_async(client.get(), address.c_str(), port, keepalive_seconds);
    const int errnum = errno;
    // The library leaves its descriptors open for every program that is started, even those that it
    // shows to nobody. All others are closed there anyway.
    close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
    if (code == MOSQ_ERR_SUCCESS) connect_failed = std::move(failed);
    errno = errnum;
    return code;
  });
}

bool MQTTClient::GiveUpConnecting() {
  if (!connect_failed) return false;
  connect_failed = nullptr;
  Run("", [&] {
    CutOff();
    return int{MOSQ_ERR_SUCCESS};
  });
  return true;
}

void MQTTClient::FinishConnecting() {
  int errnum = 0;
  socklen_t length = sizeof errnum;
  if (getsockopt(GetFD(), SOL_SOCKET, SO_ERROR, &errnum, &length) != 0) errnum = errno;
  if (errnum == 0) {
    connect_failed = nullptr;
    connected = true;
    return;
  }
  const auto failed = connect_failed;
  GiveUpConnecting();
  failed(Error("Unable to connect", MOSQ_ERR_ERRNO, errnum));
}

// The library has no call that closes its socket and nothing else. It closes a socket that can't be
// written to any more when it next tries to.
void MQTTClient::CutOff() {
  shutdown(GetFD(), SHUT_RDWR);
  mosquitto_disconnect(client.get());
  mosquitto_loop_write(client.get(), 1);
}

void MQTTClient::Disconnect() {
  GiveUpConnecting();
  Run("Unable to disconnect", [&] {
    if (!connected) return int{MOSQ_ERR_SUCCESS};
    const int code = mosquitto_disconnect(client.get());
    connected = false;
    held.clear();
    return code;
  });
}

void MQTTClient::Waits(std::size_t bytes) {
  waiting.push_back(bytes);
  waiting_bytes += bytes;
}

void MQTTClient::FirstHasGone() {
  if (waiting.empty()) return;
  waiting_bytes -= waiting.front();
  waiting.pop_front();
}

int MQTTClient::RunInTurn(const std::string& words, std::function<int(int* message_id)> call) {
  int message_id = 0;
  Run(words, [&] {
    if (connected && held.empty()) return call(&message_id);
    if (connected) held.push_back({words, std::move(call), nullptr});
    return int{MOSQ_ERR_SUCCESS};
  });
  return message_id;
}

int MQTTClient::Publish(const std::string& topic, int length, const void* payload, int qos,
                        bool retain) {
  if (connected && qos > 0) all_at_qos_0 = false;
  const auto bytes = static_cast<std::size_t>(std::max(length, 0));
  const auto publish = [=, this](const void* from, int* message_id) {
    return mosquitto_publish(client.get(), message_id, topic.c_str(), length, from, qos, retain);
  };
  const std::string words = "Unable to publish topic " + topic;
  if (!held.empty()) {
    Waits(bytes);
    const auto kept = std::make_shared<const std::string>(static_cast<const char*>(payload), bytes);
    return RunInTurn(words, [=, this](int* message_id) {
      const int code = publish(kept->data(), message_id);
      if (*message_id == 0) FirstHasGone();
      return code;
    });
  }
  return RunInTurn(words, [&](int* message_id) {
    // Before the call, in which it may be sent.
    Waits(bytes);
    const int code = publish(payload, message_id);
    const bool refused = code != MOSQ_ERR_SUCCESS && *message_id == 0;
    if (refused && !waiting.empty()) {
      waiting.pop_back();
      waiting_bytes -= bytes;
    }
    return code;
  });
}

int MQTTClient::Publish(const std::string& topic, const std::string& payload, int qos,
                        bool retain) {
  return Publish(topic, static_cast<int>(payload.size()), payload.data(), qos, retain);
}

void MQTTClient::Publish(const std::string& topic, std::unique_ptr<LongText> text, bool retain) {
  const std::string words = "Unable to publish topic " + topic;
  if (!all_at_qos_0) throw Error(words, MOSQ_ERR_NOT_SUPPORTED);
  Run(words, [&] {
    const int code = mosquitto_pub_topic_check(topic.c_str());
    if (!connected || code != MOSQ_ERR_SUCCESS) return code;
    Waits(text->Bytes());
    if (held.empty()) moved = std::chrono::steady_clock::now();
    held.push_back({words, {}, std::make_unique<MQTTPublication>(topic, std::move(text), retain)});
    return code;
  });
}

int MQTTClient::Subscribe(const std::string& topic, int qos) {
  if (connected && qos > 0) all_at_qos_0 = false;
  return RunInTurn("Unable to subscribe to " + topic, [=, this](int* message_id) {
    return mosquitto_subscribe(client.get(), message_id, topic.c_str(), qos);
  });
}

int MQTTClient::Unsubscribe(const std::string& topic) {
  return RunInTurn("Unable to unsubscribe to " + topic, [=, this](int* message_id) {
    return mosquitto_unsubscribe(client.get(), message_id, topic.c_str());
  });
}

std::size_t MQTTClient::WaitingBytes() const {
  return waiting.empty() ? 0 : waiting_bytes - waiting.front();
}

bool MQTTClient::WantsWrite() const { return !held.empty() || mosquitto_want_write(client.get()); }

void MQTTClient::Write() {
  // A connection that is lost shows in OnDisconnect.
  if (mosquitto_want_write(client.get()))
    mosquitto_loop_write(client.get(), 1);
  else
    ContinueHeld();
}

void MQTTClient::ContinueHeld() {
  while (connected && !held.empty() && !mosquitto_want_write(client.get())) {
    if (held.front().publication) return ContinueLong();
    const Held next = std::move(held.front());
    held.pop_front();
    int message_id = 0;
    const int code = next.call(&message_id);
    if (code != MOSQ_ERR_SUCCESS) std::cout << Error(next.words, code).what() << "\n";
  }
}

void MQTTClient::ContinueLong() {
  using State = MQTTPublication::State;
  const State state = held.front().publication->Continue(GetFD());
  if (state == State::kWaits) return;
  if (state == State::kBroken) return CutOff();
  moved = std::chrono::steady_clock::now();
  if (state == State::kGoesOn) return;
  const Held ended = std::move(held.front());
  held.pop_front();
  FirstHasGone();
  if (state == State::kTooLong)
    std::cout << Error(ended.words, MOSQ_ERR_PAYLOAD_SIZE).what() << "\n";
  else
    Tell([](Listener& heard_by) { heard_by.OnPublish(0); });
}

void MQTTClient::Flush() {
  Run("", [&] {
    if (connected && WantsWrite()) Write();
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
  if (connect_failed) {
    FinishConnecting();
    if (!connected) return;
  }
  Run("", [&] {
    PollItem::HandleEvents(revents);
    if (connected) Tick();
    return int{MOSQ_ERR_SUCCESS};
  });
}

void MQTTClient::HandleRead() {
  if (connected && NextPacketIsReady()) mosquitto_loop_read(client.get(), 1);
}

bool MQTTClient::NextPacketIsReady() {
  if (!all_at_qos_0) return true;
  std::array<std::uint8_t, MQTTPacketHeader::kLongest> bytes = {};
  const ssize_t peeked = recv(GetFD(), bytes.data(), bytes.size(), MSG_PEEK | MSG_DONTWAIT);
  if (peeked < 0 && (errno == EAGAIN || errno == EINTR)) return false;
  int available = 0;
  // An end or an error is for the library to find out. So is an end in the middle of a packet, the
  // one reason why a socket is ready that has less than was awaited.
  if (peeked <= 0 || ioctl(GetFD(), FIONREAD, &available) != 0 || available < awaited) return true;
  const MQTTPacketHeader packet(bytes.data(), static_cast<std::size_t>(peeked));
  if (packet.malformed) return true;
  const std::size_t needed =
      packet.length != 0 ? packet.length : static_cast<std::size_t>(peeked) + 1;
  const bool is_whole = static_cast<std::size_t>(available) >= needed;
  std::string refusal;
  if (packet.length > kLongestPacket || !AwaitBytes(is_whole ? 1 : needed))
    refusal = std::to_string(packet.length) + " bytes at once";
  else if (!packet.IsExpected(greeted))
    refusal = "what nobody has asked for";
  if (!refusal.empty()) {
    std::cout << "MQTT broker sends " << refusal << ", closing the connection\n";
    CutOff();
    return false;
  }
  if (is_whole) greeted = true;
  return is_whole;
}

bool MQTTClient::AwaitBytes(std::size_t bytes) {
  const int wanted = static_cast<int>(bytes);
  if (wanted == awaited) return true;
  socklen_t length = sizeof awaited;
  setsockopt(GetFD(), SOL_SOCKET, SO_RCVLOWAT, &wanted, sizeof wanted);
  getsockopt(GetFD(), SOL_SOCKET, SO_RCVLOWAT, &awaited, &length);
  return awaited == wanted;
}

void MQTTClient::HandleWrite() {
  if (connected) Write();
}

void MQTTClient::Expired() {
  Run("", [&] {
    if (connected) Tick();
    return int{MOSQ_ERR_SUCCESS};
  });
}

void MQTTClient::Tick() {
  if (held.empty())
    mosquitto_loop_misc(client.get());
  else if (std::chrono::steady_clock::now() - moved > patience)
    CutOff();
  SetTimeout(kTickMs);
}

void MQTTClient::UpdateEvents() {
  if (!connected) {
    SetEvents(connect_failed ? POLLOUT : 0);
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
