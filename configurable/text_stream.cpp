#include "configurable/text_stream.h"

#include "common/timestamp.h"

namespace {

// What a value may have set for itself is not for the next one.
void ResetFormat(std::ios& stream) {
  stream.clear();
  stream.flags(std::ios_base::skipws | std::ios_base::dec);
  stream.precision(6);
  stream.width(0);
  stream.fill(' ');
  ClearTimestampFormat(stream);
}

}  // namespace

void TextInput::Open(std::string_view text) {
  buffer.Open(text);
  ResetFormat(*this);
}

void TextInput::Buffer::Open(std::string_view text) {
  // A get area is not const, but nothing writes to it.
  char* begin = const_cast<char*>(text.data());
  setg(begin, begin, begin + text.size());
}

TextInput::Buffer::pos_type TextInput::Buffer::seekoff(off_type offset, std::ios_base::seekdir from,
                                                       std::ios_base::openmode which) {
  const off_type start = from == std::ios_base::beg   ? 0
                         : from == std::ios_base::cur ? gptr() - eback()
                                                      : egptr() - eback();
  return seekpos(start + offset, which);
}

TextInput::Buffer::pos_type TextInput::Buffer::seekpos(pos_type position, std::ios_base::openmode) {
  const off_type offset = position;
  if (offset < 0 || offset > egptr() - eback()) return pos_type(off_type(-1));
  setg(eback(), eback() + offset, egptr());
  return position;
}

void TextOutput::Open() {
  buffer.text.clear();
  ResetFormat(*this);
}

TextOutput::Buffer::int_type TextOutput::Buffer::overflow(int_type byte) {
  if (!traits_type::eq_int_type(byte, traits_type::eof()))
    text.push_back(traits_type::to_char_type(byte));
  return traits_type::not_eof(byte);
}

std::streamsize TextOutput::Buffer::xsputn(const char* bytes, std::streamsize count) {
  text.append(bytes, static_cast<std::size_t>(count));
  return count;
}
