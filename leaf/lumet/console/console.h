#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/socket_server.h"
#include "configurable/text_stream.h"
#include "leaf/lumet/console/console_delivery.h"
#include "leaf/lumet/console/register_console.h"
#include "liborrel/doctavo/doc_tavo.h"

class KeptDocument;

// The application's side of the console service: what clients send, line by line, and what they
// get in return. A line that begins with '<' or '&' is a document for the settings tree; every
// other line is a text command. One client at a time may hold the console role; while there is one,
// the others can't change settings by documents.
class Console {
 public:
  // `doc`, `clients` and `registers` must outlive this. `interface` is the network interface that
  // gives the head its address, `publish_document` tells the bus what the document is now.
  Console(DocTavo& doc, ConsoleDelivery& clients, RegisterConsole& registers, std::string interface,
          bool debug, std::function<void()> publish_document)
      : doc(doc),
        clients(clients),
        registers(registers),
        interface(std::move(interface)),
        debug(debug),
        publish_document(std::move(publish_document)) {}

  void ClientConnected(SocketClient* client);
  void ClientDisconnected(SocketClient* client);
  static void ClientSentTooMuch(SocketClient* client);
  // One line, with its line feed.
  void GotRequest(SocketClient* client, const std::string& text);

  // Runs after anything that may have changed the document: tells every client, runs the standing
  // queries, publishes the document on the bus, and clears the marks.
  void CheckForChanges();

  // Runs before each document from a client or the bus: resets the commands, and fills in clock and
  // address as they are at the moment. Only a different address counts as a change.
  void RefreshDynamicFields();

  bool HasConsole() const { return consoleClient != nullptr; }

 private:
  class DocumentLock;

  void Dispatch(SocketClient* client, const std::string& text);
  void HandleRequestXML(SocketClient* client, const std::string& text);
  void HandleRequestText(SocketClient* client, const std::string& text);
  // In bytes.
  std::size_t LongestReply(const SocketClient& client);
  // Lets `act` write the reply; what it throws becomes an `error` element in it.
  template <class Act>
  void Compose(TextOutput& reply, Act act);
  void AddStandingQuery(SocketClient* client, const std::string& text);
  void RunStandingQuery(SocketClient* client, KeptDocument& query);
  void LoadOutputs(const LumetSocketContext& context);
  void StoreOutputs(LumetSocketContext& context, std::ostream& reply);
  void TakeConsole(SocketClient* client, const std::string& text, std::size_t word_end);
  std::optional<std::string> ConsoleName() const;

  DocTavo& doc;
  ConsoleDelivery& clients;
  RegisterConsole& registers;
  const std::string interface;
  bool debug;
  const std::function<void()> publish_document;
  SocketClient* consoleClient = nullptr;
  std::string consoleName;
  // Shared, since a query whose client fails removes itself while it runs.
  std::vector<std::pair<SocketClient*, std::shared_ptr<KeptDocument>>> standingQueries;
  ValueStreams streams;  // for requests and replies
  // What `clock_text` and `date_text` show: this second in the zone of this change.
  std::time_t shown_second = 0;
  std::uint32_t shown_zone = 0;
  std::string clock_text;
  std::string date_text;
  std::time_t last_address_time = 0;  // when `ipaddress` was read
};
