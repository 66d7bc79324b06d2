#pragma once

#include <optional>
#include <string>
#include <utility>

#include "configurable/text_stream.h"
#include "configurable/xml_parser.h"

// A document that is read again and again, as a standing query is, and parsed only once.
class KeptDocument {
 public:
  explicit KeptDocument(std::string document) : text(std::move(document)) {}

  const std::string& Text() const { return text; }
  // A parser on the start of the document.
  XMLParser& Rewound();

 private:
  const std::string text;
  TextInput in;
  std::optional<XMLParser> parser;
};
