#include "leaf/lumet/console/console.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <ctime>
#include <iostream>
#include <memory>
#include <sstream>

#include "common/host_name.h"
#include "common/network_interface.h"
#include "common/str_util.h"
#include "configurable/kept_document.h"
#include "configurable/number_text.h"
#include "configurable/text_stream.h"
#include "leaf/lumet/bounds.h"
#include "leaf/lumet/console/rows.h"

namespace {

void Assign(std::uint32_t& flags, LumetSocketContext::Output output, bool on) {
  flags = on ? flags | output : flags & ~std::uint32_t{output};
}

bool Contains(std::string_view word, std::string_view part) {
  return word.find(part) != std::string_view::npos;
}

bool ContainsInAnyCase(std::string_view word, std::string_view part) {
  return CaseInsensitiveStringFind(word, part, 0) >= 0;
}

}  // namespace

// Locks the document against everybody but the console for the length of a request.
class Console::DocumentLock {
 public:
  DocumentLock(DocTavo& document, bool needed) : doc(needed ? &document : nullptr) {
    if (doc != nullptr) doc->set_locked(true);
  }
  ~DocumentLock() {
    if (doc != nullptr) doc->set_locked(false);
  }
  DocumentLock(const DocumentLock&) = delete;
  DocumentLock& operator=(const DocumentLock&) = delete;

 private:
  DocTavo* doc;
};

void Console::ClientConnected(SocketClient* client) {
  if (clients.Count() >= bounds::kClients) {
    ConsoleDelivery::SendLast(client,
                              DataMsgRow("", "There are too many clients; try again later"));
    return client->Close();
  }
  client->SetContext(std::make_shared<LumetSocketContext>());
  clients.SendToClient(client,
                       OpeningBlock(doc.Conf().Ver().get(), GetHostName(),
                                    doc.Conf().Factory().Serialnumber().get(), ConsoleName()),
                       BacklogLimit::kReply);
}

void Console::ClientDisconnected(SocketClient* client) {
  if (client == consoleClient) {
    consoleClient = nullptr;
    consoleName.clear();
    clients.SendToAll("DATAEVENT\tCONSOLEDISCONNECTED\n", BacklogLimit::kReply);
  }
  std::erase_if(standingQueries, [client](const auto& query) { return query.first == client; });
}

std::optional<std::string> Console::ConsoleName() const {
  return HasConsole() ? std::optional(consoleName) : std::nullopt;
}

void Console::GotRequest(SocketClient* client, const std::string& text) {
  try {
    Dispatch(client, text);
    CheckForChanges();
  } catch (const std::exception&) {
    std::cout << "GotRequest: Error with request: " << text;
  } catch (...) {
    std::cout << "GotRequest: Error with request\n";
  }
}

void Console::Dispatch(SocketClient* client, const std::string& text) {
  if (text.empty()) return;
  if (text[0] != '<' && text[0] != '&')
    HandleRequestText(client, text);
  else if (Contains(text, "&query_changes"))
    AddStandingQuery(client, text);
  else
    HandleRequestXML(client, text);
}

void Console::AddStandingQuery(SocketClient* client, const std::string& text) {
  std::size_t own = 0;
  std::size_t bytes = text.size();
  for (const auto& [other, query] : standingQueries) {
    if (other == client) ++own;
    bytes += query->Text().size();
  }
  const char* refusal = own >= bounds::kStandingQueries               ? "Too many standing queries"
                        : text.size() > bounds::kLongestStandingQuery ? "Standing query too long"
                        : bytes > bounds::kStandingInAll ? "No room for one more standing query"
                                                         : nullptr;
  if (refusal == nullptr) {
    standingQueries.emplace_back(client, std::make_shared<KeptDocument>(text));
    return;
  }
  std::ostringstream reply;
  set_compact(reply, true);
  doc.report_error(reply, refusal) << "\n";
  clients.SendToClient(client, reply.str(), BacklogLimit::kReply);
}

std::size_t Console::LongestReply(const SocketClient& client) {
  constexpr std::size_t kErrorRoom = 1024;
  return std::min(bounds::kLongestAnswer, std::max(clients.Room(client), kErrorRoom));
}

template <class Act>
void Console::Compose(TextOutput& reply, Act act) {
  set_compact(reply, true);
  try {
    act();
  } catch (const TextOutput::TooLong& error) {
    reply.Close();
    reply.SetLimit(TextOutput::kNoLimit);
    doc.report_error(reply, error.what()) << "\n";
  } catch (const std::exception& error) {
    doc.report_error(reply, error.what()) << "\n";
  }
}

void Console::ClientSentTooMuch(SocketClient* client) {
  ConsoleDelivery::SendLast(client, DataMsgRow("", "A line is too long; the connection ends"));
}

void Console::HandleRequestXML(SocketClient* client, const std::string& text) {
  if (debug) std::cout << "XML Request: " << text;
  LumetSocketContext& context = *LumetSocketContext::Of(*client);
  const Borrowed reply(streams.outputs, LongestReply(*client));
  std::optional<DocumentLock> lock;
  Compose(*reply, [&] {
    RefreshDynamicFields();
    LoadOutputs(context);
    lock.emplace(doc, HasConsole() && client != consoleClient);
    const Borrowed in(streams.inputs, std::string_view(text));
    doc.request(*in, *reply);
    WriteText(*reply, "\n");
    WriteText(doc.print_ack(*reply), "\n");
    StoreOutputs(context, *reply);
  });
  lock.reset();
  if (debug) std::cout << "XML Response: " << reply->Text();
  clients.SendToClient(client, reply->Text(), BacklogLimit::kReply);
}

void Console::RefreshDynamicFields() {
  ConfigTavo& tavo = doc.Conf();
  ConfigCfgClock& clock = tavo.Cfg().Clock();
  // Noted before anything is refreshed, since its change marks climb.
  const bool clock_was_changed = clock.has_changed();
  const bool doc_was_changed = doc.has_changed();
  doc.reset_commands();
  tavo.Cmd().set_changed(false);

  const std::time_t now = std::time(nullptr);
  const std::uint32_t zone = clock.Zone().change_count();
  if (clock_text.empty() || now != shown_second || zone != shown_zone) {
    struct tm local = {};
    localtime_r(&now, &local);
    std::array<char, 16> text = {};
    std::strftime(text.data(), text.size(), "%H:%M:%S", &local);
    clock_text = text.data();
    std::strftime(text.data(), text.size(), "%Y-%m-%d", &local);
    date_text = text.data();
    shown_second = now;
    shown_zone = zone;
  }
  clock.Time().set(clock_text);
  clock.Date().set(date_text);
  clock.TimeT().set(static_cast<int>(now));
  // A refresh alone never counts as a change.
  Configurable& refreshed = clock_was_changed ? static_cast<Configurable&>(clock)
                            : doc_was_changed ? static_cast<Configurable&>(tavo.Cfg())
                                              : static_cast<Configurable&>(doc);
  refreshed.set_changed(false);

  constexpr std::time_t kAddressAge = 14;  // seconds
  if (now - last_address_time <= kAddressAge) return;
  tavo.Ipaddress().set(NetworkInterface::Read(interface).address.ToString());
  last_address_time = now;
}

void Console::LoadOutputs(const LumetSocketContext& context) {
  // The leaves are one scratch copy for all clients; a mark that this leaves counts.
  ConfigOutputTavo& output = doc.Conf().Output();
  const auto is_on = [&](LumetSocketContext::Output bit) {
    return (context.outputFlags & bit) != 0;
  };
  output.Status().set(is_on(LumetSocketContext::kStatus));
  output.Waveforms().set(is_on(LumetSocketContext::kWaveforms));
  output.Dataclock().set(is_on(LumetSocketContext::kDataClock));
  output.Datatest().set(is_on(LumetSocketContext::kDataTest));
  output.Datarawcapture().set(is_on(LumetSocketContext::kDataRawCapture));
}

void Console::StoreOutputs(LumetSocketContext& context, std::ostream& reply) {
  ConfigOutputTavo& output = doc.Conf().Output();
  const std::uint32_t before = context.outputFlags;
  std::uint32_t& flags = context.outputFlags;
  Assign(flags, LumetSocketContext::kStatus, output.Status().get());
  Assign(flags, LumetSocketContext::kWaveforms, output.Waveforms().get());
  Assign(flags, LumetSocketContext::kDataClock, output.Dataclock().get());
  Assign(flags, LumetSocketContext::kDataTest, output.Datatest().get());
  Assign(flags, LumetSocketContext::kDataRawCapture, output.Datarawcapture().get());
  const std::uint32_t turned_on = flags & ~before;
  if ((turned_on & LumetSocketContext::kStatus) != 0)
    reply << NamesRow("DATASTATH", StatusChannels()) << UnitsRow("DATASTATU", StatusChannels());
  if ((turned_on & LumetSocketContext::kDataClock) != 0) reply << kDataClockHeader;
}

void Console::CheckForChanges() {
  if (!doc.has_changed()) return;
  if (doc.Conf().needs_saving())
    clients.SendToAll("DATAEVENT\tCONFIGCHANGED\n", BacklogLimit::kReply);
  // By index: a query whose client fails meanwhile removes itself.
  for (std::size_t i = 0; i < standingQueries.size(); ++i) {
    const auto [client, query] = standingQueries[i];
    // Its answer would be lost, and need not be composed.
    if (client->IsOpen() && client->Backlog() < BacklogLimit::kReply)
      RunStandingQuery(client, *query);
  }
  publish_document();
  doc.set_changed(false);
}

void Console::RunStandingQuery(SocketClient* client, KeptDocument& query) {
  if (debug) std::cout << "XML Listener Request: " << query.Text();
  // The switches of one client are no news to another.
  ConfigOutputTavo& output = doc.Conf().Output();
  for (Configurable* leaf : output.children())
    if (leaf->may_be_marked()) leaf->set_changed(false);
  const Borrowed reply(streams.outputs, LongestReply(*client));
  Compose(*reply, [&] { doc.read_document(query, *reply); });
  if (reply->Text().empty()) return;
  reply->SetLimit(TextOutput::kNoLimit);
  WriteText(*reply, "\n");
  if (debug) std::cout << "XML Listener Response: " << reply->Text();
  clients.SendToClient(client, reply->Text(), BacklogLimit::kReply);
}

void Console::HandleRequestText(SocketClient* client, const std::string& text) {
  std::istringstream line(text);
  std::string word;
  if (!(line >> word)) return;
  const std::size_t word_end = text.find(word) + word.size();
  const std::string_view rest = std::string_view(text).substr(word_end);
  std::uint32_t& flags = LumetSocketContext::Of(*client)->outputFlags;
  switch (word[0]) {
    case 'r':
    case 'R':
      return registers.Read(client, rest);
    case 'w':
    case 'W':
      return registers.Write(client, rest);
    case 'q':
    case 'Q':
      if (word.size() == 1) client->Close();
      return;
    case 'o':
    case 'O':
      if (ContainsInAnyCase(word, "out")) registers.Out();
      return;
    case 'c':
    case 'C':
      if (ContainsInAnyCase(word, "clr"))
        registers.Clear();
      else if (ContainsInAnyCase(word, "Console"))
        TakeConsole(client, text, word_end);
      return;
    case 'U':
      if (Contains(word, "Unlock")) doc.set_locked(false);
      return;
    case 'T':
      if (Contains(word, "TurnDataClockOn")) {
        Assign(flags, LumetSocketContext::kDataClock, true);
        clients.SendToClient(client, kDataClockHeader, BacklogLimit::kReply);
      } else if (Contains(word, "TurnDataClockOff")) {
        Assign(flags, LumetSocketContext::kDataClock, false);
      } else if (Contains(word, "TurnWaveformsOn")) {
        Assign(flags, LumetSocketContext::kWaveforms, true);
      } else if (Contains(word, "TurnWaveformsOff")) {
        Assign(flags, LumetSocketContext::kWaveforms, false);
      }
      return;
    default:
      if (std::isdigit(static_cast<unsigned char>(word[0])) != 0) registers.Evaluate(client, text);
  }
}

void Console::TakeConsole(SocketClient* client, const std::string& text, std::size_t word_end) {
  if (HasConsole()) return;
  consoleClient = client;
  // Protocol: the blank in front of the name belongs to it.
  consoleName = word_end == text.size() ? "Unknown" : text.substr(word_end);
  if (consoleName.ends_with('\n')) consoleName.pop_back();
  clients.SendToAll("DATAEVENT\tCONSOLECONNECTED\t" + consoleName + "\n", BacklogLimit::kReply);
}
