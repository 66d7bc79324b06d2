#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "common/poll_processor.h"
#include "common/stream_file.h"

// Reads a file piece by piece on the loop, one piece ahead of its consumer.
class FileReader : public PollItem {
 public:
  FileReader();

  // Has no effect while a file is open. Throws ErrnoError as StreamFile does.
  void Open(const std::string& path);
  bool IsOpen() const { return file.IsOpen(); }
  // Puts the next piece into `out`. Returns its length, 0 at end of file, when the file is closed.
  int Read(std::string& out);

  int GetFD() override { return file.GetFD(); }
  void HandleRead() override;
  const char* GetName() override { return "FileReader"; }

 private:
  StreamFile file;
  std::vector<char> buffer;
  std::size_t valid = 0;  // bytes in `buffer`
};
