#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "common/poll_processor.h"

struct mosquitto;
struct mosquitto_message;

// One connection to an MQTT broker, driven by the loop alone: libmosquitto's socket is an item of
// it, its housekeeping a timer, and none of its threads is started.
//
// What the state does not allow is ignored: a publication without a connection is dropped. What the
// library refuses throws Error. A lost connection shows in OnDisconnect alone.
class MQTTClient : public PollItem, public PollTimer {
 public:
  // Hears what the library tells, from inside its calls; the integers are the library's. What it
  // throws leaves the operation of MQTTClient that was under way, or the loop.
  class Listener {
   public:
    // The broker has answered; anything but a `result` of 0 is a refusal.
    virtual void OnConnect(int /*result*/) {}
    // Already disconnected when it comes.
    virtual void OnDisconnect(int /*result*/) {}
    virtual void OnPublish(int /*message_id*/) {}
    virtual void OnMessage(int /*message_id*/, const std::string& /*topic*/,
                           const void* /*payload*/, int /*length*/, int /*qos*/, bool /*retain*/) {}
    virtual void OnSubscribe(int /*message_id*/, int /*count*/, const int* /*granted_qos*/) {}
    virtual void OnUnsubscribe(int /*message_id*/) {}
    virtual void OnLog(int /*level*/, const std::string& /*text*/) {}

   protected:
    ~Listener() = default;
  };

  // `words`, ": MQTTClient: " and the library's text for `code`, or errno's for MOSQ_ERR_ERRNO.
  class Error : public std::runtime_error {
   public:
    Error(const std::string& words, int code);
  };

  // `its_listener` may be null, and must outlive this otherwise. An empty `client_id` lets the
  // broker choose one.
  MQTTClient(Listener* its_listener, const std::string& client_id, bool clean_session);
  // Says goodbye to the broker; the listener hears nothing of it.
  ~MQTTClient() override;

  // From a successful Connect until the end of the connection, whether or not the broker has
  // answered yet.
  bool IsConnected() const { return connected; }

  // What the broker publishes when the connection is lost. While not connected.
  void SetWill(const std::string& topic, const std::string& payload, int qos, bool retain);
  void ClearWill();

  // Resolves and connects before it returns, however long that takes.
  void Connect(const std::string& host, int port, int keepalive_seconds);
  void Disconnect();

  // Each returns the message id, 0 if nothing was sent.
  int Publish(const std::string& topic, int length, const void* payload, int qos, bool retain);
  int Publish(const std::string& topic, const std::string& payload, int qos, bool retain);
  int Subscribe(const std::string& topic, int qos);
  int Unsubscribe(const std::string& topic);

  // Writes what is waiting, as far as the socket takes it.
  void Flush();
  // Writes all that is waiting, for at most `timeout_ms`.
  void Drain(int timeout_ms);

  int GetFD() override;
  void HandleEvents(int revents) override;
  void HandleRead() override;
  void HandleWrite() override;
  void Expired() override;
  const char* GetName() override { return "MQTTClient"; }

 private:
  struct Callbacks;
  struct HandleDeleter {
    void operator()(struct mosquitto* handle) const;
  };

  void Tick();
  void UpdateEvents();
  bool WantsWrite() const;
  // Runs a listener's operation on behalf of the library, which no exception may cross.
  void Tell(const std::function<void(Listener&)>& operation);
  // Runs calls of the library, and fits the loop to what they have changed. Then throws the first
  // that the listener has thrown in the meantime, or else Error with `words` for their code.
  template <class Calls>
  void Run(const std::string& words, Calls calls);

  Listener* listener;
  std::unique_ptr<struct mosquitto, HandleDeleter> client;
  bool connected = false;
  std::exception_ptr caught;  // of the operation that is under way
};
