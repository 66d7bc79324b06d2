// A layer between the daemon under test and the system, to be preloaded. It writes down as whom the
// daemon makes which call, into the file RIGHTS_JOURNAL, and lets a call fail that the file
// RIGHTS_FAULT names by its name and an error number. It never sets a clock. The form of the
// journal is told in rights_test.cpp.

// First of all.
// clang-format off
#include "tests/layer.h"
// clang-format on

#include <linux/rtc.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>

namespace {

// Both files are opened while the daemon has all rights; the programs that it starts are none of
// ours.
const bool is_watched = std::string_view(program_invocation_short_name) == "lumet";
const int journal = is_watched ? OpenPrivate("RIGHTS_JOURNAL", O_WRONLY | O_CREAT | O_APPEND) : -1;
const int faults = is_watched ? OpenPrivate("RIGHTS_FAULT", O_RDONLY) : -1;

void Note(const std::string& call, const std::string& what) {
  if (journal < 0) return;
  AppendTo(journal, std::to_string(geteuid()) + " " + call + " " + what + "\n");
}

// Writes the call down. True, with errno set, if it is to fail.
bool Fails(const std::string& call, const std::string& what) {
  Note(call, what);
  std::array<char, 64> text = {};
  if (faults < 0 || pread(faults, text.data(), text.size() - 1, 0) <= 0) return false;
  const std::string_view fault = text.data();
  if (!fault.starts_with(call + " ")) return false;
  errno = std::atoi(fault.substr(call.size()).data());
  return true;
}

bool OpenFails(const char* path, bool to_write) { return Fails(to_write ? "open" : "look", path); }
void NoteWritable(int, bool) {}

}  // namespace

extern "C" {

COVER_OPEN(open, fopen)
COVER_OPEN(open64, fopen64)
int fsync(int fd) { return Fails("fsync", PathOf(fd)) ? -1 : REAL(fsync)(fd); }
int fchmod(int fd, mode_t mode) {
  return Fails("fchmod", PathOf(fd)) ? -1 : REAL(fchmod)(fd, mode);
}
int fchown(int fd, uid_t user, gid_t group) {
  return Fails("fchown", PathOf(fd)) ? -1 : REAL(fchown)(fd, user, group);
}
int rename(const char* from, const char* to) {
  return Fails("rename", to) ? -1 : REAL(rename)(from, to);
}
int link(const char* from, const char* to) { return Fails("link", to) ? -1 : REAL(link)(from, to); }
int symlink(const char* target, const char* path) {
  return Fails("symlink", path) ? -1 : REAL(symlink)(target, path);
}
int unlink(const char* path) { return Fails("unlink", path) ? -1 : REAL(unlink)(path); }
int settimeofday(const struct timeval*, const struct timezone*) {
  return Fails("settimeofday", "-") ? -1 : 0;
}
int ioctl(int fd, unsigned long request, ...) {
  std::va_list arguments;
  va_start(arguments, request);
  void* argument = va_arg(arguments, void*);
  va_end(arguments);
  if (request != RTC_SET_TIME) return REAL(ioctl)(fd, request, argument);
  return Fails("set_rtc", PathOf(fd)) ? -1 : 0;
}
int system(const char* command) { return Fails("system", command) ? -1 : REAL(system)(command); }
ssize_t sendmsg(int fd, const struct msghdr* message, int flags) {
  const auto* address = static_cast<const struct sockaddr*>(message->msg_name);
  const bool to_kernel = address != nullptr && address->sa_family == AF_NETLINK;
  return to_kernel && Fails("route", "-") ? -1 : REAL(sendmsg)(fd, message, flags);
}
int seteuid(uid_t user) {
  if (user == 0 && Fails("raise", "-")) return -1;
  if (user != 0) Note("lower", std::to_string(user));
  return REAL(seteuid)(user);
}
// What a turn of the loop does with neighbours.
int poll(struct pollfd* entries, nfds_t count, int timeout) {
  Note("poll", "-");
  return REAL(poll)(entries, count, timeout);
}
ssize_t send(int fd, const void* bytes, size_t size, int flags) {
  Note("send", "-");
  return REAL(send)(fd, bytes, size, flags);
}
ssize_t recv(int fd, void* bytes, size_t size, int flags) {
  Note("recv", "-");
  return REAL(recv)(fd, bytes, size, flags);
}

}  // extern "C"
