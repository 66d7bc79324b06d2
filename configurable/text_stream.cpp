#include "configurable/text_stream.h"

#include <ios>

#include "common/memory.h"

void SetNewState(std::ios& stream) {
  if (stream.exceptions() != std::ios::goodbit) stream.exceptions(std::ios::goodbit);
  stream.flags(std::ios::skipws | std::ios::dec);
  stream.precision(6);
  stream.width(0);
  if (stream.fill() != ' ') stream.fill(' ');
  if (HasTimestampFormat(stream)) ClearTimestampFormat(stream);
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
  if (offset < 0 || offset > egptr() - eback()) return {off_type(-1)};
  setg(eback(), eback() + offset, egptr());
  return position;
}

void TextOutput::Clear() {
  constexpr std::size_t kKept = 4096;
  Release(buffer.text, kKept);
}

TextOutput::Buffer::int_type TextOutput::Buffer::overflow(int_type byte) {
  const char letter = traits_type::to_char_type(byte);
  if (!traits_type::eq_int_type(byte, traits_type::eof())) xsputn(&letter, 1);
  return traits_type::not_eof(byte);
}

std::streamsize TextOutput::Buffer::xsputn(const char* bytes, std::streamsize count) {
  if (static_cast<std::size_t>(count) > limit - text.size())
    throw TooLong("The answer is longer than " + std::to_string(limit) + " bytes");
  text.append(bytes, static_cast<std::size_t>(count));
  return count;
}
