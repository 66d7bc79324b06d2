// Recordings of the link: what lumet-rec shows of them, and their replay.

#include "leaf/lumet/link/recording.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "bench/head.h"

namespace {

std::string LumetRec(const std::string& words, int status = 0) {
  ChildProcess shell({"sh", "-c", LUMET_REC " " + words + " 2>&1"});
  EXPECT_EQ(shell.Wait(), status) << words << ": " << shell.Output();
  return shell.Output();
}

TEST(Recording, OfTheOldFormatIsShownAndCut) {
  const TemporaryDirectory directory;
  const std::string session = TEST_DATA "/session/link.rec";
  const std::string info = LumetRec("info " + session);
  for (const char* part : {"from 2026-11-", "multiphase flash at ", "dark pulse at ",
                           "1 StartInductionFlash", "simulated processor ready", "settings   none"})
    EXPECT_NE(info.find(part), std::string::npos) << part << " of\n" << info;
  // As the first DATA row in golden.txt has them.
  const std::string samples = LumetRec("dump " + session);
  EXPECT_NE(samples.find(",1795248913.206011,"), std::string::npos);
  EXPECT_NE(samples.find(",1,293.13092,159.910217,12.5977774,"), std::string::npos);
  EXPECT_NE(LumetRec("dump --records " + session).find(",head,StartDarkPulse,"), std::string::npos);

  const std::string part = directory.Path() + "/part.rec";
  LumetRec("cut --from 2 --to 4 " + session + " " + part);
  const std::string cut = LumetRec("dump " + part);
  EXPECT_EQ(std::ranges::count(cut, '\n'),
            std::ranges::count(LumetRec("dump --from 2 --to 4 " + session), '\n'));
  EXPECT_NE(LumetRec("info " + part).find("simulated processor ready"), std::string::npos);
  EXPECT_NE(LumetRec("cut " + part + " " + part, 4).find("is the recording itself"),
            std::string::npos);
  EXPECT_NE(LumetRec("info " TEST_DATA "/session/golden.txt", 4).find("is not a recording"),
            std::string::npos);
}

TEST(Recording, HoldsTheSettingsForItsReplay) {
  const TemporaryDirectory directory;
  const std::string recording = directory.Path() + "/link.rec";
  {
    Head head(directory.Path() + "/first", Head::PlayedBy::kSimulator,
              {.bench = {"--record", recording, "--rate", "50"}});
    ConsoleClient client(head.Port());
    client.Set("cfg/lightsource/transmittance", "0.5");
    // It is saved, seen and recorded a moment later.
    while (LumetRec("dump --settings " + recording).find(">0.5<") == std::string::npos)
      client.NextData();
    EXPECT_EQ(head.Stop(), 0);
  }
  const std::string cut = directory.Path() + "/cut.rec";
  LumetRec("cut --from 0.5 " + recording + " " + cut);
  for (const std::string& file : {recording, cut}) {
    const std::string root = directory.Path() + "/replay";
    std::filesystem::remove_all(root);
    Head head(root, Head::PlayedBy::kSimulator,
              {.lumet = {"-d"}, .bench = {"--replay", file, "--speed", "2", "--exit-at-end"}});
    // From its start on; the replay may be over before a client is there.
    const std::string log = head.WaitForLog("lumet-bench: the recording has ended\n");
    EXPECT_NE(log.substr(0, log.find("<bias>")).find("<outrate>50</outrate>"), std::string::npos);
    EXPECT_EQ(head.Wait(), 0);
    EXPECT_NE(ReadFile(root + "/etc/tavo.conf").find("<transmittance>0.5<"), std::string::npos);
  }
}

}  // namespace
