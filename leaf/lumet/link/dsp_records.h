#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "leaf/lumet/link/sample.h"

// The wire format between the head and its signal processor. Both directions carry records: a
// header, a payload, and padding up to a multiple of 4. All numbers are little-endian, floats are
// IEEE 754 single precision. Offsets are in dsp_records.cpp, once for both directions.

// What a record is.
enum class DSPCode : std::uint16_t {
  PongRecord = 0x0002,
  DebugTextRecord = 0x0003,
  InitTextRecord = 0x0004,
  RequestVersion = 0x0005,
  VersionRecord = 0x0006,
  InfoTextRecord = 0x0007,

  BadCommandRecord = 0x1001,
  LegacyStatusRecord = 0x1003,
  WordListARecord = 0x1006,
  WordListBRecord = 0x1007,
  FatalTextRecord = 0x1009,
  CounterRecord = 0x100C,
  WordListCRecord = 0x100E,

  SetTimingConfig = 0x2001,
  SetBiasConfig = 0x2002,
  StartRectFlash = 0x2003,
  StartMultiPhaseFlash = 0x2004,
  StartDarkPulse = 0x2005,
  BreakSequence = 0x2007,
  ResetSequencer = 0x2008,
  DataSampleRecord = 0x2009,
  DataBatchRecord = 0x200A,
  WriteRegister = 0x200B,
  RegisterWrittenRecord = 0x200C,
  ReadRegister = 0x200D,
  RegisterValueRecord = 0x200E,
  StartRawCapture = 0x200F,
  RawCaptureRecord = 0x2010,
  SetOutputFormat = 0x2013,
  SetRedModulation = 0x2014,
  StartInductionFlash = 0x2015,
  SetGpio = 0x2017,
  SetTestVector = 0x2018,
};

// System time at which the driver passed a record on; 0 on the way to the processor.
struct RecordTime {
  std::uint32_t seconds = 0;
  std::int32_t nanoseconds = 0;

  double InSeconds() const { return seconds + nanoseconds / 1e9; }
};

struct RecordHeader {
  static constexpr std::size_t kSize = 12;

  RecordTime time;
  std::uint16_t code = 0;    // DSPCode, or an unknown one
  std::uint16_t length = 0;  // payload bytes, without the padding

  static RecordHeader Decode(const std::uint8_t* at);
  std::array<std::uint8_t, kSize> Encode() const;
};

// Payload bytes with their padding, in the 16-bit arithmetic of the link.
std::uint16_t PaddedLength(std::uint16_t length);

// The rates, light levels and durations that the processor works by. Rates are Hz, DAC levels are
// counts. Encoding caps each batch at 10 and rounds the levels of far red, of measuring red and
// `dark_spare` to multiples of 16, 65520 at most.
struct TimingConfig {
  static constexpr std::size_t kSize = 92;

  std::uint32_t measure_modrate = 0;
  std::uint32_t flash_modrate = 0;
  std::uint32_t dark_modrate = 0;
  std::uint32_t measure_outrate = 0;
  std::uint32_t flash_outrate = 0;
  std::uint32_t dark_outrate = 0;
  std::uint32_t flash_margin_before = 0;  // microseconds
  std::uint32_t flash_margin_after = 0;   // microseconds
  std::uint32_t dark_margin_before = 0;   // microseconds
  std::uint32_t dark_margin_after = 0;    // microseconds
  std::uint16_t measure_batch = 0;        // samples per DataBatchRecord
  std::uint16_t measure_red = 0;
  std::uint16_t measure_blue = 0;
  std::uint16_t measure_farred = 0;
  std::uint16_t measure_modred = 0;
  std::uint16_t flash_batch = 0;
  std::uint16_t flash_red = 0;
  std::uint16_t flash_blue = 0;
  std::uint16_t flash_farred = 0;
  std::uint16_t flash_modred = 0;
  std::uint16_t phase1_duration = 0;  // ms
  std::uint16_t phase2_duration = 0;  // ms
  std::uint16_t phase3_duration = 0;  // ms
  std::uint16_t ramp_end_red = 0;     // red at the end of phase 2
  std::uint16_t flash_duration = 0;   // ms
  std::uint16_t dark_batch = 0;
  std::uint16_t dark_duration = 0;
  std::uint16_t dark_red = 0;
  std::uint16_t dark_blue = 0;
  std::uint16_t dark_farred = 0;
  std::uint16_t dark_spare = 0;
  std::uint16_t dark_modred = 0;
  std::uint16_t dark_before = 0;
  std::uint16_t dark_after = 0;
  std::uint16_t red_precharge_time = 0;  // hundredths of a microsecond

  static TimingConfig Decode(const std::uint8_t* at);
  std::array<std::uint8_t, kSize> Encode() const;
};

// All lights off: what the processor gets when it must be safe. Rates and durations must not be 0.
inline constexpr TimingConfig kSafeTiming = {
    .measure_modrate = 1,
    .flash_modrate = 1,
    .dark_modrate = 1,
    .measure_outrate = 1,
    .flash_outrate = 1,
    .dark_outrate = 1,
    .flash_margin_before = 1,
    .flash_margin_after = 1,
    .dark_margin_before = 1,
    .dark_margin_after = 1,
    .measure_batch = 1,
    .flash_batch = 1,
    .phase1_duration = 1,
    .phase2_duration = 1,
    .phase3_duration = 1,
    .flash_duration = 1,
    .dark_batch = 1,
    .dark_duration = 1,
    .dark_before = 1,
    .dark_after = 1,
    .red_precharge_time = 1,
};

// Calibration and bias of the light sources, as the processor needs them.
struct BiasConfig {
  static constexpr std::size_t kSize = 72;

  struct Colour {
    float u = 0;  // Pc/DAC
    float F = 0;  // µmol/m²/s/Pc
  };
  Colour red;
  Colour blue;
  Colour farred;
  float dac_blue_zero = 0;
  float dac_red_zero = 0;
  float dac_farred_zero = 0;
  float DC0 = 0;  // counts
  float Pc0 = 0;  // counts
  // DAC counts
  std::uint16_t red_offset = 0;
  std::uint16_t blue_offset = 0;
  std::uint16_t farred_offset = 0;
  std::uint16_t modred_offset = 0;
  std::uint16_t red_bias = 0;
  std::uint16_t blue_bias = 0;
  std::uint16_t modred_bias = 0;
  std::uint16_t red_precharge = 0;

  static BiasConfig Decode(const std::uint8_t* at);
  std::array<std::uint8_t, kSize> Encode() const;
};

// One sample as the processor sends it, and one slot of a batch.
struct WireSample {
  static constexpr std::size_t kSize = 40;

  std::uint32_t tick = 0;  // microseconds, wraps
  float dc = 0;
  float lumet = 0;
  float pc = 0;
  float red_dac = 0;
  float blue_dac = 0;
  float farred_dac = 0;
  float modred_dac = 0;
  std::uint32_t modulation_rate = 0;  // Hz
  std::uint16_t code = 0;
  std::uint16_t flags = 0;  // bit 0: detector saturated; bit 1: light sensor saturated

  static WireSample Decode(const std::uint8_t* at);
  std::array<std::uint8_t, kSize> Encode() const;
};

// Payload of a DataBatchRecord: ten slots of WireSample::kSize, the count of those in use, and two
// unused bytes.
struct WireBatch {
  static constexpr std::size_t kSlots = 10;
  static constexpr std::size_t kCountOffset = kSlots * WireSample::kSize;
  static constexpr std::size_t kSize = kCountOffset + 4;
};

// Samples per batch for an output rate in Hz, before the record's own cap.
std::uint16_t BatchSize(std::uint32_t output_rate);

// The sample as the head works with it, taken at `time`, in seconds of the system clock.
DataSample ToDataSample(const WireSample& wire, double time);

// A sample in the other format, which this head does not use.
struct LegacySample {
  static constexpr std::size_t kMinimumSize = 64;

  double time = 0;  // seconds of the system clock
  std::array<float, 20> values = {};
  std::uint32_t flags = 0;

  static LegacySample Decode(const RecordTime& time, const std::uint8_t* at);
};
