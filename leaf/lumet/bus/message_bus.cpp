#include "leaf/lumet/bus/message_bus.h"

#include <iostream>
#include <sstream>

#include "common/host_name.h"

namespace {

constexpr const char* kConnectedTopic = "data/DATAEVENT/CONNECTED";
constexpr const char* kDeactivateTopic = "nemra/ROLES/deactivate/tavo";
constexpr int kFirstAttemptMs = 1000;
constexpr int kGoodbyeMs = 1000;

// Does what the library may refuse, for instance when a connection breaks. The message is lost
// then, and nothing else: samples go on, and the disconnect is reported in its turn.
template <class Act>
void Attempt(Act act) {
  try {
    act();
  } catch (const MQTTClient::Error& error) {
    std::cout << error.what() << "\n";
  }
}

}  // namespace

MessageBus::MessageBus(const std::string& broker_address, int broker_port,
                       MQTTClient::Listener* listener, const DocTavo& doc)
    : doc(doc),
      mqtt(listener, "Lumet-" + GetHostName(), true),
      mqttWatcher(mqtt, broker_address, broker_port) {
  mqtt.SetWill(kDeactivateTopic, GetHostName(), 0, false);
  mqttWatcher.SetTimeout(kFirstAttemptMs);
}

void MessageBus::Handle(const std::string& topic, Handler handler) {
  const std::size_t slash = topic.rfind('/');
  if (slash == std::string::npos) return;
  topics.push_back(topic);
  topicHandlers[topic.substr(0, slash)] = std::move(handler);
}

void MessageBus::Connected() {
  std::cout << "MQTT Connected\n";
  mqttWatcher.SetTimeout(-1);
  dropped = 0;
  dropped_what_lasts = false;
  Publish("nemra/ROLES/request/tavo", GetHostName(), true);
  for (const std::string& topic : topics) Attempt([&] { mqtt.Subscribe(topic, 0); });
  topicRoot = "nemra/tavo/";
  PublishWhatLasts();
}

void MessageBus::PublishWhatLasts() {
  PublishDocument();
  PublishRelative(kConnectedTopic, IdentityObject(), true);
}

void MessageBus::Lost() {
  std::cout << "MQTT Disconnected\n";
  mqttWatcher.SetTimeout(kFirstAttemptMs);
}

void MessageBus::Dispatch(const std::string& topic, const std::string& payload) const {
  const std::size_t slash = topic.rfind('/');
  if (slash == std::string::npos) return;
  // Protocol: the last element of the topic takes no part; only the subscription keeps others out.
  const auto found = topicHandlers.find(topic.substr(0, slash));
  if (found != topicHandlers.end()) found->second(found->first, topic.substr(slash + 1), payload);
}

void MessageBus::Published() {
  if (dropped == 0 || mqtt.IsAnythingWaiting()) return;
  std::cout << "MQTT broker takes what is published again, " << std::exchange(dropped, 0)
            << " publications were dropped\n";
  if (std::exchange(dropped_what_lasts, false)) PublishWhatLasts();
}

bool MessageBus::FindRoom(std::size_t bytes, bool lasts) {
  if (!IsConnected() || !mqtt.IsAnythingWaiting() || mqtt.WaitingBytes() + bytes <= kMostWaiting)
    return true;
  if (dropped++ == 0)
    std::cout << "MQTT broker does not take what is published, dropping what finds no room\n";
  dropped_what_lasts |= lasts;
  return false;
}

void MessageBus::Publish(const std::string& topic, const std::string& payload, bool retain) {
  if (FindRoom(payload.size(), retain)) Attempt([&] { mqtt.Publish(topic, payload, 0, retain); });
}

void MessageBus::PublishRelative(const std::string& name, const std::string& payload, bool retain) {
  // Before the first broker has answered, there is nowhere to publish.
  if (!topicRoot.empty()) Publish(topicRoot + name, payload, retain);
}

void MessageBus::PublishRelative(const std::string& name, std::unique_ptr<LongText> payload,
                                 bool retain) {
  if (!topicRoot.empty() && FindRoom(payload->Bytes(), retain))
    Attempt([&] { mqtt.Publish(topicRoot + name, std::move(payload), retain); });
}

void MessageBus::PublishDocument() {
  if (!IsConnected()) return;
  const auto publish = [this](const char* name, auto print) {
    std::ostringstream text;
    set_compact(text, true);
    (doc.*print)(text) << "\n";
    PublishRelative(name, text.str(), true);
  };
  publish("xml/doc", &Configurable::print_tree);
  publish("xml/changes", &Configurable::print_changes);
}

std::string MessageBus::IdentityObject() const {
  // Protocol: names and serial number are written as they are, without escapes.
  return std::string(R"({"MODEL":"TAVO","VERSION":")")
      .append(doc.Conf().Ver().get())
      .append(R"(","NAME":")")
      .append(GetHostName())
      .append(R"(","SN":")")
      .append(doc.Conf().Factory().Serialnumber().get())
      .append(R"("})");
}

void MessageBus::SayGoodbye() {
  PublishRelative(kConnectedTopic, "{}", true);
  Publish(kDeactivateTopic, GetHostName(), false);
  mqtt.Drain(kGoodbyeMs);
}

void MessageBus::MoveTo(const std::string& address, const std::string& service_name) {
  if (address == brokerAddress) return;
  mqttWatcher.SetHost(address);
  Attempt([&] { mqtt.Disconnect(); });
  mqttWatcher.SetTimeout(kFirstAttemptMs);
  brokerAddress = address;
  brokerServiceName = service_name;
}
