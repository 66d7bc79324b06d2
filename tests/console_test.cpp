// The console protocol, as transcripts: files under tests/data/console. A line says what a client
// sends or hears next ("A> text", "A< line"), in the order of the transcript; "A<<" passes lines up
// to this one, as at a connect; "DSP<" is what the processor gets, in hexadecimal without its zero
// times, and "DSP>" a register's value, or "init" for its first text after a start. '#' begins a
// comment.

#include "client/console.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "bench/head.h"
#include "common/test_registry.h"
#include "leaf/lumet/link/recording.h"

namespace {

class Transcript {
 public:
  Transcript() : head(root.Path(), Head::PlayedBy::kCaller) { head.SignalProcessor().ReadPacket(); }

  void Play(const std::string& line) {
    if (line.starts_with("#")) return;
    const std::size_t end = line.find(' ');
    const std::string who = line.substr(0, line.find_first_of("<>"));
    const std::string what = line.substr(who.size(), end - who.size());
    const std::string text = line.substr(end + 1);
    if (who == "DSP")
      PlayProcessor(what, text);
    else if (what == ">")
      ClientNamed(who).Send(text + "\n");
    else if (what == "<<")
      ClientNamed(who).ReadLineThatBegins(text);
    else
      ASSERT_EQ(ClientNamed(who).ReadLine(), text);
  }

  // Nobody has heard anything beyond the transcript.
  void Finish() {
    for (auto& [name, client] : clients) {
      if (client.IsClosed()) continue;
      client.Send("TurnDataClockOn\n");
      EXPECT_TRUE(client.ReadLine().starts_with("DATACLOCKH")) << name;
    }
    EXPECT_EQ(head.Stop(), 0);
  }

 private:
  LineClient& ClientNamed(const std::string& name) {
    // The first two are there from the start.
    for (const std::string& wanted : {std::string("A"), std::string("B"), name}) {
      if (clients.contains(wanted)) continue;
      LineClient& client = clients.try_emplace(wanted, head.Port()).first->second;
      if (wanted <= "B") client.ReadLineThatBegins("DATADIAGH\t");
    }
    return clients.at(name);
  }

  void PlayProcessor(const std::string& what, const std::string& text) {
    std::istringstream words(text);
    if (what == ">" && text == "init") {
      RecordWriter record;
      record.Text(StampNow(), DSPCode::InitTextRecord, "up");
      head.SignalProcessor().Send(record);
      return;
    }
    if (what == ">") {
      std::uint16_t address = 0;
      std::uint16_t value = 0;
      words >> std::hex >> address >> value;
      RecordWriter record;
      record.RegisterRecord(StampNow(), DSPCode::RegisterValueRecord, address, value);
      head.SignalProcessor().Send(record);
      return;
    }
    std::string expected;
    for (std::string word; words >> word; expected += word) {
    }
    std::string heard;
    while (heard.size() < expected.size()) {
      const std::string packet = head.SignalProcessor().ReadPacket();
      ForEachRecord(std::span(reinterpret_cast<const std::uint8_t*>(packet.data()), packet.size()),
                    [&](const RecordHeader& header, std::span<const std::uint8_t> payload) {
                      std::string bytes(payload.begin(), payload.end());
                      bytes.resize(PaddedLength(header.length));
                      const auto encoded = header.Encode();
                      heard +=
                          self_test::Hex(std::string(encoded.begin() + 8, encoded.end()) + bytes);
                    });
    }
    EXPECT_EQ(heard, expected);
  }

  TemporaryDirectory root;
  Head head;
  std::map<std::string, LineClient> clients;
};

TEST(Console, SpeaksAsItsTranscriptsTell) {
  for (const auto& entry : std::filesystem::directory_iterator(TEST_DATA "/console")) {
    SCOPED_TRACE(entry.path().filename().string());
    Transcript transcript;
    std::ifstream file(entry.path());
    int number = 0;
    for (std::string line; std::getline(file, line);) {
      SCOPED_TRACE("line " + std::to_string(++number));
      ASSERT_NO_THROW(transcript.Play(line));
      if (HasFatalFailure()) return;
    }
    transcript.Finish();
  }
}

TEST(Console, ClosesAClientWhoseLineHasNoEnd) {
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kCaller);
  LineClient endless(head.Port());
  ConsoleClient other(head.Port());
  const std::string piece(1 << 20, '<');
  EXPECT_THROW(
      {
        for (int i = 0; i < 64; ++i) endless.Send(piece);
      },
      ClientError);
  head.WaitForLog("SocketClient: closing a client whose message has no end\n");
  other.Get("ver");
}

TEST(Console, ChangesOutliveAFullDisk) {
  const TemporaryDirectory root;
  Head head(root.Path(), Head::PlayedBy::kCaller);
  ConsoleClient client(head.Port());
  const std::string path = root.Path() + "/etc/tavo.conf";
  const auto saved = [&] { return ReadFile(path); };
  client.Set("cfg/fan_duty", "10");
  const std::string before = saved();
  EXPECT_NE(before.find("<fan_duty>10<"), std::string::npos);
  const auto limit_files = [&](rlim_t bytes) {
    const struct rlimit limit = {bytes, RLIM_INFINITY};
    prlimit(head.Pid(), RLIMIT_FSIZE, &limit, nullptr);
  };
  limit_files(100);
  client.Set("cfg/fan_duty", "20");
  EXPECT_EQ(saved(), before);
  head.WaitForLog("Unable to write: " + path + ".new: File too large\n");
  limit_files(RLIM_INFINITY);
  client.Set("cfg/fan_duty", "30");
  EXPECT_NE(saved().find("<fan_duty>30<"), std::string::npos);
}

}  // namespace
