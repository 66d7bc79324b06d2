#include "common/zlib.h"

#include <algorithm>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <vector>

#include "common/test_registry.h"

namespace {

using namespace self_test;

// Half noise, half runs, so that it is neither incompressible nor trivial.
std::vector<std::uint8_t> TestBytes(std::size_t size) {
  std::mt19937 random(5);
  std::vector<std::uint8_t> bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<std::uint8_t>(i % 512 < 256 ? random() : i / 512);
  return bytes;
}

}  // namespace

void TestZlib(std::ostream&) {
  for (const std::size_t size : {0U, 1024U, 32766U, 32768U, 36864U, 90000U, 98304U, 1024001U}) {
    const std::vector<std::uint8_t> bytes = TestBytes(size);
    const std::vector<std::uint8_t> packed = ZlibDeflate(bytes);
    ExpectTrue(ZlibInflate(packed) == bytes, "a round trip of " + std::to_string(size));
    std::stringbuf packed_buffer;
    ZlibDeflate(bytes, packed_buffer);
    const std::string packed_text = packed_buffer.str();
    ExpectTrue(std::equal(packed.begin(), packed.end(), packed_text.begin(), packed_text.end(),
                          [](std::uint8_t a, char b) { return a == static_cast<std::uint8_t>(b); }),
               "the same bytes through a stream buffer");
    ExpectTrue(ZlibInflate(packed_buffer) == bytes, "back from a stream buffer");
    std::stringbuf plain_buffer;
    ZlibInflate(packed, plain_buffer);
    ExpectEqual(plain_buffer.str().size(), size);
    ExpectTrue(ZlibDeflate(plain_buffer) == packed, "from a stream buffer");
  }
  ExpectThrows<std::runtime_error>([] { ZlibInflate(TestBytes(100)); },
                                   "inflate() failed: data error");
}
