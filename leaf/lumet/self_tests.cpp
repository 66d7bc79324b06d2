#include "leaf/lumet/self_tests.h"

#include "common/test_registry.h"

// Each is defined in the *_test.cpp beside the code that it checks.
void TestLumet(std::ostream& out);
void TestDocTavo(std::ostream& out);
void TestDocKesh(std::ostream& out);
void TestConfigurables(std::ostream& out);
void TestConfigurableBuiltin(std::ostream& out);
void TestXMLParser(std::ostream& out);
void TestXMLQueryStringParser(std::ostream& out);
void TestXMLString(std::ostream& out);
void TestXMLWriter(std::ostream& out);
void TestStrUtil(std::ostream& out);
void TestPollProcessor(std::ostream& out);
void TestTimestamp(std::ostream& out);
void TestZlib(std::ostream& out);
void TestBase64(std::ostream& out);
void TestDelimParser(std::ostream& out);

namespace {

class NamedTest : public Test {
 public:
  NamedTest(const char* name, void (*run)(std::ostream&)) : Test(name, kPriority), run(run) {}
  void Run(std::ostream& out) override { run(out); }

 private:
  static constexpr int kPriority = 10;
  void (*run)(std::ostream&);
};

// All in one array, so that they register in this order wherever the linker puts it.
NamedTest registered[] = {
    {"TestLumet", TestLumet},
    {"TestDocTavo", TestDocTavo},
    {"TestDocKesh", TestDocKesh},
    {"TestConfigurables", TestConfigurables},
    {"TestConfigurableBuiltin", TestConfigurableBuiltin},
    {"XMLParser", TestXMLParser},
    {"XMLQueryStringParser", TestXMLQueryStringParser},
    {"XMLString", TestXMLString},
    {"XMLWriter", TestXMLWriter},
    {"TestStrUtil", TestStrUtil},
    {"TestPollProcessor", TestPollProcessor},
    {"TestTimestamp", TestTimestamp},
    {"TestZlib", TestZlib},
    {"TestBase64", TestBase64},
    {"DelimParser", TestDelimParser},
};

}  // namespace

void RunSelfTests(std::ostream& out) { Test::RunAll(out); }
