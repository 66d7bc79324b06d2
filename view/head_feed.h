#pragma once

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/bus.h"
#include "client/console.h"
#include "client/setting.h"
#include "common/host_port.h"

// All that comes from one head, by one console client and one subscriber of its message bus.
//
// Never waits: connections are made aside, and made again by themselves when they are lost. Call
// Turn often; it calls the listener.
class HeadFeed {
 public:
  // What the feed tells. All in Turn.
  class Listener {
   public:
    virtual ~Listener() = default;
    virtual void FoundHead(const HeadIdentity& identity, const Columns& columns,
                           std::vector<Setting> settings) = 0;
    virtual void LostHead(const std::string& reason) = 0;
    virtual void FoundBus() = 0;
    virtual void LostBus(const std::string& reason) = 0;
    // DATA and DATASTAT, and the names of the bits of DIAG that are set.
    virtual void GotRow(const DataRow& row) = 0;
    virtual void GotStatus(const DataRow& row, const std::vector<std::string>& diag) = 0;
    // CONSOLECONNECTED and CONSOLEDISCONNECTED: who has the console role now.
    virtual void GotConsole(const std::optional<std::string>& console) = 0;
    virtual void GotMessage(const std::string& text) = 0;
    // Settings that were changed, by whomever, without their types.
    virtual void GotChanges(const std::vector<Setting>& changes) = 0;
    virtual void GotAnswer(int request, const Answer& answer) = 0;
    // The record of a flash or dark pulse.
    virtual void GotEvent(const BusMessage& message) = 0;
  };

  // `listener` must outlive this.
  HeadFeed(HostPort head, HostPort broker, Listener& listener);

  // Takes what has come, and sees to the connections. At most a few milliseconds.
  void Turn();
  // Sends a document; its answer will bear the number that is returned. Throws ClientError, also
  // when there is no head.
  int Ask(const std::string& document) const;

 private:
  using Time = std::chrono::steady_clock::time_point;

  // A connection that is made aside, and made again after it was lost or could not be made.
  template <class Found>
  struct Link {
    std::future<Found> attempt;
    Found found;
    Time next_attempt{};
    std::string last_reason;
  };
  struct FoundHead {
    std::unique_ptr<ConsoleClient> client;
    std::vector<Setting> settings;
  };

  static FoundHead FindHead(const HostPort& place);
  static std::unique_ptr<BusClient> FindBus(const HostPort& place);
  void TurnHead();
  void TurnBus();
  // True when an attempt has just succeeded.
  template <class Found, class Find, class Lost>
  bool Seek(Link<Found>& link, Find find, Lost lost);
  void Hear(const ConsoleMessage& message);
  void LoseHead(const std::string& reason);
  void LoseBus(const std::string& reason);

  HostPort head_place;
  HostPort bus_place;
  Listener& listener;
  Link<FoundHead> head;
  Link<std::unique_ptr<BusClient>> bus;
  Time last_heard{};
  bool has_asked_for_life = false;
};
