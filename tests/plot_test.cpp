// lumet-plot on records of each kind.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "bench/child_process.h"
#include "common/temporary_directory.h"
#include "common/text_file.h"

namespace {

class Plot : public testing::Test {
 protected:
  // Standard output and error.
  std::string Run(const std::string& words, int status) const {
    ChildProcess shell(
        {"sh", "-c",
         "cd " + directory.Path() + "; HOME=" + directory.Path() + " " + words + " 2>&1"});
    EXPECT_EQ(shell.Wait(), status) << words << ": " << shell.Output();
    return shell.Output();
  }

  const TemporaryDirectory directory;
};

// The first of a type in the recorded measurement.
std::string RecordedEvent(const std::string& type) {
  const std::string golden = ReadFile(TEST_DATA "/session/golden.txt");
  const std::size_t start = golden.rfind("{\n", golden.find("\"TYPE\":\"" + type + "\""));
  return golden.substr(start, golden.find("\n}\n", start) + 3 - start);
}

// F rises from 200 to 400, 650 and 1000 counts, in steps with these times.
std::string Induction() {
  constexpr int kBefore = 5;
  std::ostringstream seconds;
  std::ostringstream F;
  std::ostringstream light;
  std::ostringstream codes;
  for (int i = -kBefore; i < 50'000; ++i) {
    const double t = std::max(0, i + 1) * 4e-6;
    const auto step = [t](double height, double time) {
      return height * (1 - std::exp(-t / time));
    };
    const char* const comma = i == -kBefore ? "" : ",";
    seconds << comma << (i + kBefore) * 4e-6;
    F << comma << 200 + step(200, 3e-4) + step(250, 5e-3) + step(350, 4e-2);
    light << comma << (i < 0 ? 0 : 5000);
    codes << comma << (i < 0 ? 2 : 3);
  }
  return "{\"EVENT_ID\":7,\"DEVICE\":\"O'H`id`\",\"DATE\":\"20260701\",\"TIME\":\"12:00:00\","
         "\"TYPE\":\"INDUCTION\",\"DURATION\":200,\"FMAX\":998,\"SECS\":[" +
         seconds.str() + "],\"LUMET\":[" + F.str() + "],\"DC\":[" + F.str() + "],\"PFD\":[" +
         light.str() + "],\"REDMODAVG\":[" + light.str() + "],\"CODE\":[" + codes.str() + "]}";
}

TEST_F(Plot, DrawsEachKind) {
  const struct {
    std::string record;
    std::vector<const char*> in_drawing;
    const char* printed;  // a regular expression
  } kinds[] = {
      {RecordedEvent("RECT"),
       {">flash<", ">FMAX<", ">F (counts)<", ">time (ms)<"},
       "QMAX +\\d+\\.?\\d* +µmol/m²/s "},
      {RecordedEvent("MPF"),
       {">phase 1<", ">phase 2<", ">phase 3<", ">10 000/PFD (m² s/µmol)<", ">P2_INT<"},
       "FMAX +[\\d.]+ ± [\\d.]+ +counts (.|\n)*P2_INT +[\\d.]+ ± [\\d.]+ +counts (.|\n)*"
       "NPQ +0\\.\\d+ (.|\n)*RAMP +60 +% "},
      {Induction(),
       {">O<", ">J<", ">I<", ">P<", ">100 µs<", ">10 ms<", ">time of light<", "O'H`id`"},
       // By hand: 200 + 200 exp(-2/0.3)… at 2 ms, likewise at 30 ms.
       "F +200 (.|\n)*O +214\\.\\d+ +counts +F at 20 µs(.|\n)*J +499\\.\\d+ (.|\n)*I +834\\.\\d+ "},
      {RecordedEvent("DARK"),
       {">far red<", ">dark<", ">FMIN<", ">time (s)<", ">measuring light<"},
       "FMIN +\\d+\\.?\\d* +counts +Fo'"},
  };
  for (const auto& kind : kinds) {
    directory.Write("record", kind.record);
    const std::string said = Run(LUMET_PLOT " record -o drawing.svg --fo 300 --fm 1500", 0);
    EXPECT_TRUE(std::regex_search(said, std::regex(kind.printed))) << said;
    const std::string drawing =
        std::regex_replace(directory.Read("drawing.svg"), std::regex("&apos;|&#39;"), "'");
    for (const char* text : kind.in_drawing)
      EXPECT_NE(drawing.find(text), std::string::npos) << text << " of\n" << said;
    EXPECT_TRUE(drawing.ends_with("</svg>\n\n")) << said;
    EXPECT_LT(drawing.size(), 200'000U);
  }
  for (const auto& [ending, start] : {std::pair("png", "\x89PNG"), std::pair("pdf", "%PDF")}) {
    Run(LUMET_PLOT " - -o drawing." + std::string(ending) + " < record", 0);
    EXPECT_TRUE(directory.Read("drawing." + std::string(ending)).starts_with(start));
  }
}

TEST_F(Plot, SaysWhatIsWrongAndLeavesNothing) {
  directory.Write("record", RecordedEvent("RECT"));
  directory.Write("bin/gnuplot", "#!/bin/sh\necho '<svg>half'\necho no memory >&2\nexit 1\n");
  std::filesystem::permissions(directory.Path() + "/bin/gnuplot",
                               std::filesystem::perms::owner_all);
  const std::string plot = LUMET_PLOT " record -o drawing.svg";
  EXPECT_NE(Run("PATH=none " + plot, 1).find("gnuplot, which is not installed"), std::string::npos);
  EXPECT_NE(Run("PATH=$PWD/bin " + plot, 1).find("gnuplot failed: no memory"), std::string::npos);
  EXPECT_NE(Run(LUMET_PLOT " record -o drawing.jpg", 4).find("ends in .svg, .png or .pdf"),
            std::string::npos);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.Path()), {}), 2);
  for (const char* bad : {"", "{}", "{\"SECS\":[1]}", "[1]"}) {
    directory.Write("record", bad);
    EXPECT_TRUE(Run(plot, 1).starts_with("lumet-plot: this is no event record")) << bad;
  }
}

}  // namespace
