#include "bench/start_checks.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <stdexcept>
#include <string_view>

#include "common/errno_error.h"
#include "common/socket.h"
#include "common/stream_file.h"

namespace {

// The process of a head that runs with these files, or 0.
pid_t RunningHead(const Instrument& instrument) {
  const int fd = open(instrument.pid_file.c_str(), O_WRONLY | O_CLOEXEC);
  if (fd < 0) return 0;
  StreamFileBase file;
  file.Attach(fd);
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return fcntl(fd, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK ? lock.l_pid : 0;
}

bool IsPortTaken(const Instrument& instrument) {
  SocketAddress address(instrument.console_address);
  address.SetPort(instrument.console_port);
  try {
    Socket(address.Family(), SOCK_STREAM | SOCK_CLOEXEC, 0).Bind(address);
    return false;
  } catch (const ErrnoError& error) {
    return error.ErrorNumber() == EADDRINUSE;
  }
}

}  // namespace

std::string WhatIsInTheWay(const Instrument& instrument) {
  if (const pid_t head = RunningHead(instrument); head != 0)
    return "a head runs already with the files in " + instrument.root + " (process " +
           std::to_string(head) +
           "); stop it by the same command with -- -k, or give this one a directory of its own "
           "with --root";
  if (IsPortTaken(instrument))
    return "port " + std::to_string(instrument.console_port) + " of " + instrument.console_address +
           " is taken; choose another with --console-port, 0 for any free one";
  return "";
}

void EmptyBenchDirectory(const Instrument& instrument) {
  namespace fs = std::filesystem;
  constexpr std::array<std::string_view, 8> kOurs = {"broker", "dev", "environment", "etc",
                                                     "proc",   "run", "sys",         "var"};
  const std::string refusal = "; --fresh removes nothing in " + instrument.root;
  if (RunningHead(instrument) != 0) throw std::runtime_error("a head runs there" + refusal);
  for (const fs::directory_entry& entry : fs::directory_iterator(instrument.root))
    if (std::ranges::find(kOurs, entry.path().filename().string()) == kOurs.end())
      throw std::runtime_error(entry.path().string() + " is no file of a bench" + refusal);
  for (const std::string_view name : kOurs) fs::remove_all(fs::path(instrument.root) / name);
}
