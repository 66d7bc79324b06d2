// A layer between a program under test and its disk, to be preloaded. It writes down what the
// program does to the files below a directory (DISK_ROOT) in a journal (DISK_JOURNAL), whose form
// is described in power_cut_test.cpp. What the file DISK_STATE says holds from then on: "slow MS",
// before each sync, or for the files below that directory "full" or "readonly".

// First of all.
// clang-format off
#include "tests/layer.h"
// clang-format on

#include <sys/uio.h>

#include <ctime>

namespace {

std::string_view Setting(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

// What DISK_STATE says now.
std::string State() {
  std::array<char, 64> text = {};
  const int file = OpenPrivate("DISK_STATE", O_RDONLY);
  if (file < 0) return "";
  const ssize_t length = read(file, text.data(), text.size() - 1);
  close(file);
  return length > 0 ? text.data() : "";
}

void Delay() {
  const std::string state = State();
  if (!state.starts_with("slow ")) return;
  const long ms = std::atol(state.c_str() + 5);
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

// One line of words, and after it the bytes of a write.
void Note(const std::string& line, std::string_view bytes = {}) {
  static const int journal = OpenPrivate("DISK_JOURNAL", O_WRONLY | O_CREAT | O_APPEND);
  if (journal >= 0) AppendTo(journal, line + "\n" + std::string(bytes));
}

void NoteAt(int fd, const std::string& act, std::string_view bytes = {}) {
  const std::string path = PathOf(fd);
  if (IsWatched(path)) Note(act + " " + path, bytes);
}

bool OpenFails(const char* path, bool to_write) { return to_write && IsReadOnly(path); }
void NoteWritable(int fd, bool truncated) { NoteAt(fd, truncated ? "create" : "append"); }

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

COVER_OPEN(open, fopen)
COVER_OPEN(open64, fopen64)

ssize_t write(int fd, const void* bytes, size_t size) {
  static const bool may_be_full = !Setting("DISK_STATE").empty();
  if (may_be_full && State().starts_with("full") && IsWatched(PathOf(fd))) {
    errno = ENOSPC;
    return -1;
  }
  const ssize_t written = REAL(write)(fd, bytes, size);
  if (written > 0)
    NoteAt(fd, "write " + std::to_string(written),
           {static_cast<const char*>(bytes), static_cast<size_t>(written)});
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
  if (result == 0) NoteAt(fd, "sync");
  return result;
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
