#pragma once

// What the layers have in common that are preloaded between a program under test and the system.
// To be included first: both widths of offsets and times have their own names here.
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

// The operation below this layer.
template <class Function>
Function* Real(Function*, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}
// NOLINTNEXTLINE(bugprone-macro-parentheses,cppcoreguidelines-macro-usage): of a name, its text too
#define REAL(name) Real(&name, #name)

// Opens the file that a variable of the environment names; -1 if there is none.
inline int OpenPrivate(const char* variable, int flags) {
  static auto* const real_open = REAL(open);
  const char* path = std::getenv(variable);
  return path == nullptr ? -1 : real_open(path, flags | O_CLOEXEC, 0666);
}

inline void AppendTo(int journal, const std::string& entry) {
  static auto* const real_write = REAL(write);
  if (real_write(journal, entry.data(), entry.size()) < 0) std::abort();
}

// What a descriptor is open on; "-" if that is unknown.
inline std::string PathOf(int fd) {
  std::array<char, 4096> path = {};
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  return readlink(link.c_str(), path.data(), path.size() - 1) > 0 ? path.data() : "-";
}

// Defines the calls that open files, by these names. The standard streams use the second. A layer
// has OpenFails(path, to_write), which sets errno, and NoteWritable(fd, truncated).
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): of names, their texts too
#define COVER_OPEN(open, fopen)                                                        \
  int open(const char* path, int flags, ...) {                                         \
    std::va_list arguments;                                                            \
    va_start(arguments, flags);                                                        \
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;    \
    va_end(arguments);                                                                 \
    const bool to_write = (flags & O_ACCMODE) != O_RDONLY;                             \
    if (OpenFails(path, to_write)) return -1;                                          \
    const int fd = REAL(open)(path, flags, mode);                                      \
    if (fd >= 0 && to_write) NoteWritable(fd, (flags & O_TRUNC) != 0);                 \
    return fd;                                                                         \
  }                                                                                    \
  FILE* fopen(const char* path, const char* mode) {                                    \
    if (OpenFails(path, mode[0] != 'r')) return nullptr;                               \
    FILE* file = REAL(fopen)(path, mode);                                              \
    if (file != nullptr && mode[0] != 'r') NoteWritable(fileno(file), mode[0] == 'w'); \
    return file;                                                                       \
  }
