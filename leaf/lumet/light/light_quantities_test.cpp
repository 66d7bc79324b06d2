#include "leaf/lumet/light/light_quantities.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <random>

#include "common/test_registry.h"

namespace {

using namespace self_test;

// What is kept from one sample to the next changes nothing.
void LightSequenceCases() {
  LightCalibration calibration;
  calibration.red = {2.5F, 0.3F, 100};
  calibration.blue = {4.1F, 0.7F, 3};
  calibration.farred = {0.9F, 0.11F, -5};
  calibration.modred = {1.7F, 2.3F, 10};
  LightQuantities kept(calibration);
  std::mt19937 random(5);
  DataSample sample;
  for (int i = 0; i < 20'000; ++i) {
    constexpr std::array kMeasured = {DataSample::PC,        DataSample::MODRATE,
                                      DataSample::REDDAC,    DataSample::BLUEDAC,
                                      DataSample::FARREDDAC, DataSample::MODREDDAC};
    float& value = sample.values[kMeasured[random() % kMeasured.size()]];
    value = random() % 3 == 0    ? 0
            : random() % 50 == 0 ? std::bit_cast<float>(static_cast<std::uint32_t>(random()))
                                 : static_cast<float>(random() % 70'000) / 3 - 1000;
    const float transmittance = random() % 2 == 0 ? 1 : 0.7F;
    DataSample fresh = sample;
    DeriveLightQuantities(calibration, transmittance, fresh);
    kept.Derive(transmittance, sample);
    for (std::size_t place = 0; place < sample.values.size(); ++place)
      ExpectTrue(std::bit_cast<std::uint32_t>(sample.values[place]) ==
                         std::bit_cast<std::uint32_t>(fresh.values[place]) ||
                     (std::isnan(sample.values[place]) && std::isnan(fresh.values[place])),
                 "quantities of a sequence");
  }
}

void SingleSampleCases() {
  LightCalibration calibration;
  calibration.red = {2, 0.5F, 100};
  calibration.blue = {4, 0.25F, 0};
  calibration.modred = {1, 2, 10};
  const struct {
    const char* name;
    float red, blue, farred, modred;
    const char* expected;  // PFD, average of the measuring light, fractions
  } rows[] = {
      {"dark", 0, 0, 0, 0, "0 0 0 0 0 "},
      {"measuring light alone", 0, 0, 0, 510, "10 20 0 0 0 "},
      // 300 counts / (0.5 / 2 + 0.5 / 4), and 20 of measuring light, through half the path
      {"red and blue", 1100, 1000, 0, 510, "410 20 0.5 0.5 0 "},
      {"all three: 300 / 0.6875 / 2", 1100, 1000, 2000, 0, "218.182 0 0.25 0.25 0.5 "},
      {"a source below its zero", 50, 0, 0, 0, "0 0 0 0 0 "},
  };
  for (const auto& row : rows) {
    DataSample sample;
    auto& values = sample.values;
    values[DataSample::REDDAC] = row.red;
    values[DataSample::BLUEDAC] = row.blue;
    values[DataSample::FARREDDAC] = row.farred;
    values[DataSample::MODREDDAC] = row.modred;
    values[DataSample::PC] = 300;
    values[DataSample::MODRATE] = 20000;
    DeriveLightQuantities(calibration, 0.5F, sample);
    std::ostringstream derived;
    for (const auto channel : {DataSample::PFD, DataSample::REDMODAVG, DataSample::REDFRAC,
                               DataSample::BLUEFRAC, DataSample::FARREDFRAC})
      derived << values[channel] << " ";
    ExpectEqual(derived.str(), row.expected, row.name);
  }
}

}  // namespace

void LightQuantitiesCases() {
  SingleSampleCases();
  LightSequenceCases();
}
