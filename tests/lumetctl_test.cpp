// lumetctl as a scientist and a script use it, on a head with a bus.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <regex>
#include <string>

#include "bench/broker.h"
#include "bench/free_port.h"
#include "bench/head.h"
#include "client/json_text.h"

namespace {

class Lumetctl : public testing::Test {
 protected:
  struct Result {
    int status;
    std::string said;  // on standard output, and then standard error
  };

  // Runs it in a shell, in the test's directory.
  Result Run(const std::string& words) const {
    const std::string error = directory.Path() + "/stderr";
    ChildProcess shell({"sh", "-c",
                        "cd " + directory.Path() + "; XDG_STATE_HOME=" + directory.Path() +
                            " " LUMETCTL " --head [::1]:" + std::to_string(head.Port()) +
                            " --broker [::1]:" + std::to_string(port) + " " + words + " 2> " +
                            error});
    const int status = shell.Wait();
    return {status, shell.Output() + ReadFile(error)};
  }
  Json::Value RunForJson(const std::string& words) const {
    const Result result = Run("--json " + words);
    EXPECT_EQ(result.status, 0) << words << ": " << result.said;
    return ReadJson(result.said, "answer");
  }

  const TemporaryDirectory directory;
  const FreePort port;
  const Broker broker{directory.Path() + "/broker", port};
  Head head{directory.Path() + "/head",
            Head::PlayedBy::kSimulator,
            {.bench = {"--broker", "[::1]:" + std::to_string(port), "--rate", "50"}}};
};

TEST_F(Lumetctl, TellsWhatTheHeadMadeOfIt) {
  const struct {
    const char* words;
    int status;
    const char* said;  // a regular expression for all of it
  } rows[] = {
      {"get /nemra/tavo/cfg/fan_duty/ cfg/fan_mode", 0, "cfg/fan_duty=50\ncfg/fan_mode=auto\n"},
      {"get history", 0, ""},
      {"get fan_dutty", 1, ".*no setting 'fan_dutty'; there is cfg/fan_duty\n"},
      {"get 'cfg/<a>'", 1, ".*no path of a setting: 'cfg/<a>'\n"},
      {"set cfg/fan_duty=33 cfg/fan_mode=percent", 0, ""},
      // A mistyped tag anywhere sets nothing.
      {"set cfg/fan_duty=34 cfg/fan_mod=auto", 1, ".*'cfg/fan_mod'; there is cfg/fan_mode\n"},
      {"set cfg=1", 1, ".*'cfg' is not a setting but holds \\d+ of them\n"},
      {"get cfg/fan_duty", 0, "33\n"},
      // Clamped, cut, refused, read-only: each is reported, and the others are set.
      {"set cfg/fan_duty=101 cfg/fan_freq=7x cfg/fan_mode=fast ver=2 cfg/measure/outrate=20", 1,
       ".*fan_duty: asked for '101', the head holds '100'; it takes integer 0...100\n"
       ".*fan_freq: asked for '7x', the head holds '7';.*\n"
       ".*fan_mode: the head refused: invalid option: fast; it holds 'percent'\n"
       ".*ver: asked for '2', the head holds '1.3.1'\n.*4 of 5 settings.*\n"},
      {"get cfg/measure/outrate", 0, "20\n"},
      // Values that the head prints in another form than they were asked for.
      {"set cfg/lightsource/transmittance=0.123456789 cfg/lightsource/Q_setpoint=1e2 "
       "cfg/clock/date=2026-7-1 cfg/fan_duty=+07",
       0, ""},
      {"set cfg/lightsource/Q_setpoint='&query;'", 1, ".*a value can't hold a query: '&query;'\n"},
      {"tree cfg/fan_duty", 0, "cfg/fan_duty  7  %  integer 0...100  default 50\n"},
      {"rows --count 2 --columns LUMET,CODE", 0, "LUMET,CODE\n([\\d.]+,1\n){2}"},
      {"rows --status --count 1 --columns TDrive", 0, "TDrive\n33\n"},
      {"rows --columns F", 1, ".*no column 'F'; it has TIME, DIAG, LUMET.*\n"},
      {"rows --for 1x", 2, ".*1x is not a time(.|\n)*"},
      {"rows --for 300ms --csv rows.csv", 0, "\\d+ rows in 0.\\d s to rows.csv\n"},
      {"rows | head -1", 0, "TIME,DIAG(,[A-Z]+)+\n"},
      {"rows --csv none/rows.csv", 4, ".*unable to write none/rows.csv: No such file.*\n"},
      {"flash loud", 2, "(.|\n)*"},
      {"--head [::1]:1 status", 3, ".*unable to connect to \\[::1\\]:1: Connection refused;.*\n"},
      {"--head :7 status", 2, "(.|\n)*names no machine\n(.|\n)*"},
      {"status", 0, "head +TAVO TVF-XXXX(.|\n)*TDigital 28.5 °C(.|\n)*DIAG +nothing to report\n"},
  };
  for (const auto& row : rows) {
    const Result result = Run(row.words);
    EXPECT_EQ(result.status, row.status) << row.words;
    EXPECT_TRUE(std::regex_match(result.said, std::regex(row.said)))
        << row.words << ": " << result.said;
  }
  // While somebody else is the console.
  ConsoleClient console(head.Port());
  console.Command("Console desk");
  console.WaitForEvent("CONSOLECONNECTED");
  const Result locked = Run("set cfg/fan_duty=8");
  EXPECT_EQ(locked.status, 1);
  EXPECT_NE(locked.said.find("Configuration is locked; it took the value all the same"),
            std::string::npos)
      << locked.said;
  EXPECT_EQ(Run("get cfg/fan_duty").said, "8\n");
  EXPECT_NE(Run("status").said.find("console       desk\n"), std::string::npos);
}

TEST_F(Lumetctl, SavesAndRestores) {
  EXPECT_EQ(Run("save saved.xml").status, 0);
  EXPECT_EQ(Run("save - cfg/measure/control").said,
            "<nemra>\n\t<tavo>\n\t\t<cfg>\n\t\t\t<measure>\n\t\t\t\t<control>percent</control>\n"
            "\t\t\t</measure>\n\t\t</cfg>\n\t</tavo>\n</nemra>\n");
  EXPECT_EQ(Run("set cfg/fan_duty=9 cfg/rectflash/margin=1").status, 0);
  const std::string differs = "cfg/rectflash/margin  1  → 5\ncfg/fan_duty          9  → 50\n";
  EXPECT_EQ(Run("restore --dry-run saved.xml").said, differs);
  ConsoleClient client(head.Port());
  client.Watch("cfg");
  EXPECT_EQ(Run("restore saved.xml").said, differs);
  EXPECT_EQ(client.NextChange().text,
            "<nemra><tavo><cfg><rectflash><margin>5</margin></rectflash>"
            "<fan_duty>50</fan_duty></cfg></tavo></nemra>")
      << "one request";
  EXPECT_EQ(Run("restore - < saved.xml").said, "The head holds all of it already\n");
  directory.Write("bad.xml", "<nemra><tavo><cfg><a>");
  EXPECT_EQ(Run("restore bad.xml").status, 4);
  directory.Write("order.xml", "<nemra><tavo><cmd><reboot>true</reboot></cmd></tavo></nemra>");
  EXPECT_EQ(Run("restore order.xml").status, 1);
}

TEST_F(Lumetctl, FlashesWithAReference) {
  const Json::Value rest = RunForJson("flash rect --dark-adapted --before 300ms --save rect.json");
  const Json::Value record = ReadJson(directory.Read("rect.json"), "record");
  EXPECT_EQ(record["EVENT_ID"], rest["EVENT_ID"]);
  EXPECT_EQ(record["FMAX"].asDouble(), rest["FM"].asDouble());
  EXPECT_NEAR(rest["FV_FM"].asDouble(),
              (rest["FM"].asDouble() - rest["FO"].asDouble()) / rest["FM"].asDouble(), 1e-5);
  EXPECT_TRUE(std::filesystem::exists(directory.Path() + "/lumet/reference-TVF-XXXX.json"));

  const Json::Value light = RunForJson("flash mpf --before 300ms -o mpf.svg");
  EXPECT_TRUE(directory.Read("mpf.svg").find("</svg>") != std::string::npos);
  EXPECT_NEAR(light["NPQ"].asDouble(), rest["FM"].asDouble() / light["FMAX"].asDouble() - 1, 1e-4);
  EXPECT_NEAR(light["PHI_PSII"].asDouble(), 1 - light["F"].asDouble() / light["FMAX"].asDouble(),
              1e-4);
  const Json::Value given = RunForJson("flash rect --before 100ms --fo 100 --fm 400");
  EXPECT_DOUBLE_EQ(given["FV_FM"].asDouble(), 0.75);
  const std::string text = Run("flash rect --before 100ms").said;
  for (const char* part : {"FMAX ", " counts ", "QMAX ", " µmol/m²/s ", "ΦPSII ", "Fv/Fm ", "NPQ "})
    EXPECT_NE(text.find(part), std::string::npos) << text;

  // Others hear of it too, in files.
  ChildProcess events({"sh", "-c",
                       LUMETCTL " --broker [::1]:" + std::to_string(port) +
                           " events --count 1 --save " + directory.Path() + "/events"});
  // It may not be listening yet at the first attempt.
  while (!events.HasSaid("RECT")) RunForJson("flash rect --before 100ms");
  EXPECT_EQ(events.Wait(), 0);
  const std::string file =
      std::filesystem::directory_iterator(directory.Path() + "/events")->path().filename().string();
  EXPECT_TRUE(
      std::regex_match(file, std::regex("TVF-XXXX-\\d{8}-\\d\\d_\\d\\d_\\d\\d-\\d+-RECT.json")))
      << file;

  const Json::Value zero = RunForJson("zero dc");
  EXPECT_EQ(zero["path"], "cal/DC0");
  EXPECT_NEAR(zero["to"].asInt(), 152, 3);
  EXPECT_EQ(Run("set cfg/rectflash/duration=0").status, 0);
  EXPECT_NE(Run("flash rect").said.find("set duration and the like of cfg/rectflash first"),
            std::string::npos);
  // A broker without the head.
  const FreePort elsewhere;
  const Broker other(directory.Path() + "/other", elsewhere);
  const Result lost = Run("flash mpf --before 100ms --broker [::1]:" + std::to_string(elsewhere));
  EXPECT_EQ(lost.status, 3);
  EXPECT_NE(lost.said.find("its record did not come over the broker at [::1]:" +
                           std::to_string(elsewhere)),
            std::string::npos)
      << lost.said;
}

TEST_F(Lumetctl, CompletesFromTheHead) {
  const std::string place = "lumetctl --head '[::1]:" + std::to_string(head.Port()) + "' ";
  const struct {
    std::string line;
    const char* candidates;
  } rows[] = {
      {"lumetctl res", "restore"},
      {"lumetctl flash ", "rect mpf induction dark"},
      {"lumetctl rows --co", "--columns --count"},
      {place + "get cfg/m", "cfg/multiphaseflash/ cfg/measure/"},
      {place + "set x=1 cfg/fan_d", "cfg/fan_duty="},
      {place + "set cfg/fan_mode=", "off auto percent"},
      {place + "rows --columns TIME,LU", "TIME,LUMET"},
      {"lumetctl --head [::1]:1 get ", ""},
  };
  for (const auto& row : rows) {
    ChildProcess shell({"bash", "-c",
                        "source " LUMETCTL_COMPLETION "; PATH=$(dirname " LUMETCTL "):$PATH; "
                        "COMP_LINE=$1; COMP_POINT=${#1}; _lumetctl; echo \"${COMPREPLY[*]}\"",
                        "bash", row.line});
    EXPECT_EQ(shell.Wait(), 0);
    EXPECT_EQ(shell.Output(), std::string(row.candidates) + "\n") << row.line;
  }
}

}  // namespace
