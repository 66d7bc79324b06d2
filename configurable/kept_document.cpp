#include "configurable/kept_document.h"

XMLParser& KeptDocument::Rewound() {
  if (!parser || !parser->Rewind()) {
    parser.reset();
    in.Close();
    in.Open(text);
    parser.emplace(in);
  }
  return *parser;
}
