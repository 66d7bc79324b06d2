#include "common/mqtt_packet.h"

namespace {

enum Kind : std::uint8_t {
  kConnAck = 2,
  kPublish = 3,
  kSubAck = 9,
  kUnsubAck = 11,
  kPingResp = 13,
};

constexpr unsigned kRetain = 1;  // a flag of a publication

}  // namespace

MQTTPacketHeader::MQTTPacketHeader(const std::uint8_t* bytes, std::size_t count)
    : kind(bytes[0] >> 4U), qos(bytes[0] >> 1U & 3U) {
  std::size_t rest = 0;
  for (std::size_t i = 1; i < count; ++i) {
    rest |= std::size_t{bytes[i] & 0x7FU} << 7 * (i - 1);
    if ((bytes[i] & 0x80U) == 0) {
      length = 1 + i + rest;
      return;
    }
  }
  malformed = count == kLongest;
}

bool MQTTPacketHeader::IsExpected(bool greeted) const {
  switch (kind) {
    case kConnAck:
      return !greeted;
    case kPublish:
      return qos == 0;
    case kSubAck:
    case kUnsubAck:
    case kPingResp:
      return true;
    default:
      return false;
  }
}

std::string MQTTPublicationHeader(const std::string& topic, std::size_t payload, bool retain) {
  std::string header(1, static_cast<char>(unsigned{kPublish} << 4U | (retain ? kRetain : 0)));
  // The topic has a length of its own.
  std::size_t rest = 2 + topic.size() + payload;
  for (; rest > 0x7F; rest >>= 7U) header += static_cast<char>(0x80U | (rest & 0x7FU));
  header += static_cast<char>(rest);
  header += static_cast<char>(topic.size() >> 8U);
  header += static_cast<char>(topic.size());
  return header + topic;
}
