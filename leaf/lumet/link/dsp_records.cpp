#include "leaf/lumet/link/dsp_records.h"

#include <algorithm>

#include "common/little_endian.h"

namespace {

// Each wire struct has one table below, a function that names every field with its offset. It is
// run with one of the two codecs here.

std::uint16_t Clamp10(std::uint16_t value) { return std::min<std::uint16_t>(value, 10); }

std::uint16_t Quantise16(std::uint16_t value) {
  if (value > 65519) return 65520;
  const unsigned rounded = (value & 8U) != 0 ? value + 16U : value;
  return static_cast<std::uint16_t>(rounded & 0xFFF0U);
}

class Encoder {
 public:
  explicit Encoder(std::uint8_t* base) : base(base) {}
  void U16(std::size_t offset, std::uint16_t value) { PutU16(base + offset, value); }
  void U32(std::size_t offset, std::uint32_t value) { PutU32(base + offset, value); }
  void F32(std::size_t offset, float value) { PutF32(base + offset, value); }
  void Batch(std::size_t offset, std::uint16_t value) { U16(offset, Clamp10(value)); }
  void Quantised(std::size_t offset, std::uint16_t value) { U16(offset, Quantise16(value)); }

 private:
  std::uint8_t* base;
};

class Decoder {
 public:
  explicit Decoder(const std::uint8_t* base) : base(base) {}
  void U16(std::size_t offset, std::uint16_t& value) { value = GetU16(base + offset); }
  void U32(std::size_t offset, std::uint32_t& value) { value = GetU32(base + offset); }
  void F32(std::size_t offset, float& value) { value = GetF32(base + offset); }
  void Batch(std::size_t offset, std::uint16_t& value) { U16(offset, value); }
  void Quantised(std::size_t offset, std::uint16_t& value) { U16(offset, value); }

 private:
  const std::uint8_t* base;
};

template <class Codec, class Config>
void TimingFields(Codec wire, Config& config) {
  wire.U32(0, config.measure_modrate);
  wire.U32(4, config.flash_modrate);
  wire.U32(8, config.dark_modrate);
  wire.U32(12, config.measure_outrate);
  wire.U32(16, config.flash_outrate);
  wire.U32(20, config.dark_outrate);
  wire.U32(24, config.flash_margin_before);
  wire.U32(28, config.flash_margin_after);
  wire.U32(32, config.dark_margin_before);
  wire.U32(36, config.dark_margin_after);
  wire.Batch(40, config.measure_batch);
  wire.U16(42, config.measure_red);
  wire.U16(44, config.measure_blue);
  wire.Quantised(46, config.measure_farred);
  wire.Quantised(48, config.measure_modred);
  wire.Batch(50, config.flash_batch);
  wire.U16(52, config.flash_red);
  wire.U16(54, config.flash_blue);
  wire.Quantised(56, config.flash_farred);
  wire.Quantised(58, config.flash_modred);
  wire.U16(60, config.phase1_duration);
  wire.U16(62, config.phase2_duration);
  wire.U16(64, config.phase3_duration);
  wire.U16(66, config.ramp_end_red);
  wire.U16(68, config.flash_duration);
  wire.Batch(70, config.dark_batch);
  wire.U16(72, config.dark_duration);
  wire.U16(74, config.dark_red);
  wire.U16(76, config.dark_blue);
  wire.Quantised(78, config.dark_farred);
  wire.Quantised(80, config.dark_spare);
  wire.Quantised(82, config.dark_modred);
  wire.U16(84, config.dark_before);
  wire.U16(86, config.dark_after);
  wire.U16(88, config.red_precharge_time);
}

template <class Codec, class Config>
void BiasFields(Codec wire, Config& config) {
  wire.F32(0, config.red.u);
  wire.F32(8, config.red.F);
  wire.F32(12, config.blue.u);
  wire.F32(20, config.blue.F);
  wire.F32(24, config.farred.u);
  wire.F32(32, config.farred.F);
  // Protocol: blue comes before red here, unlike above.
  wire.F32(36, config.dac_blue_zero);
  wire.F32(40, config.dac_red_zero);
  wire.F32(44, config.dac_farred_zero);
  wire.F32(48, config.DC0);
  wire.F32(52, config.Pc0);
  wire.U16(56, config.red_offset);
  wire.U16(58, config.blue_offset);
  wire.U16(60, config.farred_offset);
  wire.U16(62, config.modred_offset);
  wire.U16(64, config.red_bias);
  wire.U16(66, config.blue_bias);
  wire.U16(68, config.modred_bias);
  wire.U16(70, config.red_precharge);
}

template <class Codec, class Sample>
void SampleFields(Codec wire, Sample& sample) {
  wire.U32(0, sample.tick);
  wire.F32(4, sample.dc);
  wire.F32(8, sample.lumet);
  wire.F32(12, sample.pc);
  wire.F32(16, sample.red_dac);
  wire.F32(20, sample.blue_dac);
  wire.F32(24, sample.farred_dac);
  wire.F32(28, sample.modred_dac);
  wire.U32(32, sample.modulation_rate);
  wire.U16(36, sample.code);
  wire.U16(38, sample.flags);
}

}  // namespace

RecordHeader RecordHeader::Decode(const std::uint8_t* at) {
  return {{GetU32(at), static_cast<std::int32_t>(GetU32(at + 4))}, GetU16(at + 8), GetU16(at + 10)};
}

std::array<std::uint8_t, RecordHeader::kSize> RecordHeader::Encode() const {
  std::array<std::uint8_t, kSize> bytes = {};
  PutU32(bytes.data(), time.seconds);
  PutU32(bytes.data() + 4, static_cast<std::uint32_t>(time.nanoseconds));
  PutU16(bytes.data() + 8, code);
  PutU16(bytes.data() + 10, length);
  return bytes;
}

std::uint16_t PaddedLength(std::uint16_t length) {
  return static_cast<std::uint16_t>((length + 3U) & ~3U);
}

TimingConfig TimingConfig::Decode(const std::uint8_t* at) {
  TimingConfig config;
  TimingFields(Decoder(at), config);
  return config;
}

std::array<std::uint8_t, TimingConfig::kSize> TimingConfig::Encode() const {
  std::array<std::uint8_t, kSize> bytes = {};
  TimingFields(Encoder(bytes.data()), *this);
  return bytes;
}

BiasConfig BiasConfig::Decode(const std::uint8_t* at) {
  BiasConfig config;
  BiasFields(Decoder(at), config);
  return config;
}

std::array<std::uint8_t, BiasConfig::kSize> BiasConfig::Encode() const {
  std::array<std::uint8_t, kSize> bytes = {};
  BiasFields(Encoder(bytes.data()), *this);
  return bytes;
}

WireSample WireSample::Decode(const std::uint8_t* at) {
  WireSample sample;
  SampleFields(Decoder(at), sample);
  return sample;
}

std::array<std::uint8_t, WireSample::kSize> WireSample::Encode() const {
  std::array<std::uint8_t, kSize> bytes = {};
  SampleFields(Encoder(bytes.data()), *this);
  return bytes;
}

std::uint16_t BatchSize(std::uint32_t output_rate) {
  return output_rate < 21 ? 1 : static_cast<std::uint16_t>(output_rate / 20);
}

DataSample ToDataSample(const WireSample& wire, double time) {
  DataSample sample;
  sample.time = time;
  sample.values[DataSample::LUMET] = wire.lumet;
  sample.values[DataSample::DC] = wire.dc;
  sample.values[DataSample::PC] = wire.pc;
  sample.values[DataSample::MODRATE] = static_cast<float>(wire.modulation_rate);
  sample.values[DataSample::REDDAC] = wire.red_dac;
  sample.values[DataSample::BLUEDAC] = wire.blue_dac;
  sample.values[DataSample::FARREDDAC] = wire.farred_dac;
  sample.values[DataSample::MODREDDAC] = wire.modred_dac;
  sample.flags =
      ((wire.flags & 1U) != 0 ? DCSATURATED : 0U) | ((wire.flags & 2U) != 0 ? PARSATURATED : 0U);
  sample.code = wire.code;
  return sample;
}

LegacySample LegacySample::Decode(const RecordTime& time, const std::uint8_t* at) {
  // The word of the record for each channel; the other channels are 0.
  constexpr std::array<std::size_t, 12> kWords = {11, 12, 13, 14, 7, 8, 9, 10, 3, 4, 5, 6};
  LegacySample sample;
  sample.time = time.InSeconds();
  for (std::size_t i = 0; i < kWords.size(); ++i)
    sample.values[i] = static_cast<float>(GetU32(at + 4 * kWords[i]));
  const std::uint32_t bits = GetU32(at + std::size_t{4} * 15);
  sample.flags = ((bits & 1U) != 0 ? 0x8000U : 0U) | ((bits & 2U) != 0 ? 0x2000U : 0U);
  return sample;
}
