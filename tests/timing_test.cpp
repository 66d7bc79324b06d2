// The step from settings to the timing record, against records that were worked out independently.

#include "leaf/lumet/light/timing.h"

#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <sstream>
#include <string>

#include "common/test_registry.h"
#include "liborrel/doctavo/doc_tavo.h"

namespace {

void Read(DocTavo& doc, const std::string& settings) {
  std::istringstream in(settings);
  std::ostringstream errors;
  doc.read_document(in, errors);
  ASSERT_EQ(errors.str(), "") << settings;
}

TEST(Timing, RecordsAreThoseWorkedOutElsewhere) {
  std::ifstream file(TEST_DATA "/timing.txt");
  std::string base;
  std::string name;
  std::unique_ptr<DocTavo> doc;
  int flash = 0;
  std::array<std::uint16_t, 3> controller = {};
  int cases = 0;
  for (std::string line; std::getline(file, line);) {
    const std::size_t colon = line.find(": ");
    const std::string what = line.substr(0, colon);
    const std::string text = colon == std::string::npos ? "" : line.substr(colon + 2);
    std::istringstream words(text);
    if (what == "base") base = text;
    if (what == "case") name = text;
    if (what == "flash") words >> flash;
    if (what == "controller") words >> controller[0] >> controller[1] >> controller[2];
    if (what == "settings") {
      doc = std::make_unique<DocTavo>();
      Read(*doc, base);
      Read(*doc, text);
    }
    if (what != "record") continue;
    const auto record =
        ComputeTiming(doc->Conf(), static_cast<FlashMode>(flash), controller).Encode();
    EXPECT_EQ(self_test::Hex(std::string(record.begin(), record.end())), text) << name;
    ++cases;
  }
  EXPECT_GT(cases, 16);
}

}  // namespace
