#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "common/long_text.h"

// One publication at QoS 0 whose payload is a long text, written to a socket as this takes it.
//
// The library's own publications stand in memory twice, as the caller's payload and as the
// library's packet. This one never stands there at all. It makes its text twice instead, since the
// length of a packet comes first.
class MQTTPublication {
 public:
  // The longest that a packet can tell, without its first bytes.
  static constexpr std::size_t kLongest = (std::size_t{1} << 28) - 1;

  MQTTPublication(std::string topic, std::unique_ptr<LongText> text, bool retain);

  enum class State {
    kGoesOn,   // for another call
    kWaits,    // until the socket takes more
    kDone,     // with all of it
    kTooLong,  // and nothing was written
    kBroken,   // the connection
  };
  // Makes the next piece, or writes to `socket`, for a moment. What it has begun must be brought to
  // its end before anything else is written there.
  State Continue(int socket);

 private:
  std::string topic;
  std::unique_ptr<LongText> text;
  bool retain;
  std::size_t length = 0;  // of the payload, as far as it was counted
  bool counted = false;
  std::string header;
  std::string_view left;  // of what was made last
};
