#pragma once

#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/platform.h"
#include "common/socket_server.h"
#include "leaf/lumet/bus/message_bus.h"
#include "leaf/lumet/console/console_delivery.h"
#include "leaf/lumet/console/register_console.h"
#include "liborrel/doctavo/doc_tavo.h"

// The application's side of the console service: what clients send, line by line, and what they
// hear of it. A line that begins with '<' or '&' is a document for the settings tree; every other
// line is a text command. One client at a time may hold the console role; while there is one, the
// others can't change settings by documents.
class Console {
 public:
  // All must outlive this.
  Console(DocTavo& document, ConsoleDelivery& delivery, RegisterConsole& register_console,
          MessageBus& message_bus, const Platform& where, bool debug_lines)
      : doc(document),
        clients(delivery),
        registers(register_console),
        bus(message_bus),
        platform(where),
        debug(debug_lines) {}

  void ClientConnected(SocketClient* client);
  void ClientDisconnected(SocketClient* client);
  // One line, with its line feed.
  void GotRequest(SocketClient* client, const std::string& text);

  // Runs after anything that may have changed the document: tells every client, runs the standing
  // queries, publishes the document on the bus, and clears the marks.
  void CheckForChanges();

  // Runs ahead of each document of a client or the bus: resets the commands, and fills in what is
  // of the moment, clock and address. Only an address that is another one counts as a change.
  void RefreshDynamicFields();

  bool HasConsole() const { return consoleClient != nullptr; }

 private:
  class DocumentLock;

  void Dispatch(SocketClient* client, const std::string& text);
  void HandleRequestXML(SocketClient* client, const std::string& text);
  void HandleRequestText(SocketClient* client, const std::string& text);
  // What document request it answers, its reply: errors that are thrown become its `error` element.
  template <class Answer>
  std::string Reply(Answer answer);
  void RunStandingQuery(SocketClient* client, const std::string& text);
  void LoadOutputs(const LumetSocketContext& context);
  void StoreOutputs(LumetSocketContext& context, std::ostream& reply);
  void TakeConsole(SocketClient* client, const std::string& text, std::size_t word_end);
  std::optional<std::string> ConsoleName() const;

  DocTavo& doc;
  ConsoleDelivery& clients;
  RegisterConsole& registers;
  MessageBus& bus;
  const Platform& platform;
  bool debug;
  SocketClient* consoleClient = nullptr;
  std::string consoleName;
  std::vector<std::pair<SocketClient*, std::string>> standingQueries;
  std::time_t last_address_time = 0;  // when `ipaddress` was read
};
