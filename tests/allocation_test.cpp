// The road of a sample takes no memory once it is warm.

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <new>

#include "bench/bench_instrument.h"
#include "bench/head.h"
#include "bench/record_writer.h"
#include "client/lines.h"
#include "common/poll_processor.h"
#include "leaf/lumet/lumet.h"

namespace {

std::atomic<std::uint64_t> allocations = 0;

}  // namespace

// NOLINTBEGIN(cppcoreguidelines-no-malloc): these are what others are to use
void* operator new(std::size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
// NOLINTEND(cppcoreguidelines-no-malloc)

namespace {

TEST(Allocation, NonePerSampleOnceWarm) {
  const TemporaryDirectory root;
  std::array<int, 2> ends = {};
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends.data()), 0);
  Instrument instrument = BenchInstrument(root.Path());
  const Machine machine = BenchMachine(instrument);
  instrument.dsp_fd = ends[0];
  instrument.console_port = 0;
  int port = 0;
  instrument.console_listens = [&](int listening_port) { port = listening_port; };
  bool reboot = false;
  bool poweroff = false;
  Lumet lumet(instrument, machine, false, &reboot, &poweroff);
  Processor processor;
  processor.Attach(ends[1]);
  const auto turn = [] {
    for (int i = 0; i < 4; ++i) PollProcessor::Instance()->Process(0);
  };
  // In this thread nobody could wait for what the daemon says.
  LineClient first(port);
  turn();
  LineClient second(port);
  turn();

  std::array<WireSample, WireBatch::kSlots> batch;
  RecordWriter records;
  std::uint64_t counted = 0;
  constexpr int kRounds = 100;
  constexpr int kWarmingRounds = 10;
  for (int round = 0; round < kRounds; ++round) {
    for (WireSample& sample : batch) {
      sample.code = 1;
      sample.tick += 1000;
      sample.lumet += 0.1F;
      sample.red_dac = 1000;
    }
    records.Batch(StampNow(), batch);
    processor.Send(records);
    const std::uint64_t before = allocations;
    turn();
    if (round >= kWarmingRounds) counted += allocations - before;
    for (LineClient* client : {&first, &second}) client->Drop();
  }
  EXPECT_EQ(counted, 0U) << "allocations for " << (kRounds - kWarmingRounds) * 10 << " samples";
  // The rows really went out.
  records.Batch(StampNow(), batch);
  processor.Send(records);
  turn();
  EXPECT_EQ(first.ReadLine().substr(0, 5), "DATA\t");
}

}  // namespace
