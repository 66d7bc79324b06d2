#include "leaf/lumet/events/event_record.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <iterator>
#include <limits>
#include <utility>

#include "common/test_registry.h"
#include "leaf/lumet/events/event_recorder.h"

namespace {

using namespace self_test;

struct Run {
  std::uint16_t code;
  std::initializer_list<float> F;
  std::initializer_list<float> Q;  // the last one is repeated
};

constexpr double kStart = 1795248523.25;

EventRecorder Gathered(std::initializer_list<Run> runs) {
  EventRecorder events;
  double time = kStart;
  for (const Run& run : runs) {
    std::size_t place = 0;
    for (const float F : run.F) {
      DataSample sample;
      sample.time = time;
      sample.code = run.code;
      sample.values[DataSample::LUMET] = F;
      sample.values[DataSample::DC] = 7;
      sample.values[DataSample::PFD] = run.Q.begin()[std::min(place++, run.Q.size() - 1)];
      sample.values[DataSample::REDMODAVG] = 1;
      sample.values[DataSample::FARREDFRAC] = 0.5F;
      events.Gather(sample);
      time += 0.125;
    }
  }
  return events;
}

std::string Text(EventRecord& record) {
  std::string text;
  for (std::string_view piece = record.Next(); !piece.empty(); piece = record.Next()) text += piece;
  return text;
}

std::string Record(EventRecorder events, FlashMode mode) {
  ConfigTavo tavo;
  const auto record = events.WriteEvent(tavo, {12, mode, 250'000, 50});
  return Text(*record) + std::to_string(record->Kind());
}

// From TYPE on, without the array of times, on one line.
std::string Essence(const std::string& record) {
  std::string rest = record.substr(record.find("\"TYPE\""));
  const std::size_t secs = rest.find("\"SECS\"");
  rest.erase(secs, rest.find('\n', secs) + 1 - secs);
  std::replace(rest.begin(), rest.end(), '\n', ' ');
  return rest;
}

void MultiPhaseCases() {
  // F is 100 - 4 (10000 / Q) in phase 2, where Q falls by 8400 a second.
  EventRecorder multiphase = Gathered({{2, {50}, {200}},
                                       {4, {1, 2, 3, 4, 5, 60, 55, 58}, {5100}},
                                       {5, {92, 90, 84, 80}, {5000, 4000, 2500, 2000}},
                                       {6, {1, 2, 3, 4, 5, 70, 88}, {5000}}});
  const std::string record = Essence(Record(std::move(multiphase), FlashMode::kZero));
  ExpectEqual(
      record.substr(0, record.find(",1,2,3")),
      R"("TYPE":"MPF", "OUTRATE":1, "MARGIN":0, "PHASE1_DURATION":0, "PHASE2_DURATION":0, )"
      R"("PHASE3_DURATION":0, "Q_RED_SETPOINT":0, "D_RED_PERCENT":0, "RAMP":0, "FMAX":100, )"
      R"("QMAX":5100, "MODRATE":250000, "P1_MAXF":60, "P2_SLP":-4, "P2_INT":100, "P2_R2":1, )"
      R"("P2_SLP_SE":0, "P2_INT_SE":0, "P2_DQDT":-0.0084, "P3_Q":5000, "P3_MAXF":88, )"
      R"("P3_PREDF":92, "P3_DELTAF":-4, "LUMET":[50)");
}

void RecordCases() {
  const float nan = -std::numeric_limits<float>::quiet_NaN();
  const struct {
    const char* name;
    std::initializer_list<Run> runs;
    FlashMode mode;
    const char* expected;
  } rows[] = {
      {"the sixth sample of a flash starts its maximum, and only FMAX needs it",
       {{3, {9, 9, 9, 9, 9, 5, 6, 2}, {100, 300, 200}}},
       FlashMode::kRect,
       R"("TYPE":"RECT", "OUTRATE":1, "MARGIN":0, "DURATION":0, "Q_RED_SETPOINT":0, )"
       R"("D_RED_PERCENT":0, "FMAX":6, "QMAX":300, "MODRATE":250000, )"
       R"("LUMET":[9,9,9,9,9,5,6,2], "DC":[7,7,7,7,7,7,7,7], )"
       R"("PFD":[100,300,200,200,200,200,200,200], "REDMODAVG":[1,1,1,1,1,1,1,1], )"
       R"("CODE":[3,3,3,3,3,3,3,3] } 3)"},
      {"of a short flash the last sample counts; the sign of nan shows nowhere, an infinity keeps "
       "its own",
       {{3, {nan, -INFINITY}, {nan}}},
       FlashMode::kZero,
       R"("TYPE":"ZERO", "FMAX":-inf, "QMAX":-3.40282e+38, "MODRATE":250000, )"
       R"("LUMET":[nan,-inf], "DC":[7,7], "PFD":[nan,nan], "REDMODAVG":[1,1], )"
       R"("CODE":[3,3] } 3)"},
      {"the last family of a mixed run gives its type, and phases that never came stay at their "
       "start",
       {{3, {9}, {100}}, {13, {5}, {41}}},
       FlashMode::kInduction,
       R"("TYPE":"DARK", "OUTRATE":1, "DURATION":0, "MARGIN":0, "BEFORE":0, "AFTER":0, )"
       R"("Q_FARRED_SETPOINT":0, "D_FARRED_PERCENT":0, "FMIN":3.40282e+38, "QMIN":41, )"
       R"("MODRATE":50, "LUMET":[9,5], "DC":[7,7], "PFD":[100,41], "REDMODAVG":[1,1], )"
       R"("FARRED":[49.5,20], "CODE":[3,13] } 12)"},
      {"the fourth sample of the dark phase starts its minimum",
       {{12, {1}, {5}}, {14, {9, 2, 8, 7, 11}, {3, 2, 4}}},
       FlashMode::kRect,
       R"("TYPE":"DARK", "OUTRATE":1, "DURATION":0, "MARGIN":0, "BEFORE":0, "AFTER":0, )"
       R"("Q_FARRED_SETPOINT":0, "D_FARRED_PERCENT":0, "FMIN":7, "QMIN":2, )"
       R"("MODRATE":50, "LUMET":[1,9,2,8,7,11], "DC":[7,7,7,7,7,7], "PFD":[5,3,2,4,4,4], )"
       R"("REDMODAVG":[1,1,1,1,1,1], "FARRED":[2,1,0.5,1.5,1.5,1.5], "CODE":[12,14,14,14,14,14] } 12)"},
      {"a code that nobody knows",
       {{20, {1}, {5}}},
       FlashMode::kRect,
       R"("TYPE":"UNKNOWN", "LUMET":[1], "DC":[7], "PFD":[5], "REDMODAVG":[1], )"
       R"("CODE":[20] } 0)"},
  };
  for (const auto& row : rows)
    ExpectEqual(Essence(Record(Gathered(row.runs), row.mode)), row.expected, row.name);
}

// As streams write it, over several blocks and pieces.
void LongRecordCase() {
  constexpr int kSamples = 10'000;
  EventRecorder events;
  std::ostringstream columns[7];
  for (int i = 0; i < kSamples; ++i) {
    DataSample sample;
    sample.time = kStart + i * 4e-6;
    sample.code = i < kSamples / 2 ? 12 : 14;
    sample.values = {100.5F + static_cast<float>(i), 7, 0, 1.0F / static_cast<float>(i), 0.1F};
    sample.values[DataSample::FARREDFRAC] = 0.25F * static_cast<float>(i % 3 - 1);
    events.Gather(sample);
    const auto& values = sample.values;
    columns[0] << "," << sample.time - kStart;
    for (std::size_t column = 1; column < 5; ++column)
      columns[column] << "," << values[column < 3 ? column - 1 : column];
    columns[5] << "," << (values[3] - values[4]) * values[DataSample::FARREDFRAC];
    columns[6] << "," << sample.code;
  }
  std::string expected;
  for (std::size_t i = 0; i < std::size(columns); ++i) {
    const char* const names[] = {"SECS", "LUMET", "DC", "PFD", "REDMODAVG", "FARRED", "CODE"};
    expected.append("\n\"").append(names[i]).append("\":[");
    expected.append(columns[i].str().substr(1)).append("],");
  }
  expected.back() = '\n';
  expected += "}\n";
  const auto record = events.WriteEvent(ConfigTavo(), {12, FlashMode::kRect, 250'000, 50});
  const std::string text = Text(*record);
  ExpectTrue(text.ends_with(expected), "what streams write");
  record->Rewind();
  ExpectTrue(Text(*record) == text, "the same again");
  ExpectTrue(events.IsEmpty() && record->Bytes() < 32 * (kSamples + EventSamples::kBlock),
             "no more memory than the samples take");
}

}  // namespace

void EventRecordCases() {
  LongRecordCase();
  MultiPhaseCases();
  RecordCases();
}
