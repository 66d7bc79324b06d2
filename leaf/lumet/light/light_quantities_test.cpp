#include "leaf/lumet/light/light_quantities.h"

#include <sstream>

#include "common/test_registry.h"

using self_test::ExpectEqual;

void LightQuantitiesCases() {
  LightCalibration calibration;
  calibration.red = {2, 0.5F, 100};
  calibration.blue = {4, 0.25F, 0};
  calibration.modred = {1, 2, 10};
  const struct {
    const char* name;
    float red, blue, farred, modred, pc;
    float pfd, redmodavg, redfrac, bluefrac, farredfrac;
  } rows[] = {
      {"dark", 0, 0, 0, 0, 300, 0, 0, 0, 0, 0},
      {"measuring light alone", 0, 0, 0, 510, 300, 10, 20, 0, 0, 0},
      // 300 counts / (0.5 / 2 + 0.5 / 4), and 20 of measuring light, through half the path
      {"red and blue", 1100, 1000, 0, 510, 300, 410, 20, 0.5F, 0.5F, 0},
      {"all three", 1100, 1000, 2000, 0, 300, 300.0F / 0.6875F / 2, 0, 0.25F, 0.25F, 0.5F},
      {"a source below its zero", 50, 0, 0, 0, 300, 0, 0, 0, 0, 0},
  };
  for (const auto& row : rows) {
    DataSample sample;
    auto& values = sample.values;
    values[DataSample::REDDAC] = row.red;
    values[DataSample::BLUEDAC] = row.blue;
    values[DataSample::FARREDDAC] = row.farred;
    values[DataSample::MODREDDAC] = row.modred;
    values[DataSample::PC] = row.pc;
    values[DataSample::MODRATE] = 20000;
    DeriveLightQuantities(calibration, 0.5F, sample);
    std::ostringstream derived;
    for (const auto channel : {DataSample::PFD, DataSample::REDMODAVG, DataSample::REDFRAC,
                               DataSample::BLUEFRAC, DataSample::FARREDFRAC})
      derived << values[channel] << " ";
    std::ostringstream expected;
    expected << row.pfd << " " << row.redmodavg << " " << row.redfrac << " " << row.bluefrac << " "
             << row.farredfrac << " ";
    ExpectEqual(derived.str(), expected.str(), row.name);
  }
}
