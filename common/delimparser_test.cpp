#include "common/delimparser.h"

#include <vector>

#include "common/test_registry.h"

using namespace self_test;

void TestDelimParser(std::ostream&) {
  const struct {
    std::vector<std::string> delimiters;
    std::string bytes;
    std::string messages;
  } rows[] = {
      {{"\n"}, "one\ntwo\n\nrest", "one\n|two\n|\n|"},
      {{"ab", "\r\n", "a"}, "xab1a2\r\n3", "xab|1a|2\r\n|"},
      {{"<>", ">"}, "<><a>", "<>|<a>|"},
      {{"\n", "end"}, "en\nend", "en\n|end|"},
  };
  for (const auto& row : rows) {
    // Whole, and in pieces of every size.
    for (std::size_t piece = 1; piece <= row.bytes.size(); ++piece) {
      DelimParser parser(row.delimiters[0]);
      for (std::size_t i = 1; i < row.delimiters.size(); ++i)
        parser.AddDelimiter(row.delimiters[i]);
      std::string messages;
      for (std::size_t at = 0; at < row.bytes.size(); at += piece) {
        // Two delimiters that share a beginning can't be told apart before both are there.
        parser.Add(std::string_view(row.bytes).substr(at, piece));
        if (row.delimiters[0] == "ab" && at + piece < row.bytes.size()) continue;
        std::string delimiter;
        for (std::string message; parser.Next(message, delimiter); messages += message + "|")
          ExpectTrue(message.ends_with(delimiter), message);
      }
      ExpectEqual(messages, row.messages, row.bytes);
    }
  }
}
