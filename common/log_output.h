#pragma once

#include <cstdint>
#include <streambuf>
#include <string>
#include <string_view>

#include "common/poll_processor.h"

// Standard output as a log that never makes the process wait. While this lives, what is said on
// std::cout goes out line by line, each when it ends or is flushed. A reader that is too slow, or
// stands still, costs itself lines and nobody anything else: a line that finds no room is dropped,
// whole, and how many were dropped is said as soon as there is room again. A disk without room is
// such a reader.
//
// A pipe or terminal that others write to as well stays as it is for them.
class LogOutput : public std::streambuf, public PollItem {
 public:
  LogOutput();
  // Says what was neither ended nor flushed, and gives std::cout back.
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
  std::string gathered;       // said, and neither ended nor flushed
  std::string rest;           // taken, and not out yet
  bool in_line = false;       // what was taken last does not end a line
  bool dropping = false;      // the line that goes on is being dropped
  std::uint64_t dropped = 0;  // lines, and not told yet
};
