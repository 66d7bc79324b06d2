// The lexical layer: names, texts, tokens and the writer.

#include <utility>

#include "common/test_registry.h"
#include "configurable/xml_parser.h"
#include "configurable/xml_query_string_parser.h"
#include "configurable/xml_string.h"
#include "configurable/xml_writer.h"

namespace {

using namespace self_test;

template <class Text>
std::string Read(const std::string& text) {
  std::istringstream in(text);
  Text value("not cleared");
  in >> value;
  return value.text;
}

template <class Text>
std::string Written(const std::string& text) {
  std::ostringstream out;
  out << Text(text);
  return out.str();
}

// All tokens to the end; after an error the element is skipped and reading goes on.
std::string Tokens(const std::string& document) {
  std::istringstream in(document);
  XMLParser parser(in);
  std::ostringstream out;
  while (parser.GetCurrToken() != XMLParser::END_DOC) {
    switch (parser.NextToken()) {
      case XMLParser::END_DOC:
        break;
      case XMLParser::ERROR:
        ExpectTrue(in.fail(), "the failbit of an error");
        ExpectTrue(parser.NextToken() == XMLParser::ERROR, "an error that stays");
        out << "ERROR(" << parser.GetTokenString() << ") ";
        parser.SkipElement();
        break;
      case XMLParser::ATTRIBUTE_VALUE_PAIR:
        out << parser.GetTokenString() << "=" << parser.GetTokenValue() << " ";
        break;
      default:
        out << parser.GetCurrToken() << "(" << parser.GetTokenString() << ") ";
    }
  }
  return out.str();
}

void TokenCases() {
  const std::string empty_name = "ERROR(Empty XML tag name) ";
  const std::string bad_end = "ERROR(Invalid XML tag end sequence) ";
  const std::pair<std::string, std::string> rows[] = {
      {"<tagname attr1 attr2=\"a value\" attr3='v' attr4/><tag2></tag2><tag3/>",
       "START_ELEMENT(tagname) ATTRIBUTE(attr1) attr2=a value attr3=v ATTRIBUTE(attr4) "
       "END_ELEMENT(tagname) START_ELEMENT(tag2) END_ELEMENT(tag2) START_ELEMENT(tag3) "
       "END_ELEMENT(tag3) "},
      {"< badtagname>just some junk</badtagname><goodstuff/>",
       empty_name + "START_ELEMENT(goodstuff) END_ELEMENT(goodstuff) "},
      {"<badtag/ >just some junk", "START_ELEMENT(badtag) " + bad_end},
      {"<badendtag>just some junk</badendtag >",
       "START_ELEMENT(badendtag) STRING(just some junk) " + bad_end},
      {"some string stuff to start with <tag> some tag stuff </tag> end string stuff",
       "STRING(some string stuff to start with) START_ELEMENT(tag) STRING(some tag stuff) "
       "END_ELEMENT(tag) STRING(end string stuff) "},
      {"<?xml version stuff?><a/><!--<faketag>in the comment</faketag>--><b/><!ENTITY name><!><c/>",
       "START_ELEMENT(a) END_ELEMENT(a) START_ELEMENT(b) END_ELEMENT(b) START_ELEMENT(c) "
       "END_ELEMENT(c) "},
      // White space between a tag or a comment and the next tag is a text without content.
      {"<a> <!--x--> <b/> </a>",
       "START_ELEMENT(a) STRING() STRING() START_ELEMENT(b) END_ELEMENT(b) END_ELEMENT(a) "},
      {"<a <b>x</b></a>",
       "START_ELEMENT(a) ERROR(Cannot start new element inside start tag) END_ELEMENT(a) "},
      {"<a b =\"1\"/><c/>",
       "START_ELEMENT(a) ATTRIBUTE(b) " + empty_name + "START_ELEMENT(c) END_ELEMENT(c) "},
      {"> <a/>", "ERROR(Invalid '>' character outside XML tags) "},
      {"<a &query; b= \"&query_item;\" />",
       "START_ELEMENT(a) ATTRIBUTE(&query;) b=&query_item; END_ELEMENT(a) "},
      {"<a>1 &lt; 2</a>", "START_ELEMENT(a) STRING(1 < 2) END_ELEMENT(a) "},
      {"<a b='unended", "START_ELEMENT(a) "},
      {"<a><unen", "START_ELEMENT(a) "},
      {"<a>unended", "START_ELEMENT(a) STRING(unended) "},
      {"<!-- unended <a/>", ""},
  };
  for (const auto& [document, tokens] : rows) {
    ExpectEqual(Tokens(document), tokens, document);
    // Wherever the document is cut off, reading comes to an end.
    for (std::size_t length = 0; length < document.size(); ++length)
      Tokens(document.substr(0, length));
  }
}

void RestoreCases() {
  // Siblings read an element again; what comes after the root stays in the stream.
  std::istringstream in("<a b='1'>text</a>rest");
  {
    XMLParser parser(in);
    ExpectTrue(parser.GetCurrToken() == XMLParser::START_DOC, "the token before the first");
    parser.NextToken();
    parser.SavePosition();
    for (int reader = 0; reader < 3; ++reader) {
      parser.RestorePosition();
      std::ostringstream tokens;
      tokens << parser.GetTokenString();
      while (parser.NextToken() != XMLParser::END_ELEMENT)
        tokens << " " << parser.GetTokenString() << "=" << parser.GetTokenValue();
      ExpectEqual(tokens.str(), "a b=1 text=");
    }
  }
  std::string rest;
  in >> rest;
  ExpectEqual(rest, "rest");
}

}  // namespace

void TestXMLParser(std::ostream&) {
  TokenCases();
  RestoreCases();
}

void TestXMLQueryStringParser(std::ostream&) {
  const std::pair<const char*, const char*> rows[] = {
      {"This is a &query_item; string", "STRING(This is a ) QUERY(&query_item;) STRING( string) "},
      {"an illegal &query string", "STRING(an illegal &query string) "},
      {"&query_changes_item; and then an error &query_junk; query",
       "QUERY_CHANGES(&query_changes_item;) STRING( and then an error ) ERROR(&query_junk;) "
       "STRING( query) "},
      {"&query;&query_context;&query_changes;&query_changes_context;&query_doctype;"
       "&query_doctype_context;&query_doctype_item;",
       "QUERY_CONTEXT(&query;) QUERY_CONTEXT(&query_context;) "
       "QUERY_CHANGES_CONTEXT(&query_changes;) QUERY_CHANGES_CONTEXT(&query_changes_context;) "
       "QUERY_DOCTYPE_CONTEXT(&query_doctype;) QUERY_DOCTYPE_CONTEXT(&query_doctype_context;) "
       "QUERY_DOCTYPE(&query_doctype_item;) "},
      {"{doctype information}", "DOCTYPE(doctype information) "},
      {"begin {doctype information}", "STRING(begin {doctype information}) "},
      {"{doctype information} end", "STRING({doctype information} end) "},
      {"{", "STRING({) "},
      {"{}", "DOCTYPE() "},
  };
  for (const auto& [text, expected] : rows) {
    XMLQueryStringParser parser(text);
    std::ostringstream tokens;
    ExpectTrue(parser.NextToken() == XMLQueryStringParser::START_STRING, "the first token");
    while (parser.NextToken() != XMLQueryStringParser::END_STRING)
      tokens << parser.GetCurrToken() << "(" << parser.GetTokenString() << ") ";
    ExpectEqual(tokens.str(), expected, text);
  }
}

void TestXMLString(std::ostream&) {
  const std::pair<const char*, const char*> pairs[] = {
      {"hello with spaces", "hello with spaces"},
      {"&begin", "&amp;begin"},
      {"tricky&", "tricky&amp;"},
      {"'lots of stuff '\"<>& to do", "&apos;lots of stuff &apos;&quot;&lt;&gt;&amp; to do"},
      {"&junk;", "&junk;"},
      {"&;", "&amp;;"},
      {"&a&b;", "&amp;a&b;"},
  };
  for (const auto& [text, printed] : pairs) {
    ExpectEqual(Written<XMLString>(text), printed);
    ExpectEqual(Read<XMLString>(printed), text);
  }
  const std::pair<const char*, const char*> read_only[] = {
      {"  Read up to\t tag </end_tag>", "Read up to\t tag"},
      {"\"A quoted 'string'\"", "A quoted 'string'"},
      {"'A quoted \"string\"'", "A quoted \"string\""},
      {"\" blanks stay \"", " blanks stay "},
      {"A quoted 'string'", "A quoted"},
      {"'A quoted' string", "A quoted"},
      {"a &b c", "a &bc"},
      {"a &b<", "a &b"},
      {"", ""},
  };
  for (const auto& [text, read] : read_only) ExpectEqual(Read<XMLString>(text), read, text);

  const std::pair<const char*, const char*> names[] = {
      {"&entity_name;with junk", "&entity_name;"},
      {"attr=\"value\"", "attr"},
      {"_na:me/>", "_na:me"},
      {":name-with_dash<>", ":name-with_dash"},
      {".no-name", ""},
      {" name", ""},
  };
  for (const auto& [text, name] : names) {
    ExpectEqual(Read<XMLName>(text), name, text);
    ExpectEqual(Written<XMLName>(text), name, text);
  }
}

void TestXMLWriter(std::ostream&) {
  const auto write = [](bool indent) {
    std::ostringstream out;
    out << "<?xml version=\"1.0\"?>";
    XMLWriter writer(out, indent);
    writer.start_element("greeting");
    writer.text("Hello, world!", true);
    writer.end_element("greeting");
    writer.start_element("tag2");
    writer.start_element("tag3");
    writer.attribute("attr1", "value");
    writer.attribute("attr2");
    writer.text("Howdy from tag3", true);
    writer.start_element("NEMRA::tag31");
    writer.text("this is tag31", true);
    writer.end_element("NEMRA::tag31");
    writer.end_element("tag3");
    writer.end_element("tag2");
    writer.start_element("tag4");
    writer.attribute("attr3");
    writer.finish();
    return out.str();
  };
  ExpectEqual(
      write(true),
      "<?xml version=\"1.0\"?>\n<greeting>Hello, world!</greeting>\n"
      "<tag2>\n\t<tag3 attr1=\"value\" attr2>Howdy from tag3\n"
      "\t\t<NEMRA::tag31>this is tag31</NEMRA::tag31>\n\t</tag3>\n</tag2>\n<tag4 attr3/>\n");
  ExpectEqual(write(false),
              "<?xml version=\"1.0\"?><greeting>Hello, world!</greeting>"
              "<tag2><tag3 attr1=\"value\" attr2>Howdy from tag3"
              "<NEMRA::tag31>this is tag31</NEMRA::tag31></tag3></tag2><tag4 attr3/>\n");

  // Texts far larger than any buffer; bare values with one blank between them.
  std::ostringstream out;
  const std::string large(100'000, 'x');
  {
    XMLWriter writer(out, false);
    for (const char* text : {"1234", "", "<"}) writer.text(text, true);
    writer.text(large, false);
    ExpectEqual(writer.Stream().tellp(), std::streamoff{100'010});
    ExpectEqual(writer.Length(), std::size_t{100'010});
  }
  ExpectEqual(out.str(), "1234 &lt; " + large);
}
