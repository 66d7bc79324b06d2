// What the head finds out about the bench's leaves, by its own analysis and by fits, compared with
// what is true of them.

#include "bench/leaf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <deque>
#include <string>
#include <vector>

#include "bench/environment_file.h"
#include "bench/head.h"
#include "bench/simulated_dsp.h"
#include "client/console.h"
#include "common/little_endian.h"
#include "leaf/lumet/events/event_analysis.h"
#include "leaf/lumet/light/light_quantities.h"
#include "leaf/lumet/link/recording.h"

namespace {

EventAnalysis Analyse(const std::deque<DataSample>& samples) {
  EventSamples event;
  for (const DataSample& sample : samples) event.Add(sample);
  return AnalyseEvent(event);
}

using Samples = std::deque<DataSample>;

constexpr double kFlash = 8000;  // µmol/m²/s

double F(const DataSample& sample) { return sample.values[DataSample::LUMET]; }

double Mean(const Samples& samples, std::uint16_t code) {
  double sum = 0;
  double count = 0;
  for (const DataSample& sample : samples) {
    if (sample.code != code) continue;
    sum += F(sample);
    ++count;
  }
  return sum / count;
}

// A leaf under the simulated processor, measured with the head's quantities and analysis.
class Desk {
 public:
  // In red light of `q` µmol/m²/s. Flashes have `flash` and are sampled at `outrate`.
  Desk(const std::string& leaf, double q, double flash, std::uint32_t outrate)
      : dsp(10, 1, *Leaf::Named(leaf)) {
    BiasConfig bias;
    bias.red = {calibration.red.u, calibration.red.F};
    bias.blue = {calibration.blue.u, calibration.blue.F};
    bias.farred = {calibration.farred.u, calibration.farred.F};
    bias.dac_red_zero = calibration.red.dac_zero;
    bias.dac_blue_zero = calibration.blue.dac_zero;
    bias.dac_farred_zero = calibration.farred.dac_zero;
    bias.Pc0 = 12.3F;
    timing.measure_modrate = q > 0 ? 20'000 : 50;
    timing.dark_modrate = 50;
    timing.flash_modrate = 250'000;
    timing.measure_outrate = timing.dark_outrate = 50;
    timing.flash_outrate = outrate;
    timing.flash_margin_before = timing.flash_margin_after = outrate > 1000 ? 200 : 20'000;
    timing.measure_batch = timing.flash_batch = timing.dark_batch = 10;
    timing.measure_red = Red(q);
    timing.dark_red = timing.measure_red;
    timing.measure_modred = timing.flash_modred = timing.dark_modred = 19'664;
    timing.flash_red = Red(flash);
    timing.ramp_end_red = Red(0.4 * flash);
    timing.phase1_duration = timing.phase2_duration = timing.phase3_duration = 300;
    timing.flash_duration = 800;
    timing.dark_duration = 6;
    timing.dark_before = 1;
    timing.dark_after = 5;
    timing.dark_farred = static_cast<std::uint16_t>(25 / (0.3 * 0.1) + 100);
    Command(DSPCode::SetBiasConfig, bias.Encode());
    Command(DSPCode::SetTimingConfig, timing.Encode());
    Command(DSPCode::SetOutputFormat, std::array<std::uint8_t, 4>{2, 0, 0, 0});
  }

  // Lets time pass; returns the mean of F in the last second.
  double Measure(double seconds) {
    Pass(seconds - 1);
    return Mean(Pass(1), 1);
  }

  // The samples of a flash or dark pulse that takes this many seconds.
  Samples Event(DSPCode start, double seconds) {
    Command(start, {});
    Samples samples = Pass(seconds);
    std::erase_if(samples, [](const DataSample& sample) { return sample.code == 1; });
    return samples;
  }

 private:
  std::uint16_t Red(double q) const {
    const auto counts = static_cast<float>(q) / (calibration.red.F * calibration.red.u);
    return q <= 0 ? 0 : static_cast<std::uint16_t>(counts + calibration.red.dac_zero);
  }

  void Command(DSPCode code, std::span<const std::uint8_t> payload) {
    RecordWriter writer;
    writer.Record({}, static_cast<std::uint16_t>(code), payload);
    dsp.HandleCommands({}, writer.packets.front());
  }

  Samples Pass(double seconds) {
    Samples samples;
    const std::uint64_t end = elapsed + static_cast<std::uint64_t>(seconds * 1e6);
    while (elapsed < end) {
      elapsed = std::min<std::uint64_t>(end, elapsed + 100'000);
      dsp.Advance({}, elapsed);
      for (const auto& packet : dsp.Output().packets)
        ForEachRecord(packet, [&](const RecordHeader& header, std::span<const std::uint8_t> bytes) {
          if (header.code != static_cast<std::uint16_t>(DSPCode::DataBatchRecord)) return;
          for (std::size_t i = 0; i < GetU16(&bytes[WireBatch::kCountOffset]); ++i) {
            const WireSample wire = WireSample::Decode(&bytes[i * WireSample::kSize]);
            samples.push_back(ToDataSample(wire, wire.tick / 1e6));
            DeriveLightQuantities(calibration, 1, samples.back());
          }
        });
      dsp.Output().packets.clear();
    }
    return samples;
  }

  const LightCalibration calibration = LightPath::BenchCalibration();
  SimulatedDSP dsp;
  TimingConfig timing;
  std::uint64_t elapsed = 0;
};

// The fast rise: the highest F, and how far F has come to it from Fo, as means over octaves of the
// time of light. The first is 4 µs long, and each other twice as long as the one before it.
struct Rise {
  Rise(const Samples& induction, double fo) {
    std::array<double, 18> sums = {};
    std::array<double, 18> counts = {};
    unsigned number = 0;
    for (const DataSample& sample : induction) {
      if (sample.code != 3) continue;
      const auto octave = static_cast<std::size_t>(std::bit_width(++number) - 1);
      sums[octave] += F(sample);
      ++counts[octave];
    }
    for (std::size_t i = 0; i < v.size(); ++i) v[i] = sums[i] / counts[i];
    fm = *std::ranges::max_element(v);
    for (double& mean : v) mean = (mean - fo) / (fm - fo);
  }
  // How much F gains from octave `i` to the next.
  double Gain(std::size_t i) const { return v[i + 1] - v[i]; }

  double fm = 0;
  std::array<double, 18> v = {};
};

void ExpectWithin(double value, double low, double high, const char* what) {
  EXPECT_GE(value, low) << what;
  EXPECT_LE(value, high) << what;
}

class Leaves : public testing::TestWithParam<const char*> {};

TEST_P(Leaves, RiseInSteps) {
  const auto rise_in = [](double flash) {
    Desk desk(GetParam(), 0, flash, 250'000);
    const double fo = desk.Measure(20);
    const Rise rise(desk.Event(DSPCode::StartRectFlash, 0.9), fo);
    EXPECT_NEAR(1 - fo / rise.fm, 0.8, flash < 1000 ? 0.07 : 0.012) << "Fv/Fm";
    return rise;
  };
  double last_rise = 0;
  for (const double flash : {3000, 5000, 8000}) {
    SCOPED_TRACE(flash);
    const Rise rise = rise_in(flash);
    ExpectWithin(rise.v[9], 0.4, 0.55, "J, at 2 to 4 ms");
    EXPECT_GT(std::min(rise.Gain(5), rise.Gain(10)), 2 * rise.Gain(8)) << "the steps to J and I";
    ExpectWithin(rise.v[12], 0.73, 0.89, "I, at 16 to 33 ms");
    EXPECT_GT(std::min(rise.Gain(10), rise.Gain(14)), 1.5 * rise.Gain(12)) << "from I to P";
    EXPECT_EQ(rise.v[16], 1) << "P, at 0.26 to 0.52 s";
    EXPECT_GT(rise.v[6], last_rise) << "J comes sooner in more light";
    last_rise = rise.v[6];
  }
  // In little light the steps fade.
  const Rise slow = rise_in(300);
  EXPECT_LT(slow.v[9], 0.3);
  EXPECT_GT(slow.Gain(12), slow.Gain(11));
}

TEST_P(Leaves, AreWhatTheHeadFindsThemToBe) {
  double last_yield = 0.8;
  double last_transport = 0;
  for (const double q : {150, 400, 1000}) {
    SCOPED_TRACE(q);
    Desk rested(GetParam(), 0, kFlash, 250);
    const double fo = rested.Measure(20);
    const Samples flash = rested.Event(DSPCode::StartMultiPhaseFlash, 1.2);
    const double fm = Analyse(flash).FMax();
    EXPECT_NEAR(1 - fo / fm, 0.8, 0.01) << "Fv/Fm";
    // The measuring light at 250 kHz is light as well.
    EXPECT_NEAR(flash.front().values[DataSample::PFD], 242, 1);
    EXPECT_GT(F(flash[3]), 1.1 * fo);

    // The same leaf in the same light, about which everything is known.
    Leaf truth = *Leaf::Named(GetParam());
    const double scale = fo / truth.Fo();
    truth.Advance(900, q + 19.4, 0);

    Desk lit(GetParam(), q, kFlash, 250);
    const double fs = lit.Measure(900);
    EXPECT_NEAR(fs, scale * truth.Fluorescence(), 0.005 * fm) << "Fs";
    const EventAnalysis multiphase = Analyse(lit.Event(DSPCode::StartMultiPhaseFlash, 1.2));
    const double fm_lit = multiphase.FMax();
    EXPECT_NEAR(multiphase.q_max, kFlash + 242, 30);
    EXPECT_NEAR(fm_lit, scale * truth.Fm(), 0.01 * scale * truth.Fm()) << "Fm'";
    EXPECT_LT(multiphase.p1.max, 0.98 * fm_lit) << "the flash alone does not close all centres";
    EXPECT_GT(multiphase.p2_r2, 0.98);
    EXPECT_NEAR(fm / fm_lit, 1 / truth.Fm(), 0.02 / truth.Fm()) << "NPQ + 1";
    const double yield = 1 - fs / fm_lit;
    EXPECT_LT(yield, last_yield);
    EXPECT_GT(yield * q, last_transport) << "electron transport rises with the light";
    last_yield = yield;
    last_transport = yield * q;

    // Far red opens in half a second what else takes seconds.
    lit.Measure(60);
    const Samples dark = lit.Event(DSPCode::StartDarkPulse, 6.2);
    truth.Advance(60, q + 19.4, 0);
    const double fo_lit = scale * truth.Fo();
    EXPECT_NEAR(Analyse(dark).dark.min, fo_lit, 0.006 * fm) << "Fo'";
    const auto after = [&](std::uint16_t code, std::size_t samples) {
      auto at = std::find_if(dark.begin(), dark.end(),
                             [&](const DataSample& sample) { return sample.code == code; });
      return (F(at[static_cast<std::ptrdiff_t>(samples)]) - fo_lit) / (fs - fo_lit);
    };
    EXPECT_GT(after(12, 40), 0.06) << "0.8 s after the light";
    EXPECT_LT(after(13, 25), 0.04) << "half a second of far red";
  }
}

INSTANTIATE_TEST_SUITE_P(Bench, Leaves, testing::Values("dark-adapted", "shade", "sun"));

TEST(Leaf, ComesToTheSameHoweverTimeIsCut) {
  for (const double q : {100.0, 3000.0, 16'000.0}) {
    Leaf fine = *Leaf::Named("dark-adapted");
    std::vector<double> f;
    for (int i = 0; i < 500'000; ++i) {
      if (i % 1000 == 0) f.push_back(fine.Fluorescence());
      fine.Advance(1e-6, q, 0);
    }
    for (const std::size_t ms : {1U, 4U, 20U, 100U}) {
      Leaf coarse = *Leaf::Named("dark-adapted");
      for (std::size_t at = ms; at < f.size(); at += ms) {
        coarse.Advance(static_cast<double>(ms) * 1e-3, q, 0);
        ASSERT_NEAR(coarse.Fluorescence(), f[at], 0.002) << q << " at " << at << " ms by " << ms;
      }
    }
  }
}

TEST(Leaf, FollowsItsEnvironment) {
  const auto yield_in = [](const Environment& environment, double q) {
    Leaf leaf = *Leaf::Named("dark-adapted");
    leaf.SetEnvironment(environment);
    leaf.Advance(900, q, 0);
    return 1 - leaf.Fluorescence() / leaf.Fm();
  };
  EXPECT_NEAR(yield_in({.health = 0.5}, 0), 0.667, 0.001);
  EXPECT_LT(yield_in({.temperature = 10}, 400), 0.7 * yield_in({}, 400));
  EXPECT_GT(yield_in({.temperature = 33}, 400), yield_in({}, 400));

  const TemporaryDirectory root;
  const std::string file = root.Path() + "/environment";
  Head head(root.Path(), Head::PlayedBy::kSimulator,
            {.wrapper = {"sh", "-c", "exec \"$0\" \"$@\" 2>&1"}, .bench = {"--speed", "20"}});
  EXPECT_EQ(ReadFile(file), "temperature 25\nhealth 1\n");
  ConsoleClient client(head.Port());
  const auto read_to_f = [&](double low, double high) {
    double f = 0;
    while (f < low || f > high) f = client.NextData()["LUMET"];
  };
  read_to_f(285, 295);
  WriteFile(file, "health 0.5\ntemperature 30\n");
  read_to_f(238, 246);
  for (const char* bad : {"helth 1", "health 2", "health", "temperature warm", "health 1 x"}) {
    WriteFile(file, std::string(bad) + "\n");
    head.WaitForLog("environment: '" + std::string(bad) + "' is neither");
  }
  WriteFile(file, "\nhealth 1\n");
  read_to_f(285, 295);
  EXPECT_EQ(head.Stop(), 0);
}

}  // namespace
