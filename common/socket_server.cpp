#include "common/socket_server.h"

#include <poll.h>

#include <cerrno>
#include <utility>
#include <vector>

#include "common/socket_http_client.h"

SocketServer::SocketServer(const std::string& message_delimiter, int address_family)
    : PollItem(POLLIN, false),
      PollTimer(-1, true),
      delimiter(message_delimiter),
      socket(address_family, SOCK_STREAM, 0),
      family(address_family) {
  PollItem::Add();
}

SocketServer::SocketServer(HTTPParser::Kind kind, int address_family)
    : SocketServer("", address_family) {
  http_kind = kind;
}

SocketServer::SocketServer(int address_family) : SocketServer("", address_family) {}

SocketServer::~SocketServer() {
  for (const auto& client : clients) client->Close();
  clients.clear();
}

void SocketServer::Listen(int listening_port) {
  SocketAddress address(family);
  address.SetPort(listening_port);
  Listen(address);
}

void SocketServer::Listen(const SocketAddress& address) {
  constexpr int kBacklog = 1024;
  socket.Bind(address);
  socket.Listen(kBacklog);
  SocketAddress bound(family);
  socket.GetSockName(bound);
  port = bound.GetPort();
}

void SocketServer::AddListener(SocketServerListener* listener) { listeners.push_back(listener); }

void SocketServer::RemoveListener(SocketServerListener* listener) { listeners.remove(listener); }

void SocketServer::SetKeepAlive(const std::string& text, int period_ms) {
  const bool on = !text.empty() && period_ms > 0;
  keep_alive_text = on ? text : "";
  keep_alive_period_ms = on ? period_ms : 0;
  SetTimeout(on ? period_ms : -1);
}

SocketClient* SocketServer::Connect(const SocketAddress& address, unsigned seconds) {
  return Adopt(MakeClient(address, seconds));
}

void SocketServer::Drain(std::chrono::steady_clock::time_point deadline) {
  using std::chrono::ceil, std::chrono::milliseconds, std::chrono::steady_clock;
  while (true) {
    std::vector<SocketClient*> waiting;
    std::vector<struct pollfd> fds;
    for (const auto& client : clients) {
      if ((client->GetEvents() & POLLOUT) == 0 || !client->IsOpen()) continue;
      waiting.push_back(client.get());
      fds.push_back({client->GetFD(), POLLOUT, 0});
    }
    const auto left = ceil<milliseconds>(deadline - steady_clock::now()).count();
    if (fds.empty() || left <= 0) return;
    if (poll(fds.data(), fds.size(), static_cast<int>(left)) < 0 && errno != EINTR)
      throw ErrnoError("SocketServer: error calling poll()");
    for (std::size_t i = 0; i < fds.size(); ++i)
      if (fds[i].revents != 0) waiting[i]->HandleWrite();
  }
}

void SocketServer::HandleRead() {
  clients.remove_if([](const auto& client) { return !client->IsOpen(); });
  try {
    Adopt(MakeClient(socket));
  } catch (const Socket::EConnAborted&) {
    // The peer has changed its mind; there is nobody to tell.
  }
}

void SocketServer::Expired() {
  if (keep_alive_text.empty()) return;
  for (const auto& client : clients) {
    if (client->IsOpen() && client->sentSinceTick == 0) client->Send(keep_alive_text);
    client->sentSinceTick = 0;
  }
  Extend(keep_alive_period_ms);
}

void SocketServer::LimitUnfinished() {
  std::size_t total = 0;
  SocketClient* longest = nullptr;
  for (const auto& client : clients) {
    const std::size_t unfinished = client->Unfinished();
    total += unfinished;
    if (longest == nullptr || unfinished > longest->Unfinished()) longest = client.get();
  }
  if (longest != nullptr && total > unfinished_limit)
    longest->CloseForLength("closing the client with the longest of too many unfinished messages");
}

template <class... Connection>
std::unique_ptr<SocketClient> SocketServer::MakeClient(const Connection&... connection) {
  if (http_kind) return std::make_unique<SocketHTTPClient>(*http_kind, *this, connection...);
  if (delimiter.empty()) return std::make_unique<SocketClient>(*this, connection...);
  return std::make_unique<SocketClientParseData>(delimiter, *this, connection...);
}

SocketClient* SocketServer::Adopt(std::unique_ptr<SocketClient> client) {
  Tell([&](SocketServerListener& listener) { listener.ClientConnected(client.get()); });
  clients.push_back(std::move(client));
  return clients.back().get();
}
