#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "common/machine.h"
#include "common/stream_file.h"

// The descriptor of a device that may hang up, and that is then opened again by its path; or one
// end of a socket pair, which can't be.
class DeviceFile : public StreamFile {
 public:
  // Opens the device, for reads and writes that never wait. Throws ErrnoError. If `machine` is
  // given, which must outlive this, the device is opened again with superuser rights where the
  // account's own do not suffice.
  explicit DeviceFile(const std::string& path, const Machine* machine = nullptr);
  // Takes over one end of a pair.
  explicit DeviceFile(int descriptor);

  bool IsEndOfPair() const { return path.empty(); }

  // Whether poll's answer says that the device has hung up.
  static bool HasHungUp(int revents);
  // Opens the device again, whatever it is now. Never throws; what fails leaves it closed.
  void Reopen();
  // Whether a device that had hung up can be used, opened again if need be. Returns the bytes that
  // were read into `room`: more than 0 only where the device gives some although it says that it
  // has hung up. Returns nothing if the device is still away.
  std::optional<std::size_t> LookAgain(std::span<std::uint8_t> room);

 private:
  std::optional<std::size_t> Look(std::span<std::uint8_t> room);

  std::string path;
  const Machine* machine = nullptr;
};
