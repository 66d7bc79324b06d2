#include "common/socket_server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <utility>
#include <vector>

namespace {

// What clients leave free for files that are saved, the bus and the discovery of services.
constexpr rlim_t kDescriptorReserve = 16;
constexpr int kPauseMs = 1000;
constexpr auto kQuietAfterPause = std::chrono::minutes(1);

// The system gives out the lowest number that is free.
bool ReserveIsFree(int any_descriptor) {
  struct rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) throw ErrnoError("SocketServer: error in getrlimit");
  const int lowest_free = fcntl(any_descriptor, F_DUPFD_CLOEXEC, 0);
  if (lowest_free < 0) return false;
  close(lowest_free);
  // If there are few descriptors, clients get three quarters of them.
  const rlim_t reserve = std::min(kDescriptorReserve, limit.rlim_cur / 4);
  return static_cast<rlim_t>(lowest_free) < limit.rlim_cur - reserve;
}

bool IsShortage(int errnum) {
  return errnum == EMFILE || errnum == ENFILE || errnum == ENOBUFS || errnum == ENOMEM;
}

// Accepting passes on errors that the network has reported for the waiting connection (see
// accept(2)): a firewall forbids it, or it has gone again.
bool ConcernsOneConnection(int errnum) {
  constexpr int kOfOne[] = {EAGAIN,      EINTR,       ECONNABORTED, EPROTO,    EPERM,
                            ENETDOWN,    ENOPROTOOPT, EHOSTDOWN,    ENONET,    EHOSTUNREACH,
                            ENETUNREACH, EOPNOTSUPP,  ETIMEDOUT,    ECONNRESET};
  return std::find(std::begin(kOfOne), std::end(kOfOne), errnum) != std::end(kOfOne);
}

}  // namespace

SocketServer::SocketServer(ClientMaker make_client, int family)
    : PollItem(POLLIN, false),
      PollTimer(-1, true),
      make_client(std::move(make_client)),
      socket(family, SOCK_STREAM, 0),
      family(family) {
  PollItem::Add();
}

SocketServer::ClientMaker SocketServer::MakerFor(const std::string& delimiter) {
  if (delimiter.empty()) return MakerOf<SocketClient>();
  return MakerOf<SocketClientParseData>(delimiter);
}

SocketServer::SocketServer(const std::string& delimiter, int family)
    : SocketServer(MakerFor(delimiter), family) {}

SocketServer::SocketServer(int family) : SocketServer("", family) {}

SocketServer::~SocketServer() {
  for (const auto& client : clients) client->Close();
  clients.clear();
}

void SocketServer::Listen(int port) {
  SocketAddress address(family);
  address.SetPort(port);
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

void SocketServer::SetKeepAlive(const std::string& text, int period_ms) {
  const bool on = !text.empty() && period_ms > 0;
  keep_alive_text = on ? text : "";
  keep_alive_period_ms = on ? period_ms : 0;
  SetTimeout(on ? period_ms : -1);
}

SocketClient* SocketServer::Connect(const SocketAddress& address, unsigned seconds) {
  return Adopt(make_client.connect(*this, address, seconds));
}

void SocketServer::Drain(std::chrono::steady_clock::time_point deadline) {
  using std::chrono::ceil, std::chrono::milliseconds, std::chrono::steady_clock;
  Flush();
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

void SocketServer::SendToAll(std::string_view text, std::size_t limit) {
  // Usually nobody is near the limit, and there is nothing to do for individual clients.
  const std::size_t most_unread = longest_unread + (broadcast.End() - flushed_place);
  if (!all_follow || most_unread >= limit) {
    for (const auto& client : clients) {
      const bool lost = client->Backlog() >= limit;
      if (!client->follows && !lost) client->Send(text);
      if (client->follows && lost) client->StopFollowing();
    }
  }
  broadcast.Append(text);
  RequestFlush();
}

void SocketServer::Flush() {
  for (const auto& client : clients) client->Flush();
  // Only now: whoever heard of a client that closed may have sent something to the others.
  all_follow = true;
  longest_unread = 0;
  for (const auto& client : clients) {
    if (client->follows)
      longest_unread = std::max(longest_unread, client->Unread());
    else if (client->IsOpen())
      all_follow = false;
  }
  broadcast.Keep(longest_unread);
  flushed_place = broadcast.End();
}

void SocketServer::HandleRead() {
  clients.remove_if([](const auto& client) { return !client->IsOpen(); });
  if (!ReserveIsFree(socket.GetFD()))
    PauseAccepting(EMFILE);
  else if (std::unique_ptr<SocketClient> client = Accept())
    Adopt(std::move(client));
}

// Null if there is none after all.
std::unique_ptr<SocketClient> SocketServer::Accept() {
  try {
    return make_client.accept(*this, socket);
  } catch (const ErrnoError& error) {
    if (IsShortage(error.ErrorNumber()))
      PauseAccepting(error.ErrorNumber());
    else if (!ConcernsOneConnection(error.ErrorNumber()))
      throw;
  }
  return nullptr;
}

void SocketServer::PauseAccepting(int errnum) {
  PollItem::SetEvents(0);
  resume.SetTimeout(kPauseMs);
  const auto now = std::chrono::steady_clock::now();
  if (!latest_pause || now - *latest_pause > kQuietAfterPause)
    std::cout << "SocketServer: no room for more clients until others leave: "
              << std::strerror(errnum) << "\n";
  latest_pause = now;
}

void SocketServer::ResumeAccepting() {
  resume.SetTimeout(-1);
  PollItem::SetEvents(POLLIN);
}

void SocketServer::Expired() {
  if (keep_alive_text.empty()) return;
  for (const auto& client : clients) {
    if (!client->TickWasSilent()) continue;
    client->Send(keep_alive_text);
    // The keep-alive text itself does not count.
    client->TickWasSilent();
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

SocketClient* SocketServer::Adopt(std::unique_ptr<SocketClient> client) {
  Tell([&](SocketServerListener& listener) { listener.ClientConnected(client.get()); });
  clients.push_back(std::move(client));
  all_follow = false;
  return clients.back().get();
}
