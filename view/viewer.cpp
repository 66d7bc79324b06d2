#include "view/viewer.h"

#include <algorithm>
#include <iostream>
#include <utility>

#include "client/diag_words.h"

namespace {

using std::chrono::steady_clock;

// What goes to the pages, and what is kept for those that come later.
constexpr double kLiveSpacing = 0.001;  // seconds
constexpr double kPastSpacing = 0.2;
constexpr double kPastSeconds = 3600;
constexpr std::size_t kMostMessages = 20;
constexpr std::size_t kMostPending = 64;
constexpr std::size_t kMostRecords = 16;
constexpr auto kStatePause = std::chrono::seconds(1);
// The first number of a message of rows: what they are.
enum RowsKind { kLiveRows = 0, kPastRows = 1 };

std::size_t ColumnAt(const Columns& columns, const std::string& name) {
  const auto found = std::find(columns.names.begin(), columns.names.end(), name);
  if (found == columns.names.end()) throw ClientError("the head has no column " + Quoted(name));
  return static_cast<std::size_t>(found - columns.names.begin());
}

// Takes as long for a wrong text as for a right one.
bool IsSame(const std::string& told, const std::string& wanted) {
  unsigned differences = told.size() == wanted.size() ? 0 : 1;
  for (std::size_t i = 0; i < told.size(); ++i)
    differences |= static_cast<unsigned char>(told[i] ^ wanted[i % wanted.size()]);
  return differences == 0;
}

std::string Trimmed(const std::string& text) {
  const std::size_t start = text.find_first_not_of(' ');
  return start == std::string::npos ? "" : text.substr(start);
}

}  // namespace

Viewer::Viewer(const HostPort& head_place, const HostPort& broker, const WebServer::Options& web,
               Access access)
    : access(std::move(access)),
      live(kLiveSpacing,
           [this](const std::vector<double>& row) {
             if (batch.empty()) batch.push_back(kLiveRows);
             batch.insert(batch.end(), row.begin(), row.end());
           }),
      coarse(kPastSpacing, [this](const std::vector<double>& row) { past.push_back(row); }),
      feed(head_place, broker, *this),
      server(web, *this) {}

void Viewer::Tell(WebServer::Browser browser, const char* name, const Json::Value& value) {
  Json::Value message;
  message[name] = value;
  server.Send(browser, WebServer::Message::Text(JsonText(message)));
}

void Viewer::TellAll(const char* name, const Json::Value& value) {
  Json::Value message;
  message[name] = value;
  const auto text = WebServer::Message::Text(JsonText(message));
  for (const WebServer::Browser browser : browsers) server.Send(browser, text);
}

// The head and its rows.

void Viewer::FoundHead(const HeadIdentity& identity, const Columns& told_columns,
                       std::vector<Setting> found_settings) {
  std::cerr << "lumet-view: connected to the head " << identity.serial_number << std::endl;
  head = {true, ""};
  if (head_json["columns"] != JsonOf(identity, told_columns)["columns"]) past.clear();
  serial_number = identity.serial_number;
  head_json = JsonOf(identity, told_columns);
  settings = std::move(found_settings);
  TellAll("head", head_json);
  TellAll("settings", JsonOf(settings));
  TellAll("state", State());
}

void Viewer::LostHead(const std::string& reason) {
  std::cerr << "lumet-view: no head: " << reason << std::endl;
  head = {false, reason};
  columns.reset();
  rate = 0;
  for (const auto& [number, each] : std::exchange(pending, {}))
    Reply(each, "the connection to the head was lost before it answered");
  TellAll("state", State());
}

void Viewer::FoundBus() {
  bus = {true, ""};
  TellAll("state", State());
}

void Viewer::LostBus(const std::string& reason) {
  std::cerr << "lumet-view: no message bus, so no events: " << reason << std::endl;
  bus = {false, reason};
  TellAll("state", State());
}

void Viewer::GotRow(const DataRow& row) {
  if (row.columns != columns) {
    f_column = ColumnAt(*row.columns, "LUMET");
    pfd_column = ColumnAt(*row.columns, "PFD");
    code_column = ColumnAt(*row.columns, "CODE");
    columns = row.columns;
  }
  last_time = row.values.front();
  if (rows_since_state++ == 0) first_since_state = last_time;
  before_events.Saw(last_time, static_cast<int>(row.values[code_column]), row.values[f_column],
                    row.values[pfd_column]);
  live.Put(row.values, f_column);
  coarse.Put(row.values, f_column);
  while (!past.empty() &&
         (past.front().front() < last_time - kPastSeconds || past.front().front() > last_time))
    past.pop_front();
}

void Viewer::GotStatus(const DataRow& row, const std::vector<std::string>& diag) {
  status_json = Json::Value();
  status_json["values"] = JsonOf(row);
  status_json["diag"] = Json::Value(Json::arrayValue);
  for (const std::string& bit : diag) status_json["diag"].append(DiagInWords(bit));
  TellAll("status", status_json);
}

void Viewer::GotConsole(const std::optional<std::string>& holder) {
  console = holder;
  TellAll("state", State());
}

void Viewer::GotMessage(const std::string& text) {
  messages.push_back(text);
  if (messages.size() > kMostMessages) messages.pop_front();
  TellAll("message", text);
}

void Viewer::GotChanges(const std::vector<Setting>& changes) {
  for (const Setting& change : changes)
    for (Setting& setting : settings)
      if (setting.path == change.path) setting.value = change.value;
  TellAll("changes", JsonOfValues(changes));
}

void Viewer::GotEvent(const BusMessage& message) {
  if (records.size() >= kMostRecords) {
    std::cerr << "lumet-view: events come faster than they can be read; one is left out"
              << std::endl;
    return;
  }
  records.push_back(std::async(std::launch::async, ReadEvent::Read, message.payload));
}

void Viewer::TakeRecords() {
  while (!records.empty() &&
         records.front().wait_for(std::chrono::seconds(0)) == std::future_status::ready) {
    try {
      ReadEvent read = records.front().get();
      records.pop_front();
      // Other heads may be on the same bus.
      if (read.event.device != serial_number) continue;
      TellAll("event", JsonOf(events.Add(std::move(read), before_events)));
    } catch (const ClientError& error) {
      records.pop_front();
      std::cerr << "lumet-view: " << error.what() << std::endl;
    }
  }
}

// The browsers.

void Viewer::Opened(WebServer::Browser browser) {
  browsers.insert(browser);
  Tell(browser, "access", AccessOf(browser));
  Tell(browser, "state", State());
  if (!head_json.isNull()) Tell(browser, "head", head_json);
  if (!past.empty()) {
    std::vector<double> numbers = {kPastRows};
    for (const std::vector<double>& row : past)
      numbers.insert(numbers.end(), row.begin(), row.end());
    server.Send(browser, WebServer::Message::Numbers(numbers));
  }
  if (!settings.empty()) Tell(browser, "settings", JsonOf(settings));
  if (!status_json.isNull()) Tell(browser, "status", status_json);
  for (const std::string& text : messages) Tell(browser, "message", text);
  for (const EventStore::Kept& each : events.All()) Tell(browser, "event", JsonOf(each));
}

void Viewer::Closed(WebServer::Browser browser) {
  browsers.erase(browser);
  trusted.erase(browser);
}

void Viewer::Got(WebServer::Browser browser, const std::string& text) {
  Request request;
  try {
    request = Request::Parse(text);
    Handle(browser, request);
  } catch (const ClientError& error) {
    Reply({browser, request.id, {}}, error.what());
  }
}

const EventStore::Kept& Viewer::KeptEvent(int key) const {
  if (const EventStore::Kept* const kept = events.Find(key)) return *kept;
  throw ClientError("this event is no longer kept");
}

void Viewer::Handle(WebServer::Browser browser, const Request& request) {
  if (request.token) {
    if (!access.token.empty() && IsSame(*request.token, access.token)) trusted.insert(browser);
    Tell(browser, "access", AccessOf(browser));
  }
  if (request.curve) Tell(browser, "curve", JsonOfCurve(KeptEvent(*request.curve)));
  if (request.record) {
    const EventStore::Kept& kept = KeptEvent(*request.record);
    if (kept.record.empty()) throw ClientError("the whole record is no longer kept");
    Json::Value record;
    record["key"] = kept.key;
    record["text"] = kept.record;
    Tell(browser, "record", record);
  }
  if (!request.assignments.empty()) Set(browser, request);
}

bool Viewer::MayChange(WebServer::Browser browser) const {
  return !access.read_only && (access.token.empty() || trusted.contains(browser));
}

Json::Value Viewer::AccessOf(WebServer::Browser browser) const {
  Json::Value value;
  value["may_change"] = MayChange(browser);
  value["read_only"] = access.read_only;
  return value;
}

void Viewer::Set(WebServer::Browser browser, const Request& request) {
  if (access.read_only) throw ClientError("this page only looks: it was started with --read-only");
  if (!MayChange(browser)) throw ClientError("changes need the token that lumet-view printed");
  if (pending.size() >= kMostPending) throw ClientError("the head still has requests to answer");
  Pending made = {browser, request.id, request.assignments};
  const std::string document = AssignmentRequest(settings, made.assignments);
  const int number = feed.Ask(document);
  pending.emplace(number, std::move(made));
}

void Viewer::GotAnswer(int request, const Answer& answer) {
  const auto found = pending.find(request);
  if (found == pending.end()) return;
  Pending answered = std::move(found->second);
  pending.erase(found);
  std::string error;
  try {
    ReadOutcome(answer, answered.assignments);
  } catch (const ClientError& failure) {
    error = failure.what();
  }
  Reply(answered, error);
}

void Viewer::Reply(const Pending& answered, const std::string& error) {
  Json::Value answer;
  answer["id"] = answered.id;
  answer["error"] = error;
  answer["results"] = JsonOf(answered.assignments);
  Tell(answered.browser, "answer", answer);
}

Json::Value Viewer::State() const {
  Json::Value state;
  state["head"]["up"] = head.is_up;
  state["head"]["reason"] = head.reason;
  state["bus"]["up"] = bus.is_up;
  state["bus"]["reason"] = bus.reason;
  state["rate"] = rate;
  state["time"] = last_time;
  state["thinned"] = rate > 1.05 / kLiveSpacing;
  state["console"] = console ? Json::Value(Trimmed(*console)) : Json::Value();
  state["browsers"] = static_cast<Json::UInt64>(browsers.size());
  return state;
}

void Viewer::Tick() {
  feed.Turn();
  TakeRecords();
  if (!batch.empty()) {
    const auto rows = WebServer::Message::Numbers(std::exchange(batch, {}));
    for (const WebServer::Browser browser : browsers) server.Send(browser, rows);
  }
  const auto now = steady_clock::now();
  if (now - last_state < kStatePause) return;
  last_state = now;
  const double seconds = last_time - first_since_state;
  rate =
      rows_since_state > 1 && seconds > 0 ? static_cast<double>(rows_since_state - 1) / seconds : 0;
  rows_since_state = 0;
  TellAll("state", State());
}
