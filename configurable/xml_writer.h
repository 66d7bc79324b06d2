#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <ostream>
#include <string_view>

#include "configurable/text_stream.h"

// Composes answers and settings files: closes tags late, so that an element without content closes
// itself, puts one blank between texts that follow each other, and indents or stays compact. An
// indented document begins with a line feed.
//
// What is written reaches the stream when Stream is called, and when this object is destroyed.
class XMLWriter {
 public:
  // `out`, and `kept` if it is given, must outlive this.
  XMLWriter(std::ostream& out, bool indented, ValueStreams* kept = nullptr);
  // Throws what the stream throws, unless an exception is already under way.
  ~XMLWriter() noexcept(false);
  XMLWriter(const XMLWriter&) = delete;
  XMLWriter& operator=(const XMLWriter&) = delete;

  // An empty name only closes the tag before. Of others the part that is a name is written; with
  // `known`, all of it is known to be a name and is not checked.
  void start_element(std::string_view name, bool known = false);
  // An element that is still open closes itself, whatever the name.
  void end_element(std::string_view name, bool known = false);
  void attribute(std::string_view name);
  void attribute(std::string_view name, std::string_view value);
  // Without `escape`, `value` goes out as it is.
  void text(std::string_view value, bool escape);
  // The text of a number, as WriteNumber gives it.
  void number(double value);
  void number(int value);
  // Writes an element that says what is wrong with the item `item`.
  void error(std::string_view item, std::string_view message);
  // Closes an open tag and ends the line.
  void finish();

  // The stream, with all that was written so far.
  std::ostream& Stream() {
    if (used > 0) flush();
    return stream;
  }
  // For the values of the document: those given, or its own.
  ValueStreams& Values() { return values; }
  // Bytes written so far.
  std::size_t Length() const { return flushed + used; }
  // Errors reported so far.
  unsigned Errors() const { return errors; }

 private:
  void put(std::string_view piece) {
    if (piece.size() > buffer.size() - used) return put_beyond(piece);
    // An empty piece may have no memory at all.
    used += piece.copy(buffer.data() + used, piece.size());
  }
  // The same for a name between short texts, such as the marks of a tag.
  template <std::size_t kBefore, std::size_t kAfter>
  void put(const char (&before)[kBefore], std::string_view name, const char (&after)[kAfter]) {
    const std::string_view first(before, kBefore - 1);
    const std::string_view last(after, kAfter - 1);
    if (first.size() + name.size() + last.size() > buffer.size() - used) {
      put(first);
      put(name);
      return put(last);
    }
    char* to = buffer.data() + used;
    to = std::copy(first.begin(), first.end(), to);
    to += name.copy(to, name.size());
    to = std::copy(last.begin(), last.end(), to);
    used = static_cast<std::size_t>(to - buffer.data());
  }
  void put(char byte) {
    if (used == buffer.size()) flush();
    buffer[used++] = byte;
  }
  void put_beyond(std::string_view piece);
  void put_escaped(std::string_view value);
  void close_tag();
  void indent_line();
  void flush();

  std::ostream& stream;
  bool indent;
  bool tag_open = false;  // a start tag awaits its '>'
  int depth = 0;
  bool need_space = false;
  bool end_inline = true;  // the next end tag stays on its line
  unsigned errors = 0;
  ValueStreams own_values;
  ValueStreams& values;
  int exceptions_before;
  std::array<char, 2048> buffer;
  std::size_t used = 0;
  std::size_t flushed = 0;
};
