// Rows on their way from the processor to the clients.

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <string>

#include "bench/head.h"
#include "client/console.h"

namespace {

// The number of the sample, which these tests put into the column LUMET.
int NextNumber(ConsoleClient& client) { return static_cast<int>(client.NextData()["LUMET"]); }

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
  ConsoleClient first(head.Port());
  ConsoleClient second(head.Port());
  // That it will send no more is no reason to leave it out.
  second.Connection().Connection().Shutdown(SHUT_WR);
  ConsoleClient sleeper({.port = head.Port(), .receive_buffer = 4096});
  const long memory_before = head.Status("VmRSS");

  // A few packets are under way at any time, so that the head is never idle; all together are far
  // more than the system itself keeps for the sleeper.
  constexpr int kSamples = NumberedSamples::kInPacket * 600;
  NumberedSamples samples;
  for (int number = 0; number < kSamples; ++number) {
    while (samples.sent < kSamples && samples.sent < number + 8 * NumberedSamples::kInPacket)
      samples.SendPacket(head.SignalProcessor());
    for (ConsoleClient* client : {&first, &second}) {
      const ConsoleMessage row = client->Next();
      ASSERT_EQ(std::get<DataRow>(row)["LUMET"], number);
    }
  }
  // The sleeper has cost its backlog of 1 MiB, in strings that grow by doubling and may leave
  // holes, and not the 14 MB that it has missed.
  EXPECT_LT(head.Status("VmRSS") - memory_before, 9 * 1024);

  // It still gets messages, whose limit is higher; and what it gets is whole rows in order.
  RecordWriter message;
  message.Text(StampNow(), DSPCode::InfoTextRecord, "still here");
  head.SignalProcessor().Send(message);
  int rows = 0;
  int last = -1;
  ConsoleMessage next = sleeper.Next();
  for (; std::holds_alternative<DataRow>(next); next = sleeper.Next(), ++rows) {
    const int number = static_cast<int>(std::get<DataRow>(next)["LUMET"]);
    ASSERT_GT(number, last);
    last = number;
  }
  EXPECT_EQ(std::get<MessageRow>(next).text, "DSP: still here");
  EXPECT_GT(rows, 1'000);
  EXPECT_LT(rows, kSamples - 1'000);

  // Having caught up, it is served like the others.
  samples.SendPacket(head.SignalProcessor());
  EXPECT_EQ(NextNumber(sleeper), kSamples);
}

TEST(Rows, StatusComesOnceASecondByTheTimeOfTheSamples) {
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kCaller);
  ConsoleClient client(head.Port());
  client.Command("Console me");
  client.Set("output/status", "true");
  client.WaitForEvent("CONFIGCHANGED");
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
    auto next = std::get<DataRow>(client.Next());
    if (row.status != nullptr) {
      EXPECT_TRUE(
          next.line.starts_with(std::string("DATASTAT\t") + row.status + "\t1025\t0\t0\t0\t0\t0\t"))
          << next.line;
      next = std::get<DataRow>(client.Next());
    }
    EXPECT_EQ(next.Name(), "DATA") << next.line;
    EXPECT_EQ(next["DIAG"], 1025);
  }
}

TEST(Rows, WhatTheProcessorSaysReachesClientsAndTheLog) {
  const TemporaryDirectory root;
  for (const bool debug : {false, true}) {
    Head head(root.Path(), Head::PlayedBy::kCaller,
              {.lumet = debug ? std::vector<std::string>{"-d"} : std::vector<std::string>{}});
    ConsoleClient client(head.Port());
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
    std::string texts;
    do texts += std::get<MessageRow>(client.Next()).text + "\n";
    while (!texts.ends_with("last\n"));
    EXPECT_EQ(texts, std::string("DSP INIT: ready\n") + (debug ? "DSP: detail\n" : "") +
                         "DSP Bad cmd: 0x2099\nDSP FATAL: hot\nDSP: last\n");
    const std::string log = head.WaitForLog("DSP: last\n");
    EXPECT_NE(log.find("GotPong: pong\nDATAMSG\tDSP Bad cmd: 0x2099\n"
                       "Got Unknown Message: cmd=0x20ab len=0x11\n"),
              std::string::npos)
        << log;
  }
}

}  // namespace
