#include "configurable/configbuiltin.h"

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <random>
#include <stdexcept>

#include "common/test_registry.h"
#include "configurable/configurable_composite.h"
#include "configurable/json_printer_visitor.h"
#include "configurable/number_text.h"
#include "configurable/text_stream.h"

namespace {

using namespace self_test;

std::vector<std::string> sizes = {"small", "large"};

struct TestDoc : ConfigurableComposite {
  TestDoc() : ConfigurableComposite("TestDoc") {
    for (Configurable* item : std::initializer_list<Configurable*>{
             &real, &real_double, &free_float, &strict, &integer, &natural, &flag, &text, &proxy,
             &choice, &time_t_item, &stamp, &date, &month, &time, &minutes})
      add(item);
    add_units(real, kUnit);
  }
  std::string Ask(const std::string& document) {
    std::istringstream in("<TestDoc>" + document + "</TestDoc>");
    std::ostringstream out;
    set_compact(out, true);
    read_document(in, out);
    return out.str();
  }

  static constexpr char kUnit[] = "mV";
  ConfigurableFloat real{"Float", 1.2F, -5.5F, 5.5F, false};
  ConfigurableDouble real_double{"Double", 0, -5.5, 5.5, false};
  ConfigurableFloat free_float{"Free", 1e6F};
  ConfigurableDouble strict{"Strict", 0, -1, 1, true};
  ConfigurableInteger integer{"Integer", 5, 0, 10};
  ConfigurableInteger natural{"Natural", 7, 0};
  ConfigurableBool flag{"Flag", false};
  ConfigurableString text{"Text", "abc"};
  ConfigurableStringProxyReadOnly proxy{"Proxy", &text};
  ConfigurableMultipleChoice choice{"Choice", &sizes, 0};
  ConfigurableTimeT time_t_item{"TimeT", 0};
  ConfigurableTimestamp stamp{"Stamp", Timestamp()};
  ConfigurableDate date{"Date", Timestamp()};
  ConfigurableDate_YearMonth month{"Month", Timestamp()};
  ConfigurableTime time{"Time", Timestamp()};
  ConfigurableTime_HourMinutes minutes{"Minutes", Timestamp()};
};

void LeafCases(TestDoc& doc) {
  // What is written to an item, and what it then holds, after the error if there is one.
  const struct {
    const char* item;
    const char* written;
    const char* answer;
  } rows[] = {
      {"Float", "3.4", "3.4"},
      {"Float", "inf", "5.5"},
      {"Float", "-inf", "-5.5"},
      {"Float", "nan", "nan"},
      {"Float", "1.2abc", "1.2"},
      {"Float", "junk", "<Error Param=\"Float\">unable to read float</Error>1.2"},
      {"Float", "1e99", "<Error Param=\"Float\">unable to read float</Error>1.2"},
      {"Double", "nan", "nan"},
      {"Double", "1e99", "5.5"},
      {"Double", "x", "<Error Param=\"Double\">unable to read double</Error>5.5"},
      {"Free", "inf", "inf"},
      {"Integer", "-3", "0"},
      {"Integer", "8.9", "8"},
      {"Integer", "99999999999", "<Error Param=\"Integer\">unable to read integer</Error>8"},
      {"Natural", "2147483647", "2147483647"},
      {"Flag", "true", "true"},
      {"Flag", "True", "<Error Param=\"Flag\">invalid bool</Error>true"},
      {"Text", "two  words &amp; more", "two  words &amp; more"},
      {"Proxy", "ignored", "two  words &amp; more"},
      {"Choice", "large", "large"},
      {"Choice", "Large", "<Error Param=\"Choice\">invalid option: Large\n</Error>large"},
      {"TimeT", "86400", "86400"},
      {"TimeT", "2001-09-09 01:46:40", "1000000000"},
      {"TimeT", "2001-09-09", "2001"},
      {"TimeT", "-2147483648-1-1 0:0:0", "-2147483648"},
      {"TimeT", "x", "<Error Param=\"TimeT\">unable to read time_t</Error>-2147483648"},
      {"Stamp", "2000-01-02 03:04:05.5", "2000-01-02 03:04:05.5"},
      {"Stamp", "x",
       "<Error Param=\"Stamp\">unable to read Timestamp\n</Error>2000-01-02 03:04:05.5"},
      {"Date", "2000-2-29", "2000-02-29"},
      {"Date", "2000/2",
       "<Error Param=\"Date\">unable to read date (should be YYYY-MM-DD)\n</Error>2000-02-29"},
      {"Month", "2000-2", "2000-02"},
      {"Month", "x",
       "<Error Param=\"Month\">unable to read date (should be YYYY-MM)\n</Error>2000-02"},
      {"Time", "1:2:3", "01:02:03"},
      {"Time", "1:2",
       "<Error Param=\"Time\">unable to read time (should be HH:MM:SS)\n</Error>01:02:03"},
      {"Minutes", "23:59", "23:59"},
      {"Minutes", "x",
       "<Error Param=\"Minutes\">unable to read time (should be HH:MM)\n</Error>23:59"},
  };
  for (const auto& row : rows) {
    const std::string tag = row.item;
    const std::string open = "<" + tag + ">";
    const std::string close = "</" + tag + ">";
    const std::string what = tag + " of " + row.written;
    ExpectEqual(doc.Ask(open + row.written + close + open + "&query_item;" + close), row.answer,
                what);
    // The same value again is no change, unless it is nan or nothing was stored.
    doc.set_changed(false);
    doc.Ask(open + row.written + close);
    ExpectEqual(doc.has_changed(), std::string(row.answer) == "nan", what);
  }
  ExpectThrows<std::range_error>([&] { doc.Ask("<Strict>nan</Strict>"); },
                                 "ConfigurableDouble: range error");
  ExpectEqual(doc.Ask("<Strict>7</Strict><Strict>&query_item;</Strict>"), "1");
}

void UnitCases(TestDoc& doc) {
  // Units show in the doctype alone, and can't be set or marked; and they know nothing of other
  // documents that are gone.
  std::make_unique<TestDoc>().reset();
  doc.set_changed(false);
  ExpectEqual(doc.Ask("<Float units/><Float units=\"V\"/><Float units=\"&query_item;\"/>"),
              "&disabled;");
  ExpectTrue(!doc.has_changed(), "a mark on a unit");
  ExpectEqual(doc.Ask("<Float units>1</Float><Float>&query;</Float>"),
              "<TestDoc><Float>1</Float></TestDoc>");
}

void DefaultCases(TestDoc& doc) {
  doc.reset();
  ExpectEqual(
      doc.Ask("&query_doctype_item;"),
      "<Float units=\"{string:mV}\">{float:1.2;-5.5...5.5}</Float><Double>{double:0;-5.5...5.5}"
      "</Double><Free>{float:1e+06}</Free><Strict>{double:0;-1...1}</Strict>"
      "<Integer>{integer:5;0...10}</Integer><Natural>{integer:7;0...2147483647}</Natural>"
      "<Flag>{true|false}</Flag><Text>{string:abc}</Text><Proxy>{string}</Proxy>"
      "<Choice>{small|large}</Choice><TimeT>{integer:0}</TimeT>"
      "<Stamp>{YYYY-MM-DD HH:MM:SS.SS}</Stamp><Date>{YYYY-MM-DD}</Date><Month>{YYYY-MM}</Month>"
      "<Time>{HH:MM:SS}</Time><Minutes>{HH:MM}</Minutes>");
  doc.choice.set(9);
  doc.choice.set(-1);
  ExpectEqual(doc.choice.text(), "small", "a choice out of range");
  doc.text.set("<&'");
  doc.text.set_flag(Configurable::RawText, true);
  ExpectEqual(doc.Ask("<Text>&query_item;</Text>"), "<&'");

  std::ostringstream json;
  JSONPrinterVisitor printer(json);
  doc.accept_const(printer);
  ExpectEqual(json.str(),
              "\n\"FLOAT\":1.2,\n\"FREE\":1e+06,\n\"INTEGER\":5,\n\"NATURAL\":7,\n\"CHOICE\":small,"
              "\n\"TIMET\":0,");
}

// Compares numbers with the operators of the standard streams, in both directions.
template <class Number>
void CompareNumber(ValueStreams& streams, Number value, std::string text) {
  std::ostringstream by_operator;
  if (std::isnan(value))
    by_operator << "nan";
  else
    by_operator << value;
  const Borrowed out(streams.outputs);
  WriteNumber(*out, value);
  ExpectEqual(out->Text(), by_operator.str());

  if (text.empty()) text = by_operator.str();
  std::istringstream standard(text);
  const Borrowed in(streams.inputs, std::string_view{text});
  Number expected = 0;
  Number read = 0;
  standard >> expected;
  ReadNumber(*in, read);
  ExpectEqual(in->fail(), standard.fail(), "the failbit of " + text);
  if (!in->fail()) ExpectEqual(std::to_string(read), std::to_string(expected), text);
  std::string rest;
  std::string standard_rest;
  in->clear();
  standard.clear();
  if (!standard.fail() && read == expected) {
    *in >> rest;
    standard >> standard_rest;
    ExpectEqual(rest, standard_rest, "what follows in " + text);
  }
}

void NumberCases() {
  ValueStreams streams;
  std::mt19937_64 random(3);
  // Fewer on small processors, which would take minutes.
  constexpr int kValues = sizeof(void*) < 8 ? 50'000 : 1'000'000;
  for (int i = 0; i < kValues; ++i) {
    const std::uint64_t bits = random();
    CompareNumber(streams, std::bit_cast<float>(static_cast<std::uint32_t>(bits)), "");
    // Values as they occur are tried as well as arbitrary bits.
    if (i % 10 == 0) CompareNumber(streams, std::bit_cast<double>(bits), "");
    if (i % 10 == 1) CompareNumber(streams, static_cast<float>(bits % 1'000'000) / 1000, "");
    if (i % 10 == 2) CompareNumber(streams, static_cast<int>(bits), "");
    if (i % 10 == 3) {
      // Texts that are nearly numbers.
      std::string text;
      for (std::uint64_t rest = bits; rest > 0 && text.size() < 8; rest /= 16)
        text += "0123456789+-.e x"[rest % 16];
      CompareNumber(streams, 0.0F, text);
      CompareNumber(streams, 0, text);
    }
  }
}

}  // namespace

void TestConfigurableBuiltin(std::ostream&) {
  // Local time is UTC from here on, wherever the test runs.
  setenv("TZ", "UTC", 1);
  tzset();
  TestDoc doc;
  LeafCases(doc);
  UnitCases(doc);
  DefaultCases(doc);
  NumberCases();
}
