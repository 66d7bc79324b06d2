#include "common/file_reader.h"

#include <fcntl.h>

FileReader::FileReader() : PollItem(0, false) {}

void FileReader::Open(const std::string& path) {
  if (file.IsOpen()) return;
  file.Open(path, O_RDONLY);
  SetEvents(POLLIN);
  Add();
}

void FileReader::HandleRead() {
  constexpr unsigned kSize = 8192;
  if (buffer.size() < kSize) buffer.resize(kSize);
  valid = static_cast<std::size_t>(file.Read(buffer.data(), kSize));
  SetEvents(0);
  if (valid > 0) return;
  Remove();
  file.Close();
}

int FileReader::Read(std::string& out) {
  if (valid == 0 && file.IsOpen()) HandleRead();
  out.assign(buffer.data(), valid);
  const int count = static_cast<int>(valid);
  valid = 0;
  if (file.IsOpen()) SetEvents(POLLIN);
  return count;
}
