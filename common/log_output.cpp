#include "common/log_output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <utility>

namespace {

// Text that ends no line is not gathered beyond this.
constexpr std::size_t kMostGathered = std::size_t{64} * 1024;
// What a terminal or pipe takes without waiting when poll says that it has room.
constexpr std::size_t kSurelyTaken = 256;

// Opens the pipe or terminal a second time, so that its flags concern nobody else. Negative if that
// fails.
int OpenForMyself(int descriptor) {
  const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
  return open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

bool HasRoom(int fd) {
  struct pollfd entry = {fd, POLLOUT, 0};
  return poll(&entry, 1, 0) > 0 && (entry.revents & POLLOUT) != 0;
}

}  // namespace

LogOutput::LogOutput() : PollItem(POLLOUT, false), before(std::cout.rdbuf()) {
  std::cout.flush();
  struct stat status = {};
  const bool known = fstat(STDOUT_FILENO, &status) == 0;
  if (known && S_ISREG(status.st_mode)) kind = Kind::kFile;
  if (known && S_ISSOCK(status.st_mode)) kind = Kind::kSocket;
  fd = kind == Kind::kShared ? OpenForMyself(STDOUT_FILENO) : -1;
  if (fd >= 0)
    kind = Kind::kOwn;
  else
    fd = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  std::cout.rdbuf(this);
}

LogOutput::~LogOutput() {
  sync();
  std::cout.rdbuf(before);
  Remove();
  if (fd >= 0) close(fd);
}

LogOutput::int_type LogOutput::overflow(int_type byte) {
  if (traits_type::eq_int_type(byte, traits_type::eof())) return traits_type::not_eof(byte);
  const char text = traits_type::to_char_type(byte);
  xsputn(&text, 1);
  return byte;
}

std::streamsize LogOutput::xsputn(const char* text, std::streamsize length) {
  const std::string_view piece(text, static_cast<std::size_t>(length));
  const std::size_t ended = piece.rfind('\n') + 1;  // 0 if there is none
  gathered += piece.substr(0, ended);
  if (ended > 0) sync();
  gathered += piece.substr(ended);
  if (gathered.size() > kMostGathered) sync();
  return length;
}

int LogOutput::sync() {
  Say(std::exchange(gathered, ""));
  return 0;
}

void LogOutput::Say(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = std::min(text.find('\n'), text.size() - 1) + 1;
    SayLine(text.substr(0, length));
    text.remove_prefix(length);
  }
}

// Takes a line with its end, or the part of one that was flushed.
void LogOutput::SayLine(std::string_view line) {
  const bool ends = line.back() == '\n';
  if (dropping) {
    dropping = !ends;
    return;
  }
  const bool room = WriteOn();
  const std::size_t taken = room ? WriteSome(line) : 0;
  // A line that has begun is completed, however late.
  if (taken > 0 || in_line) {
    rest += line.substr(taken);
    in_line = !ends;
    return;
  }
  ++dropped;
  dropping = !ends;
}

// Writes what was taken, and reports what was dropped. True if nothing is left, so that the next
// text may follow.
bool LogOutput::WriteOn() {
  rest.erase(0, WriteSome(rest));
  if (!rest.empty()) return false;
  if (in_line || dropped == 0) return true;
  rest = "LogOutput: " + std::to_string(dropped) +
         " lines were dropped, for want of a reader of standard output\n";
  const std::size_t taken = WriteSome(rest);
  if (taken == 0)
    rest.clear();
  else
    dropped = 0;
  rest.erase(0, taken);
  return taken > 0 && rest.empty();
}

void LogOutput::HandleWrite() {
  if (WriteOn()) StopWaiting();
}

std::size_t LogOutput::WriteSome(std::string_view text) {
  std::size_t taken = 0;
  while (taken < text.size()) {
    const long count = TryWrite(text.substr(taken));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      if (errno == EAGAIN) AwaitRoom();
      break;
    }
    taken += static_cast<std::size_t>(count);
  }
  return taken;
}

long LogOutput::TryWrite(std::string_view text) {
  // There was no standard output from the start.
  if (fd < 0) return static_cast<long>(text.size());
  if (kind == Kind::kSocket) return send(fd, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (kind != Kind::kShared) return write(fd, text.data(), text.size());
  if (HasRoom(fd)) return write(fd, text.data(), std::min(text.size(), kSurelyTaken));
  errno = EAGAIN;
  return -1;
}

void LogOutput::AwaitRoom() {
  if (awaits_room) return;
  Add();
  awaits_room = true;
}

void LogOutput::StopWaiting() {
  Remove();
  awaits_room = false;
}
