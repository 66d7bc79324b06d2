#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "common/machine.h"
#include "common/timestamp.h"
#include "leaf/lumet/link/sample.h"
#include "liborrel/doctavo/doc_tavo.h"

// Adds the reading of a detector in the dark to its zero, and keeps the records of that.
//
// Once armed, the fifth flash sample decides, whichever flash it belongs to, counted over several
// flashes if need be; nothing else disarms. The flash is meant to be the dark one that a zero
// command starts.
class Zeroing {
 public:
  // `doc` and `machine` must outlive this.
  Zeroing(DocTavo& doc, std::string calibration_log, const Machine& machine)
      : doc(doc), calibration_log(std::move(calibration_log)), machine(machine) {}

  // Each replaces what was armed before.
  void ArmDC0() { Arm(&Zeroing::ZeroDC0); }
  void ArmPc0() { Arm(&Zeroing::ZeroPc0); }

  // Takes a sample. When its reading has gone into a zero, returns the name of that zero.
  std::optional<std::string> Take(double time, float dc, float pc, std::uint16_t code) {
    return zero_callback == nullptr ? std::nullopt : (this->*zero_callback)(time, dc, pc, code);
  }

  // Adds the zeros in force to the history, which keeps the latest of each type, and as a line to
  // the log. A log that can't be written goes unnoticed. Throws std::runtime_error when rights
  // can't be had.
  void LogCalibration(const Timestamp& time, const std::string& type);

 private:
  using Callback = std::optional<std::string> (Zeroing::*)(double, float, float, std::uint16_t);

  void Arm(Callback callback);
  std::optional<std::string> ZeroDC0(double time, float dc, float pc, std::uint16_t code);
  std::optional<std::string> ZeroPc0(double time, float dc, float pc, std::uint16_t code);
  std::optional<std::string> AddReading(ConfigurableInteger& zero, float reading,
                                        std::uint16_t code);
  void CompactHistory();

  DocTavo& doc;
  const std::string calibration_log;
  const Machine& machine;
  Callback zero_callback = nullptr;
  int zero_sample_count = 0;
};
