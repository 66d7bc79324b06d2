#pragma once

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "common/long_text.h"
#include "common/mqtt_publication.h"
#include "common/poll_processor.h"

struct mosquitto;
struct mosquitto_message;

// One connection to an MQTT broker, driven by the loop alone: libmosquitto's socket is an item of
// it, its housekeeping a timer, and none of its threads is started.
//
// What the state does not allow is ignored: a publication without a connection is dropped. What the
// library refuses throws Error. OnDisconnect alone reports a lost connection.
//
// No operation but Drain waits for the broker, whatever that does:
// - The library's own non-blocking connect makes the one connection of an attempt. The library has
//   no way to tell how this ends (it would write to the socket, and take a failure for a lost
//   connection), so the socket itself is asked, on the loop, before the library touches it again.
//   This class takes no host names, since the library would wait for their look-up; see HostLookup.
// - The library makes room for a whole message as soon as one is announced, and answers every
//   packet that asks for it. So it gets to read a packet only when all of it has arrived, and its
//   length and kind are such as a broker may send. Otherwise the connection is closed, with a line
//   on standard output. This holds for as long as everything goes at QoS 0; beyond that the library
//   reads several packets at a time.
// - A long text is published as the socket takes it. What is asked for meanwhile waits for its end,
//   and so does the library's housekeeping, since both may write to the socket.
class MQTTClient : public PollItem, public PollTimer {
 public:
  // Hears what the library reports, from inside its calls; the integers are the library's. What it
  // throws leaves the operation of MQTTClient that was under way, or the loop.
  class Listener {
   public:
    // The broker has answered; anything but a `result` of 0 is a refusal.
    virtual void OnConnect(int /*result*/) {}
    // Called when the client is disconnected already.
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

  // `words`, ": MQTTClient: " and the library's text for `code`, or for MOSQ_ERR_ERRNO the system's
  // for `errnum`, which is the errno of this moment if none is given.
  class Error : public std::runtime_error {
   public:
    Error(const std::string& words, int code, int errnum = errno);
  };

  // The longest packet that is taken from a broker, in bytes. The socket holds it until it is
  // whole.
  static constexpr std::size_t kLongestPacket = std::size_t{256} << 10;

  // `listener` may be null; otherwise it must outlive this. An empty `client_id` lets the broker
  // choose one.
  MQTTClient(Listener* listener, const std::string& client_id, bool clean_session);
  // Says goodbye to the broker; the listener hears nothing of it.
  ~MQTTClient() override;

  // From the moment that there is a connection until its end, whether or not the broker has
  // answered yet.
  bool IsConnected() const { return connected; }

  // What the broker publishes when the connection is lost. While not connected.
  void SetWill(const std::string& topic, const std::string& payload, int qos, bool retain);
  void ClearWill();

  // Begins to connect to `address`, which is numeric, such as "fe80::1%eth0". What fails at once
  // throws; what fails later is reported to `failed`, on the loop, and nobody else hears of it. An
  // attempt that was under way is given up.
  void Connect(const std::string& address, int port, int keepalive_seconds,
               std::function<void(const Error&)> failed);
  // Ends an attempt without telling anybody. False if none was under way.
  bool GiveUpConnecting();
  void Disconnect();

  // Each returns the message id, 0 if nothing was sent, or not yet. If the library refuses later on
  // what has waited for a long publication, that is a line on standard output.
  int Publish(const std::string& topic, int length, const void* payload, int qos, bool retain);
  int Publish(const std::string& topic, const std::string& payload, int qos, bool retain);
  // At QoS 0, and refused unless everything else was. The listener hears of its end with a message
  // id of 0.
  void Publish(const std::string& topic, std::unique_ptr<LongText> text, bool retain);
  int Subscribe(const std::string& topic, int qos);
  int Unsubscribe(const std::string& topic);

  // The bytes of all publications that the connection has not taken yet, except the first of them,
  // which is on its way; and whether there is any publication left.
  std::size_t WaitingBytes() const;
  bool IsAnythingWaiting() const { return !waiting.empty(); }

  // Writes what is waiting, as far as the socket takes it; of a long text, one piece.
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

  // What waits for its turn: a long publication, or else a call of the library for which `words`
  // tell of a failure.
  struct Held {
    std::string words;
    std::function<int(int* message_id)> call;
    std::unique_ptr<MQTTPublication> publication;
  };

  // Finds out how an attempt has ended.
  void FinishConnecting();
  // Looks at the next packet in the socket. True if the library may read it now; otherwise more of
  // it must come, or the connection is over.
  bool NextPacketIsReady();
  // Has the loop wait until `bytes` are in the socket. False if it can't hold so many.
  bool AwaitBytes(std::size_t bytes);
  // Closes the connection now, whatever is waiting.
  void CutOff();
  void Tick();
  void UpdateEvents();
  bool WantsWrite() const;
  // Writes what the library has left, or else goes on with what is held.
  void Write();
  void ContinueHeld();
  void ContinueLong();
  // Runs a call of the library in its turn; returns the message id if that is now.
  int RunInTurn(const std::string& words, std::function<int(int* message_id)> call);
  // Counts a publication among those that wait, until the first of them has gone.
  void Waits(std::size_t bytes);
  void FirstHasGone();
  // Runs a listener's operation on behalf of the library, which no exception may cross.
  void Tell(const std::function<void(Listener&)>& operation);
  // Runs calls of the library, and fits the loop to what they have changed. Then throws the first
  // that the listener has thrown in the meantime, or else Error with `words` for their code.
  template <class Calls>
  void Run(const std::string& words, Calls calls);

  Listener* listener;
  std::unique_ptr<struct mosquitto, HandleDeleter> client;
  bool connected = false;
  std::function<void(const Error&)> connect_failed;  // set while an attempt is under way
  bool all_at_qos_0 = true;
  bool greeted = false;             // the broker has answered
  int awaited = 1;                  // bytes of the next packet that the socket waits for
  std::deque<std::size_t> waiting;  // lengths of publications, in the order of their sending
  std::size_t waiting_bytes = 0;    // their sum
  std::deque<Held> held;
  std::chrono::steady_clock::time_point moved;  // when the first of these last got on
  std::chrono::seconds patience{};              // with a broker that takes nothing of it
  std::exception_ptr caught;                    // of the operation that is under way
};
