// Whatever the processor's device gives, the head goes on; and records do the same whether one read
// brings them all or each has its own.
//
// The head shows all that it makes of them: a client has every stream on, and a zeroing waits.

#include "fuzz/fuzz_head.h"

namespace {

constexpr std::string_view kBegin =
    "<nemra><tavo><output><status>true</status><datarawcapture>true</datarawcapture></output>"
    "<cfg><lightsource><control>PFD</control></lightsource></cfg>"
    "<cmd><zero_dc0>true</zero_dc0></cmd></tavo></nemra>\nr 1\nr 2\nout\n";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzHead at_once;
  FuzzHead one_by_one;
  std::array clients = {FuzzHead::Client(at_once), FuzzHead::Client(one_by_one)};
  for (auto& client : clients) client.Send(kBegin);
  std::span<const std::uint8_t> rest(data, size);
  at_once.Send(rest);
  while (!rest.empty()) {
    // What is cut off ends a read.
    std::size_t length = rest.size();
    if (length >= RecordHeader::kSize) {
      const std::uint16_t payload = RecordHeader::Decode(rest.data()).length;
      if (RecordHeader::kSize + payload <= length)
        length = std::min(length, RecordHeader::kSize + PaddedLength(payload));
    }
    one_by_one.Send(rest.first(length));
    rest = rest.subspan(length);
  }
  Check(ComesOutTheSame(at_once, one_by_one, [&](int i) {
    FuzzHead& head = i == 0 ? at_once : one_by_one;
    return head.Commands() + head.Saved() + clients[static_cast<std::size_t>(i)].Heard();
  }));
  return 0;
}
