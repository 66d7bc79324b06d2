#include "leaf/lumet/link/raw_capture.h"

#include <algorithm>

#include "common/base64.h"

std::string RawCapture::Take(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t kWorthARow = 1024;  // bytes
  const std::string row_name = "DATAFLRAW\t";
  if (bytes.empty())
    raw_flush_pending = true;
  else if (!raw_deflater.Finished())
    Feed(bytes);
  if (!raw_flush_pending && raw_deflater.Output().size() < kWorthARow) return "";

  std::string rows = row_name;
  do {
    raw_deflater.Run(raw_flush_pending);
    // Whole groups of three; what is left over waits for the next row, or is padded at the end.
    const bool last = raw_flush_pending && raw_deflater.Finished();
    raw_deflater.Consume(Base64AppendEncoded(raw_deflater.Output(), rows, last));
  } while (raw_flush_pending && !(raw_deflater.Finished() && raw_deflater.Output().empty()));
  rows += "\n";
  if (bytes.empty()) {
    rows += row_name + "\n";
    raw_flush_pending = false;
    raw_deflater.Reset();
  }
  return rows;
}

void RawCapture::Feed(std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    raw_deflater.Run(false);
    const std::span<std::uint8_t> room = raw_deflater.Input();
    const std::size_t count = std::min(room.size(), bytes.size());
    if (count == 0) return;
    std::copy_n(bytes.begin(), count, room.begin());
    raw_deflater.Commit(count);
    bytes = bytes.subspan(count);
  }
}
