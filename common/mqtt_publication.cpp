#include "common/mqtt_publication.h"

#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include "common/mqtt_packet.h"

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
    header = MQTTPublicationHeader(topic, length, retain);
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
