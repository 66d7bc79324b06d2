#include "common/socket.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "common/signals.h"

namespace {

// Sets the umask of the process for the duration of a scope.
class UmaskGuard {
 public:
  explicit UmaskGuard(mode_t mask) : before(umask(mask)) {}
  ~UmaskGuard() { umask(before); }
  UmaskGuard(const UmaskGuard&) = delete;
  UmaskGuard& operator=(const UmaskGuard&) = delete;

 private:
  mode_t before;
};

int Accept(int fd, SocketAddress* peer) {
  socklen_t length = SocketAddress::kRawBufferSize;
  const int accepted = accept(fd, peer != nullptr ? peer->RawBuffer() : nullptr,
                              peer != nullptr ? &length : nullptr);
  if (accepted >= 0) return accepted;
  if (errno == ECONNABORTED) throw Socket::EConnAborted("Socket: client aborted connection");
  throw ErrnoError("Socket: accept error");
}

int Checked(ssize_t result, const char* failure) {
  if (result < 0) throw ErrnoError(failure);
  return static_cast<int>(result);
}

}  // namespace

Socket::Socket(int family, int type, int protocol) { Create(family, type, protocol); }

Socket::Socket(const Socket& listener, SocketAddress* peer) {
  listener.CheckOpen();
  Attach(Accept(listener.GetFD(), peer));
}

void Socket::Create(int family, int type, int protocol) {
  Close();
  Attach(Checked(socket(family, type, protocol), "Socket: unable to create socket"));
  const int on = 1;
  Checked(setsockopt(GetFD(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on),
          "Socket: unable to create socket");
}

void Socket::Connect(const SocketAddress& address) {
  CheckOpen();
  if (connect(GetFD(), address.Raw(), address.Length()) == 0 || errno == EINPROGRESS) return;
  const int errnum = errno;
  throw ErrnoError("Socket: unable to connect to " + address.ToString(), errnum);
}

void Socket::Connect(const SocketAddress& address, unsigned seconds) {
  catch_signal(pending_signals(), SIGALRM);
  alarm(seconds);
  try {
    Connect(address);
  } catch (const ErrnoError& error) {
    if (alarm(0) == 0) throw SocketConnectionTimedOut(std::string(error.what()) + ": timed out");
    throw;
  } catch (...) {
    alarm(0);
    throw;
  }
  alarm(0);
}

void Socket::CheckConnected() {
  CheckOpen();
  int error = 0;
  socklen_t length = sizeof error;
  Checked(getsockopt(GetFD(), SOL_SOCKET, SO_ERROR, &error, &length),
          "Socket: unable to query connection status.");
  if (error != 0) throw ErrnoError("Socket: unable to connect", error);
}

void Socket::Bind(const SocketAddress& address) {
  CheckOpen();
  const UmaskGuard full_permissions(0);
  if (bind(GetFD(), address.Raw(), address.Length()) == 0) return;
  const int errnum = errno;
  throw ErrnoError("Socket: unable to bind to " + address.ToString(), errnum);
}

void Socket::Listen(int backlog) {
  CheckOpen();
  Checked(listen(GetFD(), backlog), "Socket: unable to listen");
  SetNonBlocking();
}

void Socket::Shutdown(int how) {
  CheckOpen();
  Checked(shutdown(GetFD(), how), "Socket: error shutting down socket");
}

void Socket::SetKeepAlive(int idle_s, int interval_s, int count) {
  CheckOpen();
  const struct {
    int level;
    int option;
    int value;
  } settings[] = {
      {SOL_SOCKET, SO_KEEPALIVE, 1},
      {IPPROTO_TCP, TCP_KEEPIDLE, idle_s},
      {IPPROTO_TCP, TCP_KEEPINTVL, interval_s},
      {IPPROTO_TCP, TCP_KEEPCNT, count},
  };
  for (const auto& setting : settings) {
    const int result =
        setsockopt(GetFD(), setting.level, setting.option, &setting.value, sizeof setting.value);
    if (result != 0 && errno != EOPNOTSUPP) throw ErrnoError("Socket: unable to set keep-alive");
  }
}

void Socket::SetNoDelay() {
  CheckOpen();
  const int on = 1;
  setsockopt(GetFD(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void Socket::GetSockName(SocketAddress& address) {
  CheckOpen();
  socklen_t length = SocketAddress::kRawBufferSize;
  Checked(getsockname(GetFD(), address.RawBuffer(), &length), "Socket: getsockname error");
}

void Socket::GetPeerName(SocketAddress& address) {
  CheckOpen();
  socklen_t length = SocketAddress::kRawBufferSize;
  Checked(getpeername(GetFD(), address.RawBuffer(), &length), "Socket: getpeername error");
}

int Socket::Send(const void* buffer, std::size_t length, int flags) {
  CheckOpen();
  return Checked(send(GetFD(), buffer, length, flags | MSG_NOSIGNAL), "Socket: error in Send");
}

std::size_t Socket::SendSome(const void* buffer, std::size_t length) {
  CheckOpen();
  const ssize_t sent = send(GetFD(), buffer, length, MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) return 0;
  return static_cast<std::size_t>(Checked(sent, "Socket: error in Send"));
}

int Socket::SendTo(const void* buffer, std::size_t length, int flags,
                   const SocketAddress& address) {
  CheckOpen();
  return Checked(
      sendto(GetFD(), buffer, length, flags | MSG_NOSIGNAL, address.Raw(), address.Length()),
      "Socket: error in SendTo");
}

int Socket::SendMsg(const struct msghdr* message, int flags) {
  CheckOpen();
  return Checked(sendmsg(GetFD(), message, flags | MSG_NOSIGNAL), "Socket: error in SendMsg");
}

int Socket::Recv(void* buffer, std::size_t length, int flags) {
  CheckOpen();
  return Checked(recv(GetFD(), buffer, length, flags), "Socket: error in Recv");
}

int Socket::RecvFrom(void* buffer, std::size_t length, int flags, SocketAddress& address) {
  CheckOpen();
  socklen_t size = SocketAddress::kRawBufferSize;
  return Checked(recvfrom(GetFD(), buffer, length, flags, address.RawBuffer(), &size),
                 "Socket: error in RecvFrom");
}

int Socket::RecvMsg(struct msghdr* message, int flags) {
  CheckOpen();
  return Checked(recvmsg(GetFD(), message, flags), "Socket: error in RecvMsg");
}
