#include "common/socket_client.h"

#include <iostream>
#include <utility>

#include "common/memory.h"
#include "common/socket_server.h"

SocketClient::SocketClient(SocketServer& owner, const Socket& listening)
    : PollItem(POLLIN, false), server(owner), socket(listening, nullptr) {
  socket.SetNonBlocking();
  Add();
}

SocketClient::SocketClient(SocketServer& owner, const SocketAddress& address, unsigned seconds)
    : PollItem(POLLIN, false),
      server(owner),
      socket(address.Family(), SOCK_STREAM, 0),
      state(kConnecting) {
  socket.Connect(address, seconds);
  state &= ~kConnecting;
  socket.SetNonBlocking();
  Add();
}

bool SocketClient::AcceptsText() const {
  return IsOpen() && (state & (kCloseWhenDrained | kOutputShutDown)) == 0;
}

void SocketClient::Send(std::string_view text) {
  if (!AcceptsText()) return;
  pending.append(text);
  sentSinceTick += static_cast<std::uint32_t>(text.size());
  WantWrite(true);
}

void SocketClient::SendFile(const std::string& path) {
  if (!AcceptsText()) return;
  if (FlightEmpty()) {
    inFlight.swap(pending);
    written = 0;
  } else {
    inFlight.append(pending);
  }
  pending.clear();
  file.Open(path);
  WantWrite(true);
}

void SocketClient::CloseAfterSend() {
  if (!IsOpen()) return;
  state |= kCloseWhenDrained;
  if (Backlog() == 0 && !file.IsOpen()) FinishWriting();
}

void SocketClient::Close() {
  if (IsOpen()) {
    Tell([this](SocketServerListener& listener) { listener.ClientDisconnected(this); });
    socket.Close();
    // The object may live long after this; its backlog need not.
    Release(pending);
    Release(inFlight);
    written = 0;
    DropInput();
  }
  Remove();
}

void SocketClient::SetContext(std::shared_ptr<SocketClientContext> new_context) {
  context = std::move(new_context);
}

void SocketClient::WantWrite(bool want) {
  const unsigned mask = want ? GetEvents() | POLLOUT : GetEvents() & ~unsigned{POLLOUT};
  SetEvents(static_cast<unsigned short>(mask));
}

void SocketClient::NoteActive() {
  if ((state & kActive) != 0) return;
  state |= kActive;
  Tell([this](SocketServerListener& listener) { listener.ClientActive(this); });
}

void SocketClient::HandleRead() {
  Guarded("HandleRead", [this] { ReadChunk(); });
}

void SocketClient::HandleWrite() {
  Guarded("HandleWrite", [this] { WriteChunk(); });
}

template <class Act>
void SocketClient::Guarded(const char* event, Act act) {
  if (!IsOpen()) return;
  try {
    NoteActive();
    act();
  } catch (const std::exception& error) {
    std::cout << "SocketClient::" << event << "(): Got exception " << error.what() << "\n";
    Close();
  }
}

void SocketClient::ReadChunk() {
  if (socket.ReadString(received) > 0) {
    GotData(received);
    return;
  }
  GotEndOfInput();
  SetEvents(static_cast<unsigned short>(GetEvents() & ~unsigned{POLLIN}));
  state |= kInputEnded;
  Tell([this](SocketServerListener& listener) { listener.ClientInputEnded(this); });
  if ((state & kOutputShutDown) != 0) Close();
}

void SocketClient::WriteChunk() {
  bool may_write = true;
  Tell([&](SocketServerListener& listener) { may_write &= listener.ClientMayWrite(this); });
  if (!may_write) return;
  if (FlightEmpty()) {
    inFlight.clear();
    written = 0;
    if (file.IsOpen())
      file.Read(inFlight);
    else
      inFlight.swap(pending);
  }
  if (!FlightEmpty())
    written += static_cast<std::size_t>(
        socket.Send(inFlight.data() + written, inFlight.size() - written, 0));
  if (Backlog() == 0 && !file.IsOpen()) FinishWriting();
}

void SocketClient::FinishWriting() {
  WantWrite(false);
  Release(pending);
  Release(inFlight);
  written = 0;
  if ((state & kCloseWhenDrained) == 0) return;
  if ((state & kOutputShutDown) == 0) {
    socket.Shutdown(SHUT_WR);
    state |= kOutputShutDown;
    Tell([this](SocketServerListener& listener) { listener.ClientOutputEnded(this); });
  }
  if ((state & kInputEnded) != 0) Close();
}

void SocketClient::HandleError() { CloseOn("HandleError"); }

void SocketClient::HandleInvalid() { CloseOn("HandleInvalid"); }

void SocketClient::HandleHangup() { CloseOn("HandleHangUp"); }

void SocketClient::CloseOn(const char* event) {
  std::cout << "SocketClient::" << event << "()\n";
  Close();
}

void SocketClient::GotData(const std::string& text) { TellRequest(text); }

void SocketClient::LimitUnfinished() {
  if (Unfinished() > server.message_limit)
    CloseForLength("closing a client whose message has no end");
  else
    server.LimitUnfinished();
}

void SocketClient::CloseForLength(const char* reason) {
  std::cout << "SocketClient: " << reason << "\n";
  Tell([this](SocketServerListener& listener) { listener.ClientSentTooMuch(this); });
  Close();
}

void SocketClient::TellRequest(const std::string& text) {
  Tell([&](SocketServerListener& listener) { listener.GotRequest(this, text); });
}

void SocketClientParseData::GotData(const std::string& text) {
  parser.Add(text);
  // What stands behind a message that closed the client was sent to nobody.
  while (IsOpen() && parser.Next(message)) TellRequest(message);
  Release(message);
  if (!IsOpen()) return;
  // One read more or less is small change.
  constexpr std::size_t kOneRead = 4096;
  if (parser.Pending() > kOneRead) LimitUnfinished();
}

void SocketClientParseData::DropInput() { parser.Clear(); }
