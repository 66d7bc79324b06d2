#include "view/head_feed.h"

#include <utility>

namespace {

using std::chrono::steady_clock;

constexpr Timeout kConnectLimit = std::chrono::seconds(5);
constexpr Timeout kSendLimit = std::chrono::seconds(1);
constexpr auto kPause = std::chrono::seconds(1);  // between attempts
// A head that has said nothing for so long is asked something, and given up when it goes on.
constexpr auto kSilence = std::chrono::seconds(3);
constexpr auto kDeath = std::chrono::seconds(8);
// The longest turn, so that pages are served too.
constexpr auto kLongestTurn = std::chrono::milliseconds(15);
// What is watched: where settings stand. The rest is commands and news.
constexpr const char* kWatched[] = {"cfg", "cal", "factory"};

}  // namespace

HeadFeed::HeadFeed(HostPort head, HostPort broker, Listener& listener)
    : head_place(std::move(head)), bus_place(std::move(broker)), listener(listener) {}

HeadFeed::FoundHead HeadFeed::FindHead(const HostPort& place) {
  FoundHead found;
  found.client = std::make_unique<ConsoleClient>(
      ConsoleOptions{.host = place.host, .port = place.port, .timeout = kConnectLimit});
  // Watched before they are read, so that no change falls in between.
  for (const char* path : kWatched) found.client->Watch(path);
  found.settings = SettingsAt(*found.client, "");
  // The head may call this locked, and does it all the same.
  found.client->Request(SettingsDocument("output/status", "true"));
  found.client->SetWaitLimit(kSendLimit);
  return found;
}

std::unique_ptr<BusClient> HeadFeed::FindBus(const HostPort& place) {
  return std::make_unique<BusClient>(BusOptions{.host = place.host,
                                                .port = place.port,
                                                .topics = {bus_topic::kFlash, bus_topic::kDark},
                                                .timeout = kConnectLimit});
}

template <class Found, class Find, class Lost>
bool HeadFeed::Seek(Link<Found>& link, Find find, Lost lost) {
  const Time now = steady_clock::now();
  if (!link.attempt.valid()) {
    if (now < link.next_attempt) return false;
    link.attempt = std::async(std::launch::async, find);
  }
  if (link.attempt.wait_for(std::chrono::seconds(0)) != std::future_status::ready) return false;
  try {
    link.found = link.attempt.get();
    link.last_reason.clear();
    return true;
  } catch (const std::exception& error) {
    link.next_attempt = now + kPause;
    // Told once, however often it fails in the same way.
    if (std::exchange(link.last_reason, error.what()) != error.what()) lost(error.what());
    return false;
  }
}

void HeadFeed::Turn() {
  TurnHead();
  TurnBus();
}

void HeadFeed::TurnHead() {
  if (!head.found.client) {
    const bool is_found = Seek(
        head, [place = head_place] { return FindHead(place); },
        [this](const std::string& reason) { listener.LostHead(reason); });
    if (!is_found) return;
    last_heard = steady_clock::now();
    has_asked_for_life = false;
    const ConsoleClient& client = *head.found.client;
    listener.FoundHead(client.Head(), *client.ColumnsOf("DATA"), std::move(head.found.settings));
    listener.GotConsole(client.Head().console);
  }
  try {
    for (const Time end = steady_clock::now() + kLongestTurn; steady_clock::now() < end;) {
      try {
        const auto message = head.found.client->Take();
        if (!message) break;
        last_heard = steady_clock::now();
        has_asked_for_life = false;
        Hear(*message);
      } catch (const NoConnection&) {
        throw;
      } catch (const ClientError&) {
        // A damaged row costs this row alone.
      }
    }
    const auto silence = steady_clock::now() - last_heard;
    if (silence > kDeath) throw NoConnection("the head has fallen silent");
    if (silence > kSilence && !std::exchange(has_asked_for_life, true))
      Ask(SettingsDocument("name", "&query;"));
  } catch (const std::exception& error) {
    LoseHead(error.what());
  }
}

void HeadFeed::Hear(const ConsoleMessage& message) {
  if (const auto* row = std::get_if<DataRow>(&message)) {
    if (row->Name() == "DATA") listener.GotRow(*row);
    if (row->Name() == "DATASTAT")
      listener.GotStatus(*row, head.found.client->DiagNames((*row)["DIAG"]));
  } else if (const auto* event = std::get_if<EventRow>(&message)) {
    if (event->event == "CONSOLECONNECTED") listener.GotConsole(event->value);
    if (event->event == "CONSOLEDISCONNECTED") listener.GotConsole(std::nullopt);
  } else if (const auto* text = std::get_if<MessageRow>(&message)) {
    listener.GotMessage(text->text);
  } else if (const auto* change = std::get_if<Change>(&message)) {
    listener.GotChanges(ValuesIn(ReadSettings(change->text).At("tavo"), ""));
  } else if (const auto* found = std::get_if<NumberedAnswer>(&message)) {
    listener.GotAnswer(found->request, found->answer);
  }
}

void HeadFeed::TurnBus() {
  if (!bus.found) {
    const bool is_found = Seek(
        bus, [place = bus_place] { return FindBus(place); },
        [this](const std::string& reason) { listener.LostBus(reason); });
    if (!is_found) return;
    listener.FoundBus();
  }
  try {
    while (const auto message = bus.found->Take()) listener.GotEvent(*message);
  } catch (const std::exception& error) {
    LoseBus(error.what());
  }
}

int HeadFeed::Ask(const std::string& document) const {
  if (!head.found.client) throw NoConnection("the head is not connected");
  return head.found.client->Ask(document);
}

void HeadFeed::LoseHead(const std::string& reason) {
  head.found = {};
  head.next_attempt = steady_clock::now() + kPause;
  head.last_reason = reason;
  listener.LostHead(reason);
}

void HeadFeed::LoseBus(const std::string& reason) {
  bus.found.reset();
  bus.next_attempt = steady_clock::now() + kPause;
  bus.last_reason = reason;
  listener.LostBus(reason);
}
