#include "benchmarks/stream.h"

#include <vector>

namespace {

WireSample SampleOf(Stream stream, const Rate& rate, int number) {
  WireSample sample;
  const auto drift = static_cast<float>(number % 997);
  sample.tick = static_cast<std::uint32_t>(number) * rate.period_us;
  sample.lumet = 400 + drift * 0.013F;
  sample.dc = 590 + drift * 0.0171F;
  sample.pc = 330 + drift * 0.0137F;
  sample.red_dac = 20000;
  sample.blue_dac = 2000;
  sample.modred_dac = 8000;
  sample.modulation_rate = 1000;
  sample.code = stream == Stream::kFlash ? kFlash : kMeasuring;
  if (stream == Stream::kEveryColumn) {
    sample.red_dac += drift * 1.03F;
    sample.blue_dac += drift * 0.71F;
    sample.farred_dac = 100 + drift * 0.37F;
    sample.modred_dac += drift * 0.53F;
  }
  if (stream == Stream::kTies) {
    const auto quarters = static_cast<float>(number * 2 % 997 * 2 + 1) / 4;
    sample.lumet = 50'000 + quarters;
    sample.dc = 40'000 + quarters;
    sample.pc = 30'000 + quarters;
  }
  if (stream == Stream::kSmall) {
    sample.lumet *= 1e-7F;
    sample.dc *= 1e-7F;
    sample.pc *= 1e-7F;
  }
  return sample;
}

// The processor's records carry the time at which they were passed on.
RecordTime StampOf(const WireSample& sample) {
  return {kFirstSecond + sample.tick / 1'000'000,
          static_cast<std::int32_t>(sample.tick % 1'000'000 * 1000)};
}

}  // namespace

RecordWriter ReadOf(Stream stream, const Rate& rate, int first) {
  RecordWriter records;
  std::vector<WireSample> batch;
  for (int number = first; number < first + rate.in_read; ++number) {
    const WireSample sample = SampleOf(stream, rate, number);
    if (rate.in_read == 1) {
      records.Sample(StampOf(sample), sample);
      continue;
    }
    batch.push_back(sample);
    if (batch.size() < WireBatch::kSlots) continue;
    records.Batch(StampOf(sample), batch);
    batch.clear();
  }
  return records;
}
