#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "common/long_text.h"
#include "common/mqtt_client.h"
#include "common/mqtt_connection_watcher.h"
#include "liborrel/doctavo/doc_tavo.h"

// What the head says on the message bus that it shares with its console unit and its sibling heads,
// and how it finds a broker. What is said while there is no connection is lost; everything that
// lasts is said again at every connect.
//
// What a slow broker has not taken yet waits in memory, up to kMostWaiting; the one publication
// that is on its way does not count, so that there is room for an event of any length. What finds
// no room is dropped, with a line on standard output for the first and one with their number when
// there is room again. What lasts is said again then.
class MessageBus {
 public:
  static constexpr std::size_t kMostWaiting = std::size_t{16} << 20;  // bytes

  // Takes a message: its topic up to the last '/', the rest of the topic, and the payload.
  using Handler = std::function<void(const std::string& prefix, const std::string& leaf,
                                     const std::string& payload)>;

  // Tries the broker, for the first time after one second. All must outlive this; `listener` hands
  // what it hears to the operations below.
  MessageBus(const std::string& broker_address, int broker_port, MQTTClient::Listener* listener,
             const DocTavo& doc);

  // `topic` is subscribed to at each connect, in the order of these calls. One without a '/' is
  // ignored.
  void Handle(const std::string& topic, Handler handler);

  // What to do when the broker has answered, is lost, has taken a publication, or sends a message.
  // The last element of a message's topic takes no part in finding the handler; messages that
  // nobody handles are ignored.
  void Connected();
  void Lost();
  void Published();
  void Dispatch(const std::string& topic, const std::string& payload) const;

  // Whether anything that is published now goes anywhere.
  bool IsConnected() const { return mqtt.IsConnected(); }
  // Publishes under the head's own topics. A failure is a line on standard output.
  void PublishRelative(const std::string& name, const std::string& payload, bool retain);
  void PublishRelative(const std::string& name, std::unique_ptr<LongText> payload, bool retain);
  // Publishes the whole document, and what has changed in it.
  void PublishDocument();
  // Takes back what lasts, and waits until that has left, for a second at most.
  void SayGoodbye();

  // Moves to the broker at `address` that was found with the console unit `service_name`, at once,
  // unless it is there already.
  void MoveTo(const std::string& address, const std::string& service_name);

 private:
  void Publish(const std::string& topic, const std::string& payload, bool retain);
  // Whether there is room for a payload that takes `bytes` of memory. One that lasts is said again.
  bool FindRoom(std::size_t bytes, bool lasts);
  // Publishes all that lasts of the head itself.
  void PublishWhatLasts();
  std::string IdentityObject() const;

  const DocTavo& doc;
  MQTTClient mqtt;
  MQTTConnectionWatcher mqttWatcher;
  std::string topicRoot;  // empty until the first connect
  std::vector<std::string> topics;
  std::unordered_map<std::string, Handler> topicHandlers;  // by topic up to the last '/'
  // What was dropped for lack of room: how many publications, and whether one of them would
  // have lasted.
  std::size_t dropped = 0;
  bool dropped_what_lasts = false;
  // Where the broker was found; both are empty while it is the first one.
  std::string brokerAddress;
  std::string brokerServiceName;
};
