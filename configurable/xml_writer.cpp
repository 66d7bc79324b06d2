#include "configurable/xml_writer.h"

#include <algorithm>
#include <charconv>
#include <exception>

#include "common/number_format.h"
#include "configurable/xml_text.h"

XMLWriter::XMLWriter(std::ostream& out, bool indented, ValueStreams* kept)
    : stream(out),
      indent(indented),
      values(kept != nullptr ? *kept : own_values),
      exceptions_before(std::uncaught_exceptions()) {}

XMLWriter::~XMLWriter() noexcept(false) {
  // A stream that has thrown takes no more.
  if (std::uncaught_exceptions() == exceptions_before) flush();
}

void XMLWriter::start_element(std::string_view name, bool known) {
  close_tag();
  if (name.empty()) return;
  if (indent) indent_line();
  put("<", known ? name : xml_text::NameIn(name), "");
  ++depth;
  tag_open = need_space = end_inline = true;
}

void XMLWriter::end_element(std::string_view name, bool known) {
  depth = std::max(depth - 1, 0);
  if (tag_open) {
    put("/>");
    tag_open = need_space = end_inline = false;
    return;
  }
  if (!name.empty()) {
    if (!end_inline && indent) indent_line();
    put("</", known ? name : xml_text::NameIn(name), ">");
    need_space = false;
  }
  end_inline = false;
}

void XMLWriter::attribute(std::string_view name) {
  if (name.empty()) return;
  if (need_space) put(' ');
  put(xml_text::NameIn(name));
  need_space = true;
}

void XMLWriter::attribute(std::string_view name, std::string_view value) {
  if (name.empty()) return;
  attribute(name);
  put("=\"");
  put_escaped(value);
  put('"');
}

void XMLWriter::text(std::string_view value, bool escape) {
  if (value.empty()) return;
  close_tag();
  if (need_space) put(' ');
  if (escape)
    put_escaped(value);
  else
    put(value);
  need_space = true;
}

void XMLWriter::number(double value) {
  std::array<char, 32> digits;
  text({digits.data(), PutGeneral(digits.data(), value)}, false);
}

void XMLWriter::number(int value) {
  std::array<char, 16> digits;
  const char* end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  text({digits.data(), end}, false);
}

void XMLWriter::error(std::string_view item, std::string_view message) {
  start_element("Error");
  attribute("Param", item);
  text(message, true);
  end_element("Error");
  ++errors;
}

void XMLWriter::finish() {
  if (tag_open) {
    put("/>");
    depth = std::max(depth - 1, 0);
    tag_open = need_space = false;
  }
  put('\n');
  Stream().flush();
}

void XMLWriter::close_tag() {
  if (!tag_open) return;
  put('>');
  tag_open = need_space = false;
}

void XMLWriter::indent_line() {
  constexpr std::string_view kLine = "\n\t\t\t\t\t\t\t\t";
  const auto tabs = static_cast<std::size_t>(depth);
  put(kLine.substr(0, 1 + tabs));
  for (std::size_t i = kLine.size() - 1; i < tabs; ++i) put('\t');
}

void XMLWriter::put_beyond(std::string_view piece) {
  flush();
  if (piece.size() <= buffer.size()) return put(piece);
  stream.write(piece.data(), static_cast<std::streamsize>(piece.size()));
  flushed += piece.size();
}

void XMLWriter::put_escaped(std::string_view value) {
  xml_text::Escape(value, [this](std::string_view piece) { put(piece); });
}

void XMLWriter::flush() {
  if (used == 0) return;
  stream.write(buffer.data(), static_cast<std::streamsize>(used));
  flushed += used;
  used = 0;
}
