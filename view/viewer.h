#pragma once

#include <chrono>
#include <deque>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "view/event_store.h"
#include "view/head_feed.h"
#include "view/messages.h"
#include "view/thinner.h"
#include "view/web_server.h"

// Who may change settings by a page.
struct Access {
  bool read_only = false;
  std::string token;  // what a browser must know for it; empty where none is needed
};

// Joins one head and any number of browsers: tells them what comes from the head, and the head what
// they ask for.
class Viewer : private HeadFeed::Listener, private WebServer::Listener {
 public:
  // Listens, and begins to look for the head. Throws std::runtime_error where it can't listen.
  Viewer(const HostPort& head, const HostPort& broker, const WebServer::Options& web,
         Access access);

  int Port() const { return server.Port(); }
  // Serves until *stop is not 0.
  void Run(const volatile int& stop) { server.Run(stop); }

 private:
  struct Pending {
    WebServer::Browser browser;
    int id;
    std::vector<Assignment> assignments;
  };
  struct Link {
    bool is_up = false;
    std::string reason = "looking for it";
  };

  void FoundHead(const HeadIdentity& identity, const Columns& told_columns,
                 std::vector<Setting> found_settings) override;
  void LostHead(const std::string& reason) override;
  void FoundBus() override;
  void LostBus(const std::string& reason) override;
  void GotRow(const DataRow& row) override;
  void GotStatus(const DataRow& row, const std::vector<std::string>& diag) override;
  void GotConsole(const std::optional<std::string>& holder) override;
  void GotMessage(const std::string& text) override;
  void GotChanges(const std::vector<Setting>& changes) override;
  void GotAnswer(int request, const Answer& answer) override;
  void GotEvent(const BusMessage& message) override;

  void Opened(WebServer::Browser browser) override;
  void Closed(WebServer::Browser browser) override;
  void Got(WebServer::Browser browser, const std::string& text) override;
  void Tick() override;

  void Handle(WebServer::Browser browser, const Request& request);
  void Set(WebServer::Browser browser, const Request& request);
  void TakeRecords();
  // Throws ClientError for one that is not kept.
  const EventStore::Kept& KeptEvent(int key) const;
  void Reply(const Pending& answered, const std::string& error);
  bool MayChange(WebServer::Browser browser) const;
  Json::Value AccessOf(WebServer::Browser browser) const;
  Json::Value State() const;
  void Tell(WebServer::Browser browser, const char* name, const Json::Value& value);
  void TellAll(const char* name, const Json::Value& value);

  Access access;
  std::set<WebServer::Browser> browsers;
  std::set<WebServer::Browser> trusted;  // have shown the token
  std::map<int, Pending> pending;        // by the number of the request

  Link head;
  Link bus;
  std::optional<std::string> console;
  std::string serial_number;
  Json::Value head_json;
  Json::Value status_json;
  std::vector<Setting> settings;
  std::deque<std::string> messages;  // the last ones of the processor
  EventStore events;
  BeforeEvents before_events;
  std::deque<std::future<ReadEvent>> records;  // being read aside, since long ones take their time

  // Columns of the rows.
  std::shared_ptr<const Columns> columns;
  std::size_t f_column = 0;
  std::size_t pfd_column = 0;
  std::size_t code_column = 0;
  Thinner live;
  Thinner coarse;
  std::vector<double> batch;             // thinned rows for the next tick, after what they are
  std::deque<std::vector<double>> past;  // the last hour, coarsely
  std::chrono::steady_clock::time_point last_state{};
  std::size_t rows_since_state = 0;
  double first_since_state = 0;
  double last_time = 0;
  double rate = 0;  // rows per second, by their own times

  // Last, since they call this to their end.
  HeadFeed feed;
  WebServer server;
};
