#include "client/lines.h"

#include <netinet/in.h>
#include <poll.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "common/errno_error.h"
#include "common/host_port.h"

namespace {

void ConnectTo(Socket& socket, const SocketAddress& address, const std::string& place,
               const Deadline& deadline, int receive_buffer) {
  socket.Create(address.Family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (receive_buffer > 0)
    setsockopt(socket.GetFD(), SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
  socket.Connect(address);
  if (!deadline.WaitFor(socket.GetFD(), POLLOUT))
    deadline.Fail("a connection to " + place, "nobody answered");
  socket.CheckConnected();
}

}  // namespace

void ConnectWithin(Socket& socket, const std::string& host, int port, Timeout timeout,
                   int receive_buffer) {
  const Deadline deadline(timeout);
  const std::string place = Place(host, port);
  std::string failure;
  for (const int family : {AF_INET6, AF_INET}) {
    try {
      SocketAddress address(host, family);
      address.SetPort(port);
      return ConnectTo(socket, address, place, deadline, receive_buffer);
    } catch (const HostNotFound& error) {
      if (failure.empty()) failure = error.what();
    } catch (const ErrnoError& error) {
      failure = std::strerror(error.ErrorNumber());
    }
  }
  throw NoConnection("unable to connect to " + place + ": " + failure);
}

LineClient::LineClient(int port, const std::string& host, Timeout timeout, int receive_buffer)
    : peer(Place(host, port)), timeout(timeout) {
  ConnectWithin(socket, host, port, timeout, receive_buffer);
}

void LineClient::Send(std::string_view text) {
  const Deadline deadline(timeout);
  while (!text.empty()) {
    const ssize_t sent = send(Descriptor(), text.data(), text.size(), MSG_NOSIGNAL);
    if (sent >= 0)
      text.remove_prefix(static_cast<std::size_t>(sent));
    else if (errno != EAGAIN && errno != EINTR)
      throw NoConnection("unable to send to " + peer + ": " + std::strerror(errno));
    else if (!deadline.WaitFor(Descriptor(), POLLOUT))
      deadline.Fail(peer + " to take what is sent", "it took nothing");
  }
}

bool LineClient::ReadChunk() {
  std::array<char, 65536> buffer;
  const ssize_t count = recv(Descriptor(), buffer.data(), buffer.size(), 0);
  if (count > 0) parser.Add({buffer.data(), static_cast<std::size_t>(count)});
  if (count > 0) return true;
  if (count == 0) throw NoConnection(peer + " has closed the connection");
  if (errno == EAGAIN || errno == EINTR) return false;
  throw NoConnection("unable to read from " + peer + ": " + std::strerror(errno));
}

std::optional<std::string> LineClient::TakeLine() {
  std::string line;
  while (!parser.Next(line))
    if (!ReadChunk()) return std::nullopt;
  line.pop_back();
  return line;
}

std::optional<std::string> LineClient::NextLine(const Deadline& deadline) {
  while (true) {
    if (auto line = TakeLine()) return line;
    if (!deadline.WaitFor(Descriptor(), POLLIN)) return std::nullopt;
  }
}

std::string LineClient::ReadLine() {
  const Deadline deadline(timeout);
  if (auto line = NextLine(deadline)) return *std::move(line);
  deadline.Fail("a line from " + peer,
                std::to_string(parser.Pending()) + " bytes came without a line feed");
}

std::string LineClient::ReadLineThatBegins(std::string_view start) {
  const Deadline deadline(timeout);
  std::string last;
  while (auto line = NextLine(deadline)) {
    if (line->starts_with(start)) return *std::move(line);
    last = *std::move(line);
    if (deadline.IsOver()) break;
  }
  deadline.Fail("a line that begins with " + Quoted(start),
                last.empty() ? "nothing came" : "the last that came is " + Quoted(last));
}

void LineClient::Drop() {
  try {
    while (TakeLine()) {
    }
  } catch (const ClientError&) {
    // The next read meets the end of the connection again.
  }
}

bool LineClient::IsClosed() {
  char byte = 0;
  return parser.Pending() == 0 && recv(Descriptor(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}
