// A layer between a program under test and its disk, to be preloaded. As its environment says, it
// makes the disk slow (DISK_DELAY_MS, before each sync), and writes down what the program does to
// the files below a directory (DISK_ROOT) in a journal (DISK_JOURNAL), whose form is described in
// power_cut_test.cpp. What the file DISK_STATE says holds from then on: "slow MS", as above, or for
// the files below that directory "full" or "readonly".

// Both widths of offsets have their own names here.
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>

namespace {

// The operation that this layer covers.
template <class Function>
Function* Real(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
// NOLINTNEXTLINE(bugprone-macro-parentheses,cppcoreguidelines-macro-usage): of a name, its text too
#define REAL(name) Real(&name, #name)

std::string_view Setting(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

// What DISK_STATE says now.
std::string State() {
  const std::string path(Setting("DISK_STATE"));
  std::array<char, 64> text = {};
  const int file = path.empty() ? -1 : REAL(open)(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return "";
  const ssize_t length = read(file, text.data(), text.size() - 1);
  close(file);
  return length > 0 ? text.data() : "";
}

void Delay() {
  const std::string state = State();
  const char* milliseconds = std::getenv("DISK_DELAY_MS");
  if (state.starts_with("slow ")) milliseconds = state.c_str() + 5;
  if (milliseconds == nullptr) return;
  const long ms = std::atol(milliseconds);
  const struct timespec time = {ms / 1000, ms % 1000 * 1'000'000};
  nanosleep(&time, nullptr);
}

bool IsWatched(std::string_view path) {
  const std::string_view root = Setting("DISK_ROOT");
  return !root.empty() && path.starts_with(root);
}

// Whether nothing may be changed at `path`, which errno tells then.
bool IsReadOnly(const char* path) {
  if (!IsWatched(path) || !State().starts_with("readonly")) return false;
  errno = EROFS;
  return true;
}

// What a descriptor is open on; empty if that is not watched.
std::string WatchedPath(int fd) {
  std::array<char, 4096> path;
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  const ssize_t length = readlink(link.c_str(), path.data(), path.size());
  if (length <= 0) return "";
  std::string text(path.data(), static_cast<std::size_t>(length));
  return IsWatched(text) ? text : "";
}

// One line of words, and after it the bytes of a write.
void Note(const std::string& line, std::string_view bytes = {}) {
  static const int journal = [] {
    const std::string path(Setting("DISK_JOURNAL"));
    static auto* const real_open = REAL(open);
    return path.empty() ? -1
                        : real_open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  }();
  if (journal < 0) return;
  static auto* const real_write = REAL(write);
  const std::string entry = line + "\n" + std::string(bytes);
  if (real_write(journal, entry.data(), entry.size()) < 0) std::abort();
}

void NoteOpen(int fd, bool truncated) {
  if (fd < 0) return;
  const std::string path = WatchedPath(fd);
  if (!path.empty()) Note((truncated ? "create " : "append ") + path);
}

void NoteWrite(int fd, std::string_view bytes) {
  const std::string path = WatchedPath(fd);
  if (!path.empty()) Note("write " + std::to_string(bytes.size()) + " " + path, bytes);
}

// `function` is one that changes names, and stands behind this layer.
template <class Function>
int ChangeNames(Function* function, const char* what, const char* from, const char* to) {
  if (IsReadOnly(to)) return -1;
  const int result = function(from, to);
  if (result == 0 && IsWatched(to)) Note(std::string(what) + " " + from + " " + to);
  return result;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
  va_end(arguments);
  if ((flags & O_ACCMODE) != O_RDONLY && IsReadOnly(path)) return -1;
  const int fd = REAL(open)(path, flags, mode);
  if ((flags & O_ACCMODE) != O_RDONLY) NoteOpen(fd, (flags & O_TRUNC) != 0);
  return fd;
}

int open64(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
  va_end(arguments);
  if ((flags & O_ACCMODE) != O_RDONLY && IsReadOnly(path)) return -1;
  const int fd = REAL(open64)(path, flags, mode);
  if ((flags & O_ACCMODE) != O_RDONLY) NoteOpen(fd, (flags & O_TRUNC) != 0);
  return fd;
}

// The standard streams open files with this one.
FILE* fopen64(const char* path, const char* mode) {
  if (mode[0] != 'r' && IsReadOnly(path)) return nullptr;
  FILE* file = REAL(fopen64)(path, mode);
  if (file != nullptr && mode[0] != 'r') NoteOpen(fileno(file), mode[0] == 'w');
  return file;
}

FILE* fopen(const char* path, const char* mode) {
  if (mode[0] != 'r' && IsReadOnly(path)) return nullptr;
  FILE* file = REAL(fopen)(path, mode);
  if (file != nullptr && mode[0] != 'r') NoteOpen(fileno(file), mode[0] == 'w');
  return file;
}

ssize_t write(int fd, const void* bytes, size_t size) {
  static const bool may_be_full = !Setting("DISK_STATE").empty();
  if (may_be_full && State().starts_with("full") && !WatchedPath(fd).empty()) {
    errno = ENOSPC;
    return -1;
  }
  const ssize_t written = REAL(write)(fd, bytes, size);
  if (written > 0) NoteWrite(fd, {static_cast<const char*>(bytes), static_cast<size_t>(written)});
  return written;
}

ssize_t writev(int fd, const struct iovec* pieces, int count) {
  ssize_t written = 0;
  for (int i = 0; i < count; ++i) {
    const ssize_t piece = write(fd, pieces[i].iov_base, pieces[i].iov_len);
    if (piece < 0) return written > 0 ? written : piece;
    written += piece;
    if (static_cast<size_t>(piece) < pieces[i].iov_len) break;
  }
  return written;
}

int fsync(int fd) {
  Delay();
  const int result = REAL(fsync)(fd);
  const std::string path = WatchedPath(fd);
  if (result == 0 && !path.empty()) Note("sync " + path);
  return result;
}

int fdatasync(int fd) {
  Delay();
  const int result = REAL(fdatasync)(fd);
  const std::string path = WatchedPath(fd);
  if (result == 0 && !path.empty()) Note("sync " + path);
  return result;
}

int syncfs(int fd) {
  Delay();
  Note("syncall");
  return REAL(syncfs)(fd);
}

void sync() {
  Delay();
  Note("syncall");
}

int rename(const char* from, const char* to) {
  return ChangeNames(REAL(rename), "rename", from, to);
}

int link(const char* from, const char* to) { return ChangeNames(REAL(link), "link", from, to); }

int symlink(const char* target, const char* path) {
  return ChangeNames(REAL(symlink), "symlink", target, path);
}

int unlink(const char* path) {
  const auto remove = [](const char* at, const char*) { return REAL(unlink)(at); };
  return ChangeNames(+remove, "unlink", path, path);
}

}  // extern "C"
