#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "client/deadline.h"
#include "client/event_record.h"
#include "client/settings.h"

struct mosquitto;

// The topics of a head.
namespace bus_topic {
inline const std::string kAll = "nemra/#";
inline const std::string kIdentity = "nemra/tavo/data/DATAEVENT/CONNECTED";
inline const std::string kDocument = "nemra/tavo/xml/doc";
inline const std::string kChanges = "nemra/tavo/xml/changes";
inline const std::string kUpdate = "nemra/tavo/xml/update";
inline const std::string kData = "nemra/tavo/output/DATA";
inline const std::string kStatus = "nemra/tavo/output/DATASTAT";
inline const std::string kFlash = "nemra/tavo/output/DATAFLASHEVENT";
inline const std::string kDark = "nemra/tavo/output/DATADARKEVENT";
}  // namespace bus_topic

struct BusMessage {
  std::string topic;
  std::string payload;
  bool retained = false;  // it was published before the subscription

  bool IsEvent() const { return topic == bus_topic::kFlash || topic == bus_topic::kDark; }
  // Each throws ClientError for a payload of another kind.
  // Of kFlash and kDark.
  EventRecord Event() const { return EventRecord::Parse(payload); }
  // Of kData and kStatus: the columns by their names.
  std::map<std::string, double> Values() const;
  // Of kDocument and kChanges.
  Element Settings() const { return ReadSettings(payload); }
};

// Where the broker is, what to hear, and how long to wait.
struct BusOptions {
  std::string host = "::1";
  int port = 1883;
  std::vector<std::string> topics = {bus_topic::kAll};  // may be none
  Timeout timeout = kDefaultTimeout;                    // of each wait
};

// A client of the message bus that heads publish to.
//
// As with ConsoleClient, there are two ways to use it: one that waits, and Descriptor() with Take.
// What fails throws ClientError, and a wait in vain ends with TimedOut.
class BusClient {
 public:
  // Connects, and subscribes; what comes after that is not missed.
  explicit BusClient(const BusOptions& options);
  ~BusClient();
  BusClient(const BusClient&) = delete;
  BusClient& operator=(const BusClient&) = delete;

  // Returns when the broker has it.
  void Publish(const std::string& topic, const std::string& payload, bool retain = false);
  // Sets a value below the head's own element. There is no answer; the head publishes kChanges.
  void Set(std::string_view path, std::string_view value);

  // What comes next.
  BusMessage Next();
  // What comes next on `topic`, for which `matches` holds. Passes over all else.
  BusMessage WaitFor(const std::string& topic,
                     const std::function<bool(const BusMessage&)>& matches = {});
  // The record of the next flash or dark pulse. Passes over all else.
  EventRecord NextEvent();
  // Waits until a head is on the bus, and has published and subscribed to all that it does at a
  // connect.
  void WaitForHead();

  // The non-blocking way: poll for Events(), which change, and call Take until there is nothing
  // more, at least every second, since it keeps the connection alive too.
  int Descriptor() const;
  short Events() const;
  std::optional<BusMessage> Take();

  void SetWaitLimit(Timeout limit) { timeout = limit; }

 private:
  struct Callbacks;
  struct HandleDeleter {
    void operator()(struct mosquitto* handle) const;
  };

  // Does what the socket allows and the library wants.
  void Turn();
  // Turns until `done`. False at the deadline.
  bool TurnUntil(const Deadline& deadline, const std::function<bool()>& done);
  [[noreturn]] void FailLost() const;
  // The next message for which `matches` holds.
  BusMessage Await(const std::string& awaited,
                   const std::function<bool(const BusMessage&)>& matches);
  void Check(int code, const std::string& act) const;
  void Subscribe(const std::string& topic);
  std::optional<BusMessage> TakeReceived();

  std::string place;
  Timeout timeout;
  std::unique_ptr<struct mosquitto, HandleDeleter> handle;
  std::deque<BusMessage> received;
  std::set<int> confirmed;      // publications and subscriptions that the broker has taken
  std::optional<int> refused;   // the subscription that it has refused
  std::optional<int> greeting;  // its answer to the connect
  std::string lost;             // why the connection is over
};
