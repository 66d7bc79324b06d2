#include "configurable/xml_string.h"

#include <string_view>

#include "configurable/xml_text.h"

void XMLString::read(std::istream& in) {
  text.clear();
  xml_text::CharSource source(in);
  if (!xml_text::ReadString(source, text)) in.setstate(std::ios_base::failbit);
}

void XMLString::write(std::ostream& out) const {
  xml_text::Escape(text, [&](std::string_view piece) { out << piece; });
}

void XMLName::read(std::istream& in) {
  text.clear();
  xml_text::CharSource source(in);
  xml_text::ReadName(source, text);
}

void XMLName::write(std::ostream& out) const { out << xml_text::NameIn(text); }
