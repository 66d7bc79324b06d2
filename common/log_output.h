#pragma once

#include <cstdint>
#include <streambuf>
#include <string>
#include <string_view>

#include "common/poll_processor.h"

// Standard output as a log that never makes the process wait. While this lives, what is written to
// std::cout goes out line by line, each when it ends or is flushed. A reader that is too slow, or
// has stopped, loses lines but holds up nobody: a line that finds no room is dropped whole, and the
// number of dropped lines is reported as soon as there is room again. A full disk is such a reader.
//
// A pipe or terminal that others write to as well stays as it is for them.
class LogOutput : public std::streambuf, public PollItem {
 public:
  LogOutput();
  // Writes what was neither ended nor flushed, and gives std::cout back.
  ~LogOutput() override;

  int GetFD() override { return fd; }
  // There is room again.
  void HandleWrite() override;
  // Nobody is left to make room.
  void HandleError() override { StopWaiting(); }
  void HandleHangup() override { StopWaiting(); }
  const char* GetName() override { return "LogOutput"; }

 protected:
  int_type overflow(int_type byte) override;
  std::streamsize xsputn(const char* text, std::streamsize length) override;
  int sync() override;

 private:
  enum class Kind { kFile, kSocket, kOwn, kShared };

  void Say(std::string_view text);
  void SayLine(std::string_view line);
  bool WriteOn();
  std::size_t WriteSome(std::string_view text);
  long TryWrite(std::string_view text);
  void AwaitRoom();
  void StopWaiting();

  std::streambuf* before;
  Kind kind = Kind::kShared;
  int fd;
  bool awaits_room = false;   // is on the loop
  std::string gathered;       // written, and neither ended nor flushed
  std::string rest;           // taken, but not out yet
  bool in_line = false;       // the text taken last does not end a line
  bool dropping = false;      // the current line is being dropped
  std::uint64_t dropped = 0;  // lines, not reported yet
};
