// What the head finds out about the bench's leaves, by its own analysis and by fits, compared with
// what is true of them.

#include "bench/leaf.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
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
#include "leaf/lumet/events/linear_fit.h"
#include "leaf/lumet/light/light_quantities.h"

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

// One step of the fast rise.
struct Shoulder {
  double time = 0;   // s, where dV/dlog t is least
  double v = 0;      // of the way from Fo to the highest F
  double ratio = 0;  // of dV/dlog t: the lower of the peaks before and after it, to the least
};

struct Rise {
  double fm = 0;
  double p = 0;  // s
  Shoulder j;
  Shoulder i;
};

// Straight lines through F on log t, each through a tenth of a decade on both sides.
Rise Fit(const Samples& induction, double fo) {
  std::vector<float> log_t;
  std::vector<float> f;
  const auto first = std::find_if(induction.begin(), induction.end(),
                                  [](const DataSample& sample) { return sample.code == 3; });
  for (auto at = first; at != induction.end() && at->code == 3; ++at) {
    log_t.push_back(static_cast<float>(std::log10(at->time - (first - 1)->time)));
    f.push_back(static_cast<float>(F(*at)));
  }
  struct Point {
    double log_t, f, slope;
  };
  std::vector<Point> curve;
  for (double x = -4; x < -0.2; x += 0.025) {
    const auto from = std::lower_bound(log_t.begin(), log_t.end(), x - 0.1) - log_t.begin();
    const auto to = std::lower_bound(log_t.begin(), log_t.end(), x + 0.1) - log_t.begin();
    float slope = 0;
    float intercept = 0;
    LinearFit({log_t.begin() + from, log_t.begin() + to}, {f.begin() + from, f.begin() + to},
              &slope, &intercept, nullptr, nullptr, nullptr);
    curve.push_back({x, intercept + slope * x, slope});
  }
  const auto place = [&](double t) {
    return std::find_if(curve.begin(), curve.end(),
                        [&](const Point& point) { return point.log_t >= std::log10(t); });
  };
  const auto less_steep = [](const Point& a, const Point& b) { return a.slope < b.slope; };
  const auto peak = std::max_element(curve.begin(), curve.end(),
                                     [](const Point& a, const Point& b) { return a.f < b.f; });
  const auto shoulder = [&](auto least, auto before, auto after) {
    const double lower_peak = std::min(std::max_element(before, least, less_steep)->slope,
                                       std::max_element(least, after, less_steep)->slope);
    return Shoulder{std::pow(10, least->log_t), (least->f - fo) / (peak->f - fo),
                    lower_peak / least->slope};
  };
  const auto j = std::min_element(place(5e-4), place(8e-3), less_steep);
  const auto i = std::min_element(place(15e-3), place(70e-3), less_steep);
  return {peak->f, std::pow(10, peak->log_t), shoulder(j, curve.begin(), i),
          shoulder(i, j, curve.end())};
}

void ExpectWithin(double value, double low, double high, const char* what) {
  EXPECT_GE(value, low) << what;
  EXPECT_LE(value, high) << what;
}

class Leaves : public testing::TestWithParam<const char*> {};

TEST_P(Leaves, RiseInSteps) {
  double last_j = 1;
  for (const double flash : {3000, 5000, 8000}) {
    SCOPED_TRACE(flash);
    Desk desk(GetParam(), 0, flash, 250'000);
    const double fo = desk.Measure(20);
    const Rise rise = Fit(desk.Event(DSPCode::StartRectFlash, 0.9), fo);
    EXPECT_NEAR(1 - fo / rise.fm, 0.8, 0.012) << "Fv/Fm";
    ExpectWithin(rise.j.time, 1.4e-3, 3e-3, "J");
    ExpectWithin(rise.j.v, 0.4, 0.55, "V of J");
    EXPECT_GT(rise.j.ratio, 2);
    EXPECT_LT(rise.j.time, last_j) << "J comes sooner in more light";
    ExpectWithin(rise.i.time, 20e-3, 50e-3, "I");
    ExpectWithin(rise.i.v, 0.75, 0.89, "V of I");
    EXPECT_GT(rise.i.ratio, 1.5);
    ExpectWithin(rise.p, 0.2, 0.5, "P");
    last_j = rise.j.time;
  }
  // In little light the steps fade.
  Desk dim(GetParam(), 0, 300, 250'000);
  const double fo = dim.Measure(20);
  const Rise slow = Fit(dim.Event(DSPCode::StartRectFlash, 0.9), fo);
  EXPECT_LT(slow.j.v, 0.3);
  EXPECT_LT(slow.i.ratio, 2);
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
