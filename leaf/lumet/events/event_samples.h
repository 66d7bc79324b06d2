#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "leaf/lumet/link/sample.h"

// What is kept of the samples of an event: 30 bytes for each. They stand in blocks that never move,
// so that one more costs the same however many there are, and each block is large enough to go back
// to the system when it is freed.
class EventSamples {
 public:
  static constexpr std::size_t kBlock = 8192;  // samples
  struct Block {
    std::array<double, kBlock> time;  // seconds of the system clock
    std::array<float, kBlock> lumet;
    std::array<float, kBlock> dc;
    std::array<float, kBlock> pfd;        // µmol/m²/s
    std::array<float, kBlock> redmodavg;  // µmol/m²/s
    std::array<float, kBlock> farredfrac;
    std::array<std::uint16_t, kBlock> code;
  };

  void Add(const DataSample& sample) {
    const std::size_t i = count++ % kBlock;
    if (i == 0) blocks.push_back(std::make_unique_for_overwrite<Block>());
    Block& block = *blocks.back();
    block.time[i] = sample.time;
    block.lumet[i] = sample.values[DataSample::LUMET];
    block.dc[i] = sample.values[DataSample::DC];
    block.pfd[i] = sample.values[DataSample::PFD];
    block.redmodavg[i] = sample.values[DataSample::REDMODAVG];
    block.farredfrac[i] = sample.values[DataSample::FARREDFRAC];
    block.code[i] = sample.code;
  }
  std::size_t size() const { return count; }
  bool empty() const { return count == 0; }
  // Bytes of memory.
  std::size_t Bytes() const { return blocks.size() * sizeof(Block); }

  // The block of sample `i`, which is at the place `i % kBlock` of it.
  const Block& BlockOf(std::size_t i) const { return *blocks[i / kBlock]; }
  // The time of the first one, of which there must be one.
  double Start() const { return blocks.front()->time.front(); }

 private:
  std::vector<std::unique_ptr<Block>> blocks;  // all full but the last
  std::size_t count = 0;
};
