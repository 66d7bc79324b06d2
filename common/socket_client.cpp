#include "common/socket_client.h"

#include <array>
#include <iostream>
#include <utility>

#include "common/memory.h"

namespace {

// A network outage of two minutes costs nobody the connection.
void WatchPeer(Socket& socket) { socket.SetKeepAlive(60, 10, 6); }

// A peer that has shut down its sending side may be gone altogether. While its system remembers the
// connection, a minute at most, the system answers in its place; after that the loss is noticed at
// the next question.
void WatchSilentPeer(Socket& socket) { socket.SetKeepAlive(1, 10, 5); }

}  // namespace

SocketClient::SocketClient(SocketClientOwner& server, const Socket& listening)
    : PollItem(POLLIN, false), server(server), socket(listening, nullptr) {
  socket.SetNonBlocking();
  WatchPeer(socket);
  socket.SetNoDelay();
  Add();
}

SocketClient::SocketClient(SocketClientOwner& server, const SocketAddress& address,
                           unsigned seconds)
    : PollItem(POLLIN, false),
      server(server),
      socket(address.Family(), SOCK_STREAM, 0),
      state(kConnecting) {
  socket.Connect(address, seconds);
  state &= ~kConnecting;
  socket.SetNonBlocking();
  WatchPeer(socket);
  Add();
}

bool SocketClient::AcceptsText() const {
  return IsOpen() && (state & (kCloseWhenDrained | kOutputShutDown)) == 0;
}

void SocketClient::Send(std::string_view text) {
  if (!AcceptsText()) return;
  StopFollowing();
  pending.append(text);
  sentSinceTick += static_cast<std::uint32_t>(text.size());
  server.RequestFlush();
}

void SocketClient::SendFile(const std::string& path) {
  if (!AcceptsText()) return;
  StopFollowing();
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
  StopFollowing();
  state |= kCloseWhenDrained;
  if (Backlog() == 0 && !file.IsOpen()) FinishWriting();
}

void SocketClient::Close() {
  if (IsOpen()) {
    Tell([this](SocketServerListener& listener) { listener.ClientDisconnected(this); });
    socket.Close();
    server.ClientClosed();
    // The object may live long after this; its backlog need not.
    Release(pending);
    Release(inFlight);
    written = 0;
    follows = false;
    DropInput();
  }
  Remove();
}

std::size_t SocketClient::Unread() const { return server.broadcast.End() - next_place; }

void SocketClient::StartFollowing() {
  // It keeps some of the room that its own queue has needed for the next answers.
  constexpr std::size_t kMostKeptRoom = 1024;
  for (std::string* queue : {&pending, &inFlight}) Release(*queue, kMostKeptRoom);
  written = 0;
  next_place = tick_place = server.broadcast.End();
  follows = true;
}

void SocketClient::StopFollowing() {
  if (!follows) return;
  follows = false;
  pending.append(server.broadcast.From(next_place));
  sentSinceTick += static_cast<std::uint32_t>(server.broadcast.End() - tick_place);
  server.all_follow = false;
}

bool SocketClient::TickWasSilent() {
  const bool silent = sentSinceTick == 0 && (!follows || tick_place == server.broadcast.End());
  sentSinceTick = 0;
  tick_place = server.broadcast.End();
  return silent;
}

void SocketClient::SetContext(std::shared_ptr<SocketClientContext> context) {
  this->context = std::move(context);
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

void SocketClient::Flush() {
  if (Backlog() > 0 && (GetEvents() & POLLOUT) == 0) HandleWrite();
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
  // One buffer for all clients, which are read one after another.
  std::string& received = server.received;
  std::array<char, 4096> chunk;
  const int count = socket.Read(chunk.data(), static_cast<unsigned>(chunk.size()));
  received.assign(chunk.data(), static_cast<std::size_t>(count));
  if (count > 0) {
    GotData(received);
    return;
  }
  GotEndOfInput();
  // With POLLERR in the mask it is still polled, and a peer that is gone is noticed.
  SetEvents(static_cast<unsigned short>((GetEvents() & ~unsigned{POLLIN}) | POLLERR));
  WatchSilentPeer(socket);
  state |= kInputEnded;
  Tell([this](SocketServerListener& listener) { listener.ClientInputEnded(this); });
  if ((state & kOutputShutDown) != 0) Close();
}

void SocketClient::WriteChunk() {
  // What a listener holds back was sent to this client alone, so the client does not follow the
  // broadcast then.
  if (follows) {
    const std::string_view unread = server.broadcast.From(next_place);
    next_place += socket.SendSome(unread.data(), unread.size());
    WantWrite(Unread() > 0);
    return;
  }
  bool may_write = true;
  Tell([&](SocketServerListener& listener) { may_write &= listener.ClientMayWrite(this); });
  if (!may_write) return WantWrite(true);
  if (FlightEmpty()) {
    inFlight.clear();
    written = 0;
    if (file.IsOpen())
      file.Read(inFlight);
    else
      inFlight.swap(pending);
  }
  if (!FlightEmpty())
    written += socket.SendSome(inFlight.data() + written, inFlight.size() - written);
  if (Backlog() == 0 && !file.IsOpen())
    FinishWriting();
  else
    WantWrite(true);
}

void SocketClient::FinishWriting() {
  WantWrite(false);
  if ((state & kCloseWhenDrained) == 0) return StartFollowing();
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
  if (Unfinished() > server.GetMessageLimit())
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
  // What follows a message that closed the client is for nobody.
  while (IsOpen() && parser.Next(message)) TellRequest(message);
  Release(message);
  if (!IsOpen()) return;
  // One read more or less is small change.
  constexpr std::size_t kOneRead = 4096;
  if (parser.Pending() > kOneRead) LimitUnfinished();
}

void SocketClientParseData::DropInput() { parser.Clear(); }
