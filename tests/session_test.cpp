// A whole session on a recorded link: adaptation, flashes of each kind, a dark pulse, zeroing, a
// raw capture. The daemon gets what the processor sent then, and commands where they were given;
// what clients, bus and logs see is kept in golden.txt, to the byte.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <span>
#include <string>

#include "bench/broker.h"
#include "bench/free_port.h"
#include "bench/head.h"
#include "bench/recording.h"
#include "client/bus.h"
#include "client/console.h"

namespace {

const std::string kData = TEST_DATA "/session/";

// Those commands in a packet that begin something.
std::string StartsIn(std::span<const std::uint8_t> packet) {
  std::string starts;
  ForEachRecord(packet, [&](const RecordHeader& header, std::span<const std::uint8_t>) {
    switch (static_cast<DSPCode>(header.code)) {
      case DSPCode::StartRectFlash:
      case DSPCode::StartMultiPhaseFlash:
      case DSPCode::StartInductionFlash:
      case DSPCode::StartDarkPulse:
      case DSPCode::StartRawCapture:
        starts += std::to_string(header.code) + " ";
        break;
      default:
        break;
    }
  });
  return starts;
}

int SamplesIn(std::span<const std::uint8_t> packet) {
  int samples = 0;
  ForEachRecord(packet, [&](const RecordHeader& header, std::span<const std::uint8_t> payload) {
    if (header.code == static_cast<std::uint16_t>(DSPCode::DataSampleRecord)) ++samples;
    if (header.code == static_cast<std::uint16_t>(DSPCode::DataBatchRecord))
      samples += payload[WireBatch::kCountOffset];
  });
  return samples;
}

// What is published up to the message on `end`, that included.
std::string PublishedUpTo(const std::string& end, BusClient& bus) {
  std::string published;
  BusMessage message;
  do {
    message = bus.Next();
    published += (message.retained ? "1 " : "0 ") + message.topic + " " + message.payload + "\n";
  } while (message.topic != end);
  return published;
}

void CompareWithGolden(const std::string& transcript) {
  const std::string golden = ReadFile(kData + "golden.txt");
  if (transcript == golden) return;
  std::string seen = std::filesystem::temp_directory_path() / "lumet-session-XXXXXX";
  StreamFileBase(mkstemp(seen.data())).GetOStream() << transcript;
  FAIL() << "compare " << seen << " with " << kData << "golden.txt";
}

TEST(Session, ReplaysToItsGoldenTranscript) {
  const TemporaryDirectory root;
  for (const char* file : {"tavo.conf", "factorytavo.conf"})
    WriteFile(root.Path() + "/etc/" + file, ReadFile(kData + file));
  const FreePort port;
  const Broker broker(root.Path() + "/broker", port);
  Head head(root.Path(), Head::PlayedBy::kCaller,
            {.wrapper = {"env", "TZ=UTC"}, .bench = {"--broker", "[::1]:" + std::to_string(port)}});
  BusClient({.port = port}).WaitForHead();
  BusClient bus({.port = port, .topics = {"nemra/tavo/output/#"}});
  LineClient client(head.Port());
  client.ReadLineThatBegins("DATADIAGH\t");
  client.Send(
      "<nemra><tavo><output><status>true</status><datarawcapture>true</datarawcapture>"
      "</output></tavo></nemra>\n");

  std::string rows;
  const auto read_to = [&](const std::string& start) {
    std::string line;
    do {
      line = client.ReadLine();
      rows += line + "\n";
    } while (!line.starts_with(start));
  };
  read_to("DATASTATU\t");
  Processor& processor = head.SignalProcessor();
  std::ifstream commands(kData + "commands.txt");
  for (const RecordedPacket& packet : ReadRecording(kData + "link.rec")) {
    if (packet.direction == RecordedPacket::kFromProcessor) {
      RecordWriter writer;
      writer.packets.push_back(packet.bytes);
      processor.Send(writer);
      // In step, so that each command falls between the same samples.
      for (int samples = SamplesIn(packet.bytes); samples > 0; --samples) read_to("DATA\t");
    } else if (const std::string starts = StartsIn(packet.bytes); !starts.empty()) {
      std::string command;
      ASSERT_TRUE(commands >> command);
      client.Send("<nemra><tavo><cmd><" + command + ">true</" + command +
                  "></cmd></tavo></nemra>\n");
      read_to("<nemra><tavo><ack>");
      for (std::string heard; heard != starts;) {
        const std::string bytes = processor.ReadPacket();
        heard += StartsIn({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
      }
    }
  }
  EXPECT_EQ(head.Stop(), 0);
  const std::string end = "nemra/tavo/output/end";
  bus.Publish(end, "");
  const std::string published = PublishedUpTo(end, bus);
  const std::string log = head.WaitForLog("");

  std::string transcript = "# clients\n" + rows + "# bus\n" + published + "# log\n" +
                           log.substr(log.find("MQTT Connected\n"));
  // The one thing that depends on the day of the test.
  transcript +=
      "# calibration log\n" +
      std::regex_replace(ReadFile(root.Path() + "/var/log/cal"),
                         std::regex("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d"), "(time)");
  CompareWithGolden(transcript);
}

TEST(Session, CanBePlayedBackOnTheBench) {
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kSimulator,
            {.bench = {"--replay", kData + "link.rec", "--speed", "3"}});
  ConsoleClient client(head.Port());
  // The times are those of the recording.
  EXPECT_NEAR(client.NextData()["TIME"], 1795248950, 50);
  while (client.NextData()["CODE"] != 3) {
  }
  EXPECT_EQ(head.Stop(), 0);
}

TEST(Session, ItsMultiphaseFlashCanBeDrawn) {
  const std::string golden = ReadFile(kData + "golden.txt");
  const std::size_t start = golden.rfind("{\n", golden.find("\"TYPE\":\"MPF\""));
  const TemporaryDirectory directory;
  const std::string svg = directory.Path() + "/mpf.svg";
  WriteFile(directory.Path() + "/record",
            golden.substr(start, golden.find("\n}\n", start) + 3 - start));
  ChildProcess plot({LUMET_PLOT, directory.Path() + "/record", "--output", svg});
  ASSERT_EQ(plot.Wait(), 0);
  EXPECT_NE(plot.Output().find("TYPE                MPF\n"), std::string::npos);
  EXPECT_NE(plot.Output().find("samples             49\n"), std::string::npos);
  const std::string drawing = ReadFile(svg);
  std::size_t points = 0;
  for (std::size_t at = 0; (at = drawing.find("<circle", at)) != std::string::npos; ++at) ++points;
  EXPECT_EQ(points, 15U) << "samples of phase 2";
  EXPECT_TRUE(drawing.ends_with("</svg>\n"));

  for (const char* bad : {"", "{}", "{\"SECS\":[1]}", "[1]"}) {
    WriteFile(directory.Path() + "/record", bad);
    ChildProcess refused(
        {"sh", "-c", std::string(LUMET_PLOT) + " " + directory.Path() + "/record 2>&1"});
    EXPECT_EQ(refused.Wait(), 1) << bad;
    EXPECT_TRUE(refused.Output().starts_with("lumet-plot: this is no event record")) << bad;
  }
}

}  // namespace
