// Rows on their way from the processor to the clients.

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <charconv>
#include <map>
#include <string>

#include "bench/head.h"

namespace {

bool ChecksumHolds(const std::string& row) {
  const std::size_t tab = row.rfind('\t');
  unsigned sum = 0;
  for (std::size_t i = 0; i <= tab; ++i) sum += static_cast<unsigned char>(row[i]);
  std::string expected = std::to_string(sum % 256);
  expected.insert(0, 3 - expected.size(), '0');
  return row.substr(tab + 1) == expected;
}

// The LUMET column, where these tests put the number of the sample.
int SampleNumber(const std::string& row) {
  std::size_t at = 0;
  for (int tab = 0; tab < 3; ++tab) at = row.find('\t', at) + 1;
  int number = -1;
  std::from_chars(row.data() + at, row.data() + row.size(), number);
  return number;
}

// Sends samples in full batches, numbered on from `first`, 390 at a time.
class NumberedSamples {
 public:
  static constexpr int kInPacket = 390;

  void SendPacket(Processor& processor) {
    RecordWriter records;
    std::array<WireSample, WireBatch::kSlots> batch;
    const RecordTime stamp = StampNow();
    for (int i = 0; i < kInPacket; i += static_cast<int>(batch.size())) {
      for (WireSample& sample : batch) {
        sample.tick = static_cast<std::uint32_t>(sent) * 1000;
        sample.lumet = static_cast<float>(sent++);
        sample.code = 1;
      }
      records.Batch(stamp, batch);
    }
    processor.Send(records);
  }

  int sent = 0;
};

TEST(Rows, EverySampleReachesEveryReader) {
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kCaller);
  Client first(head.Port());
  Client second(head.Port());
  Client sleeper(head.Port(), 4096);
  for (Client* client : {&first, &second, &sleeper}) client->ReadLineThatBegins("DATADIAGH\t");
  const long memory_before = head.Status("VmRSS");

  // A few packets are under way at any time, so that the head is never idle; all together are far
  // more than the system itself keeps for the sleeper.
  constexpr int kSamples = NumberedSamples::kInPacket * 600;
  NumberedSamples samples;
  for (int number = 0; number < kSamples; ++number) {
    while (samples.sent < kSamples && samples.sent < number + 8 * NumberedSamples::kInPacket)
      samples.SendPacket(head.SignalProcessor());
    for (Client* client : {&first, &second}) {
      const std::string row = client->ReadLine();
      ASSERT_EQ(SampleNumber(row), number) << row;
      ASSERT_TRUE(ChecksumHolds(row)) << row;
    }
  }
  // The sleeper has cost its backlog of 1 MiB, in strings that grow by doubling and may leave holes
  // behind, and not the 14 MB that it has missed.
  EXPECT_LT(head.Status("VmRSS") - memory_before, 9 * 1024);

  // It still gets messages, whose limit is higher; and what it gets is whole rows in order.
  RecordWriter message;
  message.Text(StampNow(), DSPCode::InfoTextRecord, "still here");
  head.SignalProcessor().Send(message);
  int rows = 0;
  int last = -1;
  for (std::string row = sleeper.ReadLine(); row != "DATAMSG\tDSP: still here";
       row = sleeper.ReadLine(), ++rows) {
    ASSERT_TRUE(ChecksumHolds(row)) << row;
    ASSERT_GT(SampleNumber(row), last) << row;
    last = SampleNumber(row);
  }
  EXPECT_GT(rows, 1'000);
  EXPECT_LT(rows, kSamples - 1'000);

  // Having caught up, it is served like the others.
  samples.SendPacket(head.SignalProcessor());
  EXPECT_EQ(SampleNumber(sleeper.ReadLine()), kSamples);
}

TEST(Rows, AClientThatDisappearsLeavesTheOthersAlone) {
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kCaller);
  Client stays(head.Port());
  stays.ReadLineThatBegins("DATADIAGH\t");
  NumberedSamples samples;
  for (int round = 0; round < 12; ++round) {
    Client leaves(head.Port());
    leaves.ReadLineThatBegins("DATADIAGH\t");
    samples.SendPacket(head.SignalProcessor());
    // In turn: an orderly close, a reset, a closed sending side, a line never ended.
    const struct linger at_once = {1, 0};
    if (round % 4 == 1)
      setsockopt(leaves.Connection().GetFD(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    if (round % 4 == 2) leaves.Connection().Shutdown(SHUT_WR);
    if (round % 4 == 3) leaves.Send("an unfinished line");
    if (round % 4 != 2) leaves.Connection().Close();
    samples.SendPacket(head.SignalProcessor());
    for (int i = 0; i < 2 * NumberedSamples::kInPacket; ++i) {
      const int number = round * 2 * NumberedSamples::kInPacket + i;
      ASSERT_EQ(SampleNumber(stays.ReadLine()), number);
      // Who closed only its sending side still gets everything.
      if (round % 4 == 2) {
        ASSERT_EQ(SampleNumber(leaves.ReadLine()), number);
      }
    }
  }
  EXPECT_EQ(head.Stop(), 0);
}

TEST(Rows, StatusComesOnceASecondByTheTimeOfTheSamples) {
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kCaller);
  Client client(head.Port());
  client.Send("Console me\n<nemra><tavo><output><status>true</status></output></tavo></nemra>\n");
  client.ReadLineThatBegins("DATASTATU\t");
  client.ReadLineThatBegins("DATAEVENT\tCONFIGCHANGED");
  // Seconds of the stamp, and milliseconds of the tick; the clock follows a stamp that is a second
  // or more away.
  const struct {
    std::uint32_t stamp;
    std::uint32_t tick_ms;
    const char* status;  // the time in the status row, if one is due
  } rows[] = {
      {2000, 0, "2000"},
      {2000, 500, nullptr},
      {2001, 999, nullptr},
      {2001, 1000, "2001"},
      // A step back by a second exactly is waited out.
      {2000, 1100, nullptr},
      {1999, 1200, "1999"},
      {1999, 1700, nullptr},
      {1997, 1800, "1997"},
  };
  for (const auto& row : rows) {
    RecordWriter records;
    WireSample sample;
    sample.code = 1;
    sample.tick = row.tick_ms * 1000;
    sample.flags = 2;
    records.Sample({row.stamp, 0}, sample);
    head.SignalProcessor().Send(records);
    std::string line = client.ReadLine();
    if (row.status != nullptr) {
      EXPECT_TRUE(
          line.starts_with(std::string("DATASTAT\t") + row.status + "\t1025\t0\t0\t0\t0\t0\t"))
          << line;
      EXPECT_TRUE(ChecksumHolds(line)) << line;
      line = client.ReadLine();
    }
    EXPECT_TRUE(line.starts_with("DATA\t") && line.find("\t1025\t") != std::string::npos) << line;
  }
}

TEST(Rows, WhatTheProcessorSaysReachesClientsAndTheLog) {
  const TemporaryDirectory root;
  for (const bool debug : {false, true}) {
    Head head(root.Path(), Head::PlayedBy::kCaller,
              {.lumet = debug ? std::vector<std::string>{"-d"} : std::vector<std::string>{}});
    Client client(head.Port());
    client.ReadLineThatBegins("DATADIAGH\t");
    RecordWriter records;
    const RecordTime stamp = StampNow();
    records.Text(stamp, DSPCode::InitTextRecord, "ready");
    records.Text(stamp, DSPCode::DebugTextRecord, "detail");
    records.Text(stamp, DSPCode::PongRecord, "pong");
    records.Text(stamp, DSPCode::BadCommandRecord, "0x2099");
    records.Record(stamp, 0x20AB, std::array<std::uint8_t, 17>{});
    records.Text(stamp, DSPCode::FatalTextRecord, "hot");
    records.Text(stamp, DSPCode::InfoTextRecord, "last");
    head.SignalProcessor().Send(records);
    std::string rows;
    do rows += client.ReadLine() + "\n";
    while (!rows.ends_with("last\n"));
    EXPECT_EQ(rows, std::string("DATAMSG\tDSP INIT: ready\n") +
                        (debug ? "DATAMSG\tDSP: detail\n" : "") +
                        "DATAMSG\tDSP Bad cmd: 0x2099\n"
                        "DATAMSG\tDSP FATAL: hot\n"
                        "DATAMSG\tDSP: last\n");
    const std::string log = head.WaitForLog("DSP: last\n");
    EXPECT_NE(log.find("GotPong: pong\nDATAMSG\tDSP Bad cmd: 0x2099\n"
                       "Got Unknown Message: cmd=0x20ab len=0x11\n"),
              std::string::npos)
        << log;
  }
}

}  // namespace
