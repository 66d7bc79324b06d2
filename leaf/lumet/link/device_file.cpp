#include "leaf/lumet/link/device_file.h"

#include <fcntl.h>
#include <poll.h>

#include <cerrno>
#include <exception>

#include "common/errno_error.h"
#include "common/privilege_guard.h"

namespace {

// A device that takes or gives nothing must not stop the loop.
constexpr int kOpenFlags = O_RDWR | O_NONBLOCK;

constexpr short kHangUpEvents = POLLERR | POLLHUP | POLLNVAL;

bool LacksRights(const ErrnoError& error) {
  return error.ErrorNumber() == EACCES || error.ErrorNumber() == EPERM;
}

}  // namespace

DeviceFile::DeviceFile(const std::string& path, const Machine* machine)
    : StreamFile(path, kOpenFlags), path(path), machine(machine) {}

DeviceFile::DeviceFile(int descriptor) : StreamFile(descriptor) { SetNonBlocking(); }

bool DeviceFile::HasHungUp(int revents) { return (revents & kHangUpEvents) != 0; }

void DeviceFile::Reopen() {
  // What fails here needs no word: it was said that the device is away, and it still is.
  try {
    try {
      Open(path, kOpenFlags);
    } catch (const ErrnoError& error) {
      if (machine == nullptr || !LacksRights(error)) return;
      // The device was opened first while the process still had all its rights.
      const PrivilegeGuard rights(*machine);
      Open(path, kOpenFlags);
    }
  } catch (const std::exception&) {
  }
}

std::optional<std::size_t> DeviceFile::LookAgain(std::span<std::uint8_t> room) {
  std::optional<std::size_t> read = Look(room);
  if (!read) {
    Reopen();
    read = Look(room);
  }
  return read;
}

std::optional<std::size_t> DeviceFile::Look(std::span<std::uint8_t> room) {
  if (!IsOpen()) return {};
  struct pollfd entry = {GetFD(), POLLIN, 0};
  if (poll(&entry, 1, 0) < 0) return {};
  if (!HasHungUp(entry.revents)) return 0;
  if ((entry.revents & POLLIN) == 0) return {};
  try {
    const int count = Read(room.data(), static_cast<unsigned>(room.size()));
    if (count > 0) return static_cast<std::size_t>(count);
  } catch (const std::exception&) {
  }
  return {};
}
