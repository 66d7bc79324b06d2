#include "common/mqtt_publication.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <utility>

namespace {

constexpr std::uint8_t kPublish = 0x30;  // at QoS 0
constexpr std::uint8_t kRetain = 0x01;

// Kind and flags; the length of the rest, seven bits a byte, the lowest first, with the highest bit
// set in all but the last; and the topic after its own length.
std::string Header(const std::string& topic, std::size_t payload, bool retain) {
  std::string header(1, static_cast<char>(kPublish | (retain ? kRetain : 0)));
  std::size_t rest = 2 + topic.size() + payload;
  for (; rest > 0x7F; rest >>= 7U) header += static_cast<char>(0x80U | (rest & 0x7FU));
  header += static_cast<char>(rest);
  header += static_cast<char>(topic.size() >> 8U);
  header += static_cast<char>(topic.size());
  return header + topic;
}

}  // namespace

MQTTPublication::MQTTPublication(std::string topic, std::unique_ptr<LongText> text, bool retain)
    : topic(std::move(topic)), text(std::move(text)), retain(retain) {}

MQTTPublication::State MQTTPublication::Continue(int socket) {
  if (!counted) {
    const std::size_t more = text->Next().size();
    length += more;
    if (more > 0) return State::kGoesOn;
    counted = true;
    if (2 + topic.size() + length > kLongest) return State::kTooLong;
    text->Rewind();
    header = Header(topic, length, retain);
    left = header;
  } else if (left.empty()) {
    left = text->Next();
    if (left.empty()) return State::kDone;
  }
  const ssize_t sent = send(socket, left.data(), left.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent < 0) return errno == EAGAIN || errno == EINTR ? State::kWaits : State::kBroken;
  left.remove_prefix(static_cast<std::size_t>(sent));
  return State::kGoesOn;
}
