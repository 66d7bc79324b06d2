#include "client/console.h"

#include <algorithm>
#include <utility>

namespace {

// A document as one line, without what would end it too early.
std::string AsLine(std::string_view document) {
  const std::size_t start = document.find_first_not_of(" \t\r\n");
  if (start == std::string_view::npos || (document[start] != '<' && document[start] != '&'))
    throw ClientError("this is no document for a head: " + Quoted(document));
  std::string line(document.substr(start));
  std::replace(line.begin(), line.end(), '\n', ' ');
  return line + "\n";
}

bool IsStandingQuery(std::string_view document) {
  return document.find("&query_changes") != std::string_view::npos;
}

}  // namespace

ConsoleClient::ConsoleClient(const ConsoleOptions& options)
    : connection(options.port, options.host, options.timeout, options.receive_buffer) {
  ReadOpening();
}

void ConsoleClient::ReadOpening() {
  const Deadline deadline(connection.WaitLimit());
  const std::string awaited = "the greeting of the head at " + connection.Peer();
  while (auto message = Await(deadline)) {
    if (const auto* row = std::get_if<EventRow>(&*message)) {
      if (row->event == "MODEL") identity.model = row->value;
      if (row->event == "VERSION") identity.version = row->value;
      if (row->event == "NAME") identity.name = row->value;
      if (row->event == "SN") identity.serial_number = row->value;
      if (row->event == "CONSOLECONNECTED") identity.console = row->value;
    }
    if (const auto* row = std::get_if<PlainRow>(&*message);
        row != nullptr && row->name == "DATADIAGH") {
      if (!identity.model.empty() && rows.ColumnsOf("DATA")) return;
      throw ClientError("what answers at " + connection.Peer() + " is no head");
    }
  }
  Fail(deadline, awaited);
}

void ConsoleClient::Receive(std::string line) {
  last_line = line;
  const bool is_row = !answers.IsInside() && RowReader::IsRow(line);
  if (is_row)
    answers.PassRow();
  else
    answers.Put(line);
  while (auto found = answers.Next()) {
    if (auto* change = std::get_if<Change>(&*found)) kept.emplace_back(std::move(*change));
    if (auto* answer = std::get_if<NumberedAnswer>(&*found)) kept.emplace_back(std::move(*answer));
    if (auto* error = std::get_if<ClientError>(&*found)) kept.emplace_back(std::move(*error));
  }
  if (is_row) ReceiveRow(std::move(line));
}

void ConsoleClient::ReceiveRow(std::string line) {
  try {
    std::visit(
        [&](auto&& row) { kept.emplace_back(ConsoleMessage(std::forward<decltype(row)>(row))); },
        rows.Read(std::move(line)));
  } catch (const ClientError& error) {
    kept.emplace_back(error);
  }
}

std::optional<ConsoleMessage> ConsoleClient::TakeKept() {
  if (kept.empty()) return std::nullopt;
  const Received first = std::move(kept.front());
  kept.pop_front();
  if (const auto* error = std::get_if<ClientError>(&first)) throw *error;
  return std::get<ConsoleMessage>(first);
}

std::optional<ConsoleMessage> ConsoleClient::Take() {
  while (kept.empty()) {
    auto line = connection.TakeLine();
    if (!line) return std::nullopt;
    Receive(*std::move(line));
  }
  return TakeKept();
}

std::optional<ConsoleMessage> ConsoleClient::Await(const Deadline& deadline) {
  while (kept.empty()) {
    auto line = connection.NextLine(deadline);
    if (!line) return std::nullopt;
    Receive(*std::move(line));
  }
  return TakeKept();
}

void ConsoleClient::Fail(const Deadline& deadline, const std::string& awaited) const {
  deadline.Fail(awaited,
                last_line.empty() ? "nothing came" : "the last that came is " + Quoted(last_line));
}

int ConsoleClient::Ask(std::string_view document) {
  if (IsStandingQuery(document))
    throw ClientError("a standing query has no answer: " + Quoted(document));
  connection.Send(AsLine(document));
  answers.Expect(++last_request, document);
  return last_request;
}

Answer ConsoleClient::Request(std::string_view document) {
  const Deadline deadline(connection.WaitLimit());
  const int number = Ask(document);
  while (auto line = connection.NextLine(deadline)) {
    const std::size_t before = kept.size();
    Receive(*std::move(line));
    for (std::size_t i = before; i < kept.size(); ++i) {
      const auto* message = std::get_if<ConsoleMessage>(&kept[i]);
      const auto* found = message != nullptr ? std::get_if<NumberedAnswer>(message) : nullptr;
      if (found == nullptr || found->request != number) continue;
      Answer answer = found->answer;
      kept.erase(kept.begin() + static_cast<std::ptrdiff_t>(i));
      return answer;
    }
    if (deadline.IsOver()) break;
  }
  Fail(deadline, "the answer to " + Quoted(document));
}

Element ConsoleClient::Get(std::string_view path) {
  const Answer answer = Request(SettingsDocument(path, "&query;"));
  answer.Check();
  const std::vector<Element> elements = answer.Elements();
  if (elements.empty()) throw ClientError("the head has no setting " + Quoted(path));
  const Element& head = elements.front().At("tavo");
  return path.empty() ? head : head.At(path);
}

void ConsoleClient::Set(std::string_view path, std::string_view value) {
  if (value.find('\n') != std::string_view::npos)
    throw ClientError("a value can't hold a line feed: " + Quoted(value));
  Request(SettingsDocument(path, EscapedValue(value))).Check();
}

void ConsoleClient::Command(std::string_view command) {
  if (command.starts_with('<') || command.starts_with('&') ||
      command.find('\n') != std::string_view::npos)
    throw ClientError("this is no text command: " + Quoted(command));
  connection.Send(std::string(command) + "\n");
}

void ConsoleClient::Watch(std::string_view path) {
  answers.ExpectChanges();
  connection.Send(SettingsDocument(path, "&query_changes;") + "\n");
}

ConsoleMessage ConsoleClient::Next() {
  const Deadline deadline(connection.WaitLimit());
  if (auto message = Await(deadline)) return *std::move(message);
  Fail(deadline, "anything from " + connection.Peer());
}

template <class Wanted, class Matches>
Wanted ConsoleClient::WaitFor(const std::string& awaited, Matches matches) {
  const Deadline deadline(connection.WaitLimit());
  while (auto message = Await(deadline)) {
    if (auto* wanted = std::get_if<Wanted>(&*message); wanted && matches(*wanted))
      return std::move(*wanted);
    if (deadline.IsOver()) break;
  }
  Fail(deadline, awaited);
}

DataRow ConsoleClient::NextData(std::string_view name) {
  return WaitFor<DataRow>("a row " + std::string(name),
                          [name](const DataRow& row) { return row.Name() == name; });
}

EventRow ConsoleClient::WaitForEvent(std::string_view event) {
  return WaitFor<EventRow>("the event " + std::string(event),
                           [event](const EventRow& row) { return row.event == event; });
}

Change ConsoleClient::NextChange() {
  return WaitFor<Change>("the change of a setting", [](const Change&) { return true; });
}
