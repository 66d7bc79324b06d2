#include "common/str_util.h"

#include <utility>
#include <vector>

#include "common/test_registry.h"

namespace {

using namespace self_test;

int Sign(int number) { return number > 0 ? 1 : number < 0 ? -1 : 0; }

}  // namespace

void TestStrUtil(std::ostream&) {
  const struct {
    const char* a;
    const char* b;
    int sign;
  } pairs[] = {{"hello", "HELLO", 0},        {"hello1", "HELLO2", -1}, {"HELLO2", "hello1", 1},
               {"hello", "hello again", -1}, {"abc", "cba", -1},       {"", "", 0}};
  for (const auto& pair : pairs) {
    ExpectEqual(Sign(CaseInsensitiveStringCompare(pair.a, pair.b)), pair.sign, pair.a);
    ExpectEqual(Sign(CaseInsensitiveStringCompare(pair.b, pair.a)), -pair.sign, pair.b);
  }
  const std::string header = "Host: x\r\ncontent-TYPE: y\r\n";
  ExpectEqual(CaseInsensitiveStringFind(header, "Content-Type", 0), 9);
  ExpectEqual(CaseInsensitiveStringFind(header, "Content-Type", 10), -1);
  ExpectEqual(CaseInsensitiveStringFind(header, "", header.size()), -1);
  const std::string spaced = " \t a \n b  c\t\n";
  ExpectEqual(StripEndWS(spaced), "a \n b  c");
  ExpectEqual(StripEndWS(" \n"), "");
  ExpectEqual(FirstNonSpace(spaced), 'a');
  ExpectEqual(FirstNonSpace(" \n"), '\0');
  ExpectEqual(RemoveSpaceExceptBlanks(spaced), "  a  b  c");
  ExpectEqual(CollapseSpace(spaced), " a b c");
  ExpectEqual(RemoveChar("banana", 'a'), "bnn");

  const std::pair<const char*, const char*> lines[] = {
      {"one two three four", "one|two|three|four|"},
      {" one  two  three four ", "one|two|three|four|"},
      {"a \"b  c\" 'd \"e'", "a|b  c|d \"e|"},
      {"'one phrase'", "one phrase|"},
      {"\"unended phrase", "unended phrase|"},
      {"", ""}};
  for (const auto& [line, expected] : lines) {
    std::vector<std::string> words;
    SplitCommandLine(line, words);
    std::string joined;
    for (const std::string& word : words) joined += word + "|";
    ExpectEqual(joined, expected, line);
  }
}
