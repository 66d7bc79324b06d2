#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// What the signal processor was doing when it took a sample. All but kMeasuring belong to a flash
// or a dark pulse.
enum SampleCode : std::uint16_t {
  kMeasuring = 1,

  kBeforeFlash = 2,  // in the margin
  kFlash = 3,        // rectangular, zeroing or induction flash
  kPhase1 = 4,       // of a multiphase flash: full light
  kPhase2 = 5,       // the light ramps down
  kPhase3 = 6,       // full light again
  kAfterFlash = 7,   // in the margin

  kBeforeDark = 11,        // in the margin
  kDarkBeforeFarRed = 12,  // of a dark pulse
  kDarkFarRed = 13,        // with far-red light
  kDarkAfterFarRed = 14,
  kAfterDark = 15,  // in the margin
};

// The bits of DIAG. Those of saturation come with each sample; the head keeps the others.
enum DiagBit : std::uint32_t {
  CONSOLECONNECTED = 0x0001,
  PARSATURATED = 0x0400,  // light sensor
  DCSATURATED = 0x0800,   // detector
  TEMP_WARNING = 0x1000,
  REDMODOFF = 0x2000,
  TESTMODEON = 0x4000,
  TEMP_FAULT = 0x8000,
};

// One sample as the head works with it.
struct DataSample {
  static constexpr std::uint32_t count = 13;

  // Places in `values`. PFD to FARREDFRAC are derived by the head, and 0 as delivered.
  enum Channel : std::size_t {
    LUMET = 0,
    DC = 1,
    PC = 2,         // counts
    PFD = 3,        // µmol/m²/s
    REDMODAVG = 4,  // µmol/m²/s
    REDFRAC = 5,
    BLUEFRAC = 6,
    FARREDFRAC = 7,
    MODRATE = 8,  // Hz
    REDDAC = 9,
    BLUEDAC = 10,
    FARREDDAC = 11,
    MODREDDAC = 12,
  };

  double time = 0;  // seconds of the system clock
  std::array<float, count> values = {};
  std::uint32_t flags = 0;  // bits of DIAG
  std::uint16_t code = 0;   // SampleCode, or an unknown one
};
