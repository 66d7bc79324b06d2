// The simulated processor.

#include <gtest/gtest.h>

#include <cstdint>
#include <span>
#include <vector>

#include "bench/simulated_dsp.h"
#include "common/little_endian.h"
#include "leaf/lumet/link/recording.h"

namespace {

constexpr RecordTime kStamp = {1000, 5};

// One command as a packet.
std::vector<std::uint8_t> Command(DSPCode code, std::span<const std::uint8_t> payload) {
  RecordWriter writer;
  writer.Record({}, static_cast<std::uint16_t>(code), payload);
  return writer.packets.front();
}

TEST(SimulatedProcessor, StreamsAtTheRateAndInTheBatchesAskedFor) {
  const struct {
    std::uint32_t rate;
    std::uint16_t batch;
    std::uint64_t seconds;
  } rows[] = {{1, 1, 5}, {20, 1, 3}, {40, 2, 3}, {250, 12, 2}, {250'000, 10, 1}, {40, 0, 1}};
  for (const auto& row : rows) {
    SimulatedDSP dsp(10, 1, *Leaf::Named("dark-adapted"));
    const std::uint8_t format[] = {2, 0, 0, 0};
    // A tick that wraps in the middle.
    const std::uint64_t start = (std::uint64_t{1} << 32) - 500'000;
    dsp.Advance(kStamp, start);
    EXPECT_TRUE(dsp.Output().packets.empty()) << "samples before the output format is known";
    dsp.HandleCommands(kStamp, Command(DSPCode::SetOutputFormat, format));
    TimingConfig timing;
    timing.measure_outrate = row.rate;
    timing.measure_batch = row.batch;
    timing.measure_red = 1234;
    dsp.HandleCommands(kStamp, Command(DSPCode::SetTimingConfig, timing.Encode()));
    std::uint64_t samples = 0;
    for (std::uint64_t ms = 0; ms <= row.seconds * 1000; ms += 10) {
      dsp.Advance(kStamp, start + ms * 1000);
      const auto check = [&](const RecordHeader& header, std::span<const std::uint8_t> payload) {
        EXPECT_EQ(header.time.seconds, kStamp.seconds);
        const bool single = header.code == 0x2009;
        EXPECT_EQ(single, row.batch <= 1);
        const std::size_t count = single ? 1 : GetU16(&payload[400]);
        EXPECT_EQ(count, single ? 1 : std::min<std::size_t>(row.batch, 10));
        for (std::size_t i = 0; i < count; ++i, ++samples) {
          const WireSample sample = WireSample::Decode(&payload[40 * i]);
          EXPECT_EQ(sample.tick,
                    static_cast<std::uint32_t>(start + (samples + 1) * 1'000'000 / row.rate));
          EXPECT_EQ(sample.red_dac, 1234);
        }
      };
      for (const auto& packet : dsp.Output().packets) ForEachRecord(packet, check);
      dsp.Output().packets.clear();
    }
    EXPECT_EQ(samples, row.rate * row.seconds) << row.rate;
  }
}

}  // namespace
