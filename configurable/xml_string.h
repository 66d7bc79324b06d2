#pragma once

#include <istream>
#include <ostream>
#include <string>
#include <utility>

// A text of the XML language, to be streamed: escaped on the way out, translated on the way in.
class XMLString {
 public:
  XMLString() = default;
  explicit XMLString(std::string text) : text(std::move(text)) {}
  virtual ~XMLString() = default;
  XMLString(const XMLString&) = default;
  XMLString& operator=(const XMLString&) = default;

  // Reads a text in quotes, or plain text up to '<', '>' or a quote without the white space around
  // it. Sets the failbit if the stream ends before any text or inside quotes.
  virtual void read(std::istream& in);
  virtual void write(std::ostream& out) const;

  std::string text;
};

// A name: a letter, '&', ':' or '_', then letters, digits, '_', '-', '.', ':', and at most one ';',
// which ends it. White space is not skipped.
class XMLName : public XMLString {
 public:
  using XMLString::XMLString;
  // Reads as far as a name goes; empty if none begins here.
  void read(std::istream& in) override;
  // Writes as far as a name goes.
  void write(std::ostream& out) const override;
};

inline std::istream& operator>>(std::istream& in, XMLString& text) {
  text.read(in);
  return in;
}
inline std::ostream& operator<<(std::ostream& out, const XMLString& text) {
  text.write(out);
  return out;
}
