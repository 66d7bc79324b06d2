#include "configurable/kept_document.h"

XMLParser& KeptDocument::Rewound() {
  if (!parser || !parser->Rewind()) {
    parser.reset();
    in.Open(text);
    parser.emplace(in);
  }
  return *parser;
}
