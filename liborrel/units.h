#pragma once

// Unit texts, UTF-8. Each is here once, since items share their unit by its address.
namespace units {

inline constexpr const char* kNone = nullptr;
inline constexpr char kHz[] = "Hz";
inline constexpr char kPercent[] = "%";
inline constexpr char kPoints[] = "points";
inline constexpr char kMs[] = "ms";
inline constexpr char kSecs[] = "secs";
inline constexpr char kMicrosecs[] = "µsecs";
inline constexpr char kPFD[] = "µmol/m²/s";
inline constexpr char kCounts[] = "counts";
inline constexpr char kPFDPerPc[] = "µmol/m²/s/Pc";
inline constexpr char kPcPerDAC[] = "Pc/DAC";
inline constexpr char kDAC[] = "DAC";
inline constexpr char kDACCounts[] = "DAC counts";

}  // namespace units
