#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The beginning of MQTT's packets (OASIS, MQTT 3.1.1), as far as it concerns what the library does
// not see: kind and flags in the first byte; then the length of the rest, seven bits a byte, the
// lowest first, with the highest bit set in all but the last.

// That of a packet from a broker.
struct MQTTPacketHeader {
  static constexpr std::size_t kLongest = 5;

  // `bytes` are the first `count` of the packet, of which there may be as yet fewer than there will
  // be; at least one, and at most kLongest.
  MQTTPacketHeader(const std::uint8_t* bytes, std::size_t count);

  unsigned kind = 0;
  unsigned qos = 0;        // of a publication
  std::size_t length = 0;  // of the whole packet; 0 while `bytes` is too short to tell
  bool malformed = false;

  // Whether a broker may send it to a client at QoS 0 now. What it must not send includes all that
  // the library would answer, for as long as the answers find memory.
  bool IsExpected(bool greeted) const;
};

// That of a publication at QoS 0, up to its payload of so many bytes.
std::string MQTTPublicationHeader(const std::string& topic, std::size_t payload, bool retain);
