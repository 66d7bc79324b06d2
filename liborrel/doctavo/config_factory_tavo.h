#pragma once

#include "configurable/child.h"
#include "liborrel/units.h"

// What relates DAC counts to photon flux, for each light source.
class ConfigFactoryCalibrationTavo : public ConfigurableComposite {
 public:
  ConfigFactoryCalibrationTavo() : ConfigurableComposite("calibration") {}

  FloatLeaf FRed{this, "F_red", units::kPFDPerPc,
                 "Flux at the leaf for a count of the light sensor in red light", 1.0F};
  FloatLeaf FBlue{this, "F_blue", units::kPFDPerPc,
                  "Flux at the leaf for a count of the light sensor in blue light", 1.0F};
  FloatLeaf FFarred{this, "F_farred", units::kPFDPerPc,
                    "Flux at the leaf for a count of the light sensor in far-red light", 1.0F};
  FloatLeaf FModred{this, "F_modred", units::kPFDPerPc,
                    "Flux at the leaf for a count of the light sensor in red measuring light",
                    1.0F};
  FloatLeaf URed{this, "u_red", units::kPcPerDAC,
                 "Counts of the light sensor for a DAC count of red light", 1.0F};
  FloatLeaf UBlue{this, "u_blue", units::kPcPerDAC,
                  "Counts of the light sensor for a DAC count of blue light", 1.0F};
  FloatLeaf UFarred{this, "u_farred", units::kPcPerDAC,
                    "Counts of the light sensor for a DAC count of far-red light", 1.0F};
  FloatLeaf UModred{this, "u_modred", units::kPcPerDAC,
                    "Counts of the light sensor for a DAC count of red measuring light", 1.0F};
  FloatLeaf DacRedZero{this, "dac_red_zero", units::kDAC, "DAC counts at which red light is dark",
                       0.0F};
  FloatLeaf DacBlueZero{this, "dac_blue_zero", units::kDAC,
                        "DAC counts at which blue light is dark", 0.0F};
  FloatLeaf DacFarredZero{this, "dac_farred_zero", units::kDAC,
                          "DAC counts at which far-red light is dark", 0.0F};
  FloatLeaf DacModredZero{this, "dac_modred_zero", units::kDAC,
                          "DAC counts at which red measuring light is dark", 0.0F};
};

// Working points of the light drivers. Far red has no bias, and only red is precharged.
class ConfigFactoryBiasTavo : public ConfigurableComposite {
 public:
  ConfigFactoryBiasTavo() : ConfigurableComposite("bias") {}

  IntegerLeaf RedOffset{
      this, "red_offset", units::kDACCounts, "Offset of the driver of red light", 0, 0, 4096};
  IntegerLeaf BlueOffset{
      this, "blue_offset", units::kDACCounts, "Offset of the driver of blue light", 0, 0, 4096};
  IntegerLeaf FarredOffset{
      this, "farred_offset", units::kDACCounts, "Offset of the driver of far-red light", 0, 0,
      4096};
  IntegerLeaf ModredOffset{
      this, "modred_offset", units::kDACCounts, "Offset of the driver of red measuring light", 0, 0,
      4096};
  IntegerLeaf RedBias{this, "red_bias", units::kDACCounts, "Bias of the driver of red light", 3375,
                      0,    4096};
  IntegerLeaf BlueBias{
      this, "blue_bias", units::kDACCounts, "Bias of the driver of blue light", 2916, 0, 4096};
  IntegerLeaf ModredBias{
      this, "modred_bias", units::kDACCounts, "Bias of the driver of red measuring light", 2048,
      0,    4096};
  IntegerLeaf RedPrecharge{this,
                           "red_precharge",
                           units::kDACCounts,
                           "Level to which the driver of red light is precharged",
                           0,
                           0,
                           4096};
  FloatLeaf RedPrechargeTime{this,
                             "red_precharge_time",
                             units::kMicrosecs,
                             "How long the driver of red light is precharged",
                             0.0F,
                             0.0F,
                             2.55F,
                             false};
};

// What belongs to this one instrument.
class ConfigFactoryTavo : public ConfigurableComposite {
 public:
  ConfigFactoryTavo() : ConfigurableComposite("factory") {}

  StringLeaf Serialnumber{this, "serialnumber", units::kNone, "Serial number of the instrument",
                          "TVF-XXXX"};
  Child<ConfigFactoryCalibrationTavo> Calibration{this, "What relates DAC counts to photon flux"};
  Child<ConfigFactoryBiasTavo> Bias{this, "Working points of the light drivers"};
};
