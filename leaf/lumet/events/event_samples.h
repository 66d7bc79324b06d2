#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "leaf/lumet/link/sample.h"

// What is kept of the samples of an event, in columns, each of which can be freed by itself: 30
// bytes for each sample.
struct EventSamples {
  void Add(const DataSample& sample) {
    time.push_back(sample.time);
    lumet.push_back(sample.values[DataSample::LUMET]);
    dc.push_back(sample.values[DataSample::DC]);
    pfd.push_back(sample.values[DataSample::PFD]);
    redmodavg.push_back(sample.values[DataSample::REDMODAVG]);
    farredfrac.push_back(sample.values[DataSample::FARREDFRAC]);
    code.push_back(sample.code);
  }
  std::size_t size() const { return code.size(); }
  bool empty() const { return code.empty(); }

  std::vector<double> time;  // seconds of the system clock
  std::vector<float> lumet;
  std::vector<float> dc;
  std::vector<float> pfd;        // µmol/m²/s
  std::vector<float> redmodavg;  // µmol/m²/s
  std::vector<float> farredfrac;
  std::vector<std::uint16_t> code;
};
