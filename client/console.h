#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "client/answers.h"
#include "client/deadline.h"
#include "client/lines.h"
#include "client/rows.h"
#include "client/settings.h"

// Where a head is, and how long to wait for it.
struct ConsoleOptions {
  std::string host = "::1";
  int port = LineClient::kConsolePort;
  Timeout timeout = kDefaultTimeout;  // of each wait
  int receive_buffer = 0;             // as ConnectWithin takes it
};

// What a head tells a new client about itself.
struct HeadIdentity {
  std::string model;
  std::string version;
  std::string name;  // of its machine
  std::string serial_number;
  std::optional<std::string> console;  // the name of the client with the console role, if any
};

// What comes from a head: a row, the news of a standing query, or the answer to an Ask.
using ConsoleMessage =
    std::variant<DataRow, EventRow, MessageRow, CaptureRow, PlainRow, Change, NumberedAnswer>;

// A console client of a head.
//
// There are two ways to use it. One waits: Request for settings, Next and its like for what the
// head sends by itself, in the order in which it came. Each wait ends at the latest after the time
// given in the options, with TimedOut. The other never waits: poll Descriptor() for reading, call
// Take until there is nothing more, and send requests by Ask, whose answers Take brings too. What a
// Request has kept does not show at the descriptor, so call Take again after it.
//
// What is wrong with a row, or comes unasked, is a ClientError that costs this one row; a later
// call goes on after it. At the end of the connection each call throws ClientError.
//
// A head drops what it has for a client that leaves megabytes unread, even answers.
class ConsoleClient {
 public:
  // Connects, and reads what a head says at first. Throws TimedOut or ClientError.
  explicit ConsoleClient(const ConsoleOptions& options);
  // A head on this machine.
  explicit ConsoleClient(int port) : ConsoleClient(ConsoleOptions{.port = port}) {}

  // As it was at the connect.
  const HeadIdentity& Head() const { return identity; }
  // The columns of a kind of row, "DATA" from the start on; null before its header row has come.
  std::shared_ptr<const Columns> ColumnsOf(const std::string& row) const {
    return rows.ColumnsOf(row);
  }
  // The names of the bits of DIAG that are set in `diag`, lowest first.
  std::vector<std::string> DiagNames(double diag) const { return rows.DiagNames(diag); }

  // Sends a document and waits for its answer; that shows what was refused. What comes meanwhile is
  // kept for Next and Take. Line feeds in the document become blanks, since one would end it.
  // Throws ClientError for a text that is not a document, or is a standing query.
  Answer Request(std::string_view document);
  // The setting at a path below the head's own element, such as "cfg/fan_duty", or all of those
  // below it. Throws ClientError if the head has none there.
  Element Get(std::string_view path);
  // Sets a value. Throws ClientError with the head's own words when that is refused.
  void Set(std::string_view path, std::string_view value);
  // Sends a text command, such as "Console desk". There is no answer.
  void Command(std::string_view command);
  // Asks for all changes at a path from now on; each comes as a Change. An empty path means all;
  // then the news that another client's request has failed may be taken for the failure of one of
  // one's own that is not answered yet.
  void Watch(std::string_view path);

  // What comes next.
  ConsoleMessage Next();
  // The next row of samples, or of `name`. Passes over all else.
  DataRow NextData(std::string_view name = "DATA");
  // The next event of this name. Passes over all else.
  EventRow WaitForEvent(std::string_view event);
  Change NextChange();

  // The non-blocking way.
  int Descriptor() const { return connection.Descriptor(); }
  // What has come, nothing if there is no more now.
  std::optional<ConsoleMessage> Take();
  // Sends a document, and returns the number that its answer will have. Throws as Request does.
  int Ask(std::string_view document);

  void SetWaitLimit(Timeout limit) { connection.SetWaitLimit(limit); }
  // For work on the socket itself. Lines that are read there are missed here.
  LineClient& Connection() { return connection; }

 private:
  using Received = std::variant<ConsoleMessage, ClientError>;

  void ReadOpening();
  void Receive(std::string line);
  void ReceiveRow(std::string line);
  std::optional<ConsoleMessage> TakeKept();
  // The next message that has come by `deadline`.
  std::optional<ConsoleMessage> Await(const Deadline& deadline);
  // The next one of this kind, for which `matches` holds.
  template <class Wanted, class Matches>
  Wanted WaitFor(const std::string& awaited, Matches matches);
  [[noreturn]] void Fail(const Deadline& deadline, const std::string& awaited) const;

  LineClient connection;
  HeadIdentity identity;
  RowReader rows;
  AnswerReader answers;
  int last_request = 0;
  std::deque<Received> kept;  // received, and not taken
  std::string last_line;
};
