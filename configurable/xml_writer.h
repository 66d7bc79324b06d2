#pragma once

#include <array>
#include <cstddef>
#include <ostream>
#include <string_view>

#include "configurable/text_stream.h"

// Composes answers and settings files: closes tags late, so that an element without content closes
// itself, puts one blank between texts that follow each other, and indents or stays compact. An
// indented document begins with a line feed.
//
// What is written reaches the stream when Stream is called, and at the end of this object.
class XMLWriter {
 public:
  // Both must outlive this. `kept` are streams for the values that a document takes and gives.
  XMLWriter(std::ostream& out, bool indented, TextStreams& kept);
  ~XMLWriter();
  XMLWriter(const XMLWriter&) = delete;
  XMLWriter& operator=(const XMLWriter&) = delete;

  // An empty name only closes the tag before.
  void start_element(std::string_view name);
  // An element that is still open closes itself, whatever the name.
  void end_element(std::string_view name);
  void attribute(std::string_view name);
  void attribute(std::string_view name, std::string_view value);
  // Without `escape`, `value` goes out as it is.
  void text(std::string_view value, bool escape);
  // Closes an open tag and ends the line.
  void finish();

  // The stream, with all that was written so far.
  std::ostream& Stream();
  // Bytes written so far.
  std::size_t Length() const { return flushed + used; }
  TextStreams& Streams() { return streams; }

 private:
  void put(std::string_view piece);
  void put(char byte);
  void put_escaped(std::string_view value);
  void put_name(std::string_view name);
  void close_tag();
  void indent_line();
  void flush();

  std::ostream& stream;
  TextStreams& streams;
  bool indent;
  bool tag_open = false;  // a start tag awaits its '>'
  int depth = 0;
  bool need_space = false;
  bool end_inline = true;  // the next end tag stays on its line
  std::array<char, 2048> buffer;
  std::size_t used = 0;
  std::size_t flushed = 0;
};
