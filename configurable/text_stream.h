#pragma once

#include <cstddef>
#include <istream>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "common/timestamp.h"

// Standard streams over texts in memory. Making a stream costs more than reading a setting from it,
// so they are kept for the next value, which finds them in the initial state of a stream: they are
// given it back at the end of a use, if that has changed it at all.

// Gives a stream the state of a new one, which it mostly has.
void SetNewState(std::ios& stream);
template <class Stream>
void Renew(Stream& stream) {
  constexpr std::ios::fmtflags kFlags = std::ios::skipws | std::ios::dec;
  // Reading to the end leaves eofbit.
  if (stream.rdstate() != std::ios::goodbit) stream.clear();
  if (stream.flags() != kFlags || stream.precision() != 6 || stream.width() != 0 ||
      stream.fill() != ' ' || stream.exceptions() != std::ios::goodbit ||
      HasTimestampFormat(stream))
    SetNewState(stream);
}

// Reads from a text that must outlive the reading.
class TextInput final : public std::istream {
 public:
  static bool Is(const std::istream& in) { return typeid(in) == typeid(TextInput); }
  // `in` itself if it is one of these, else null.
  static TextInput* From(std::istream& in) {
    return Is(in) ? static_cast<TextInput*>(&in) : nullptr;
  }

  TextInput() : std::istream(nullptr) { rdbuf(&buffer); }
  // Of a new one, or after Close.
  void Open(std::string_view text) { buffer.Open(text); }
  void Close() { Renew(*this); }
  // What is not read yet. Skip does not change the state of the stream.
  std::string_view Rest() const { return buffer.Rest(); }
  void Skip(std::size_t bytes) { buffer.Skip(bytes); }

 private:
  class Buffer : public std::streambuf {
   public:
    void Open(std::string_view text) {
      // A get area is not const, but nothing writes to it.
      char* begin = const_cast<char*>(text.data());
      setg(begin, begin, begin + text.size());
    }
    std::string_view Rest() const { return {gptr(), static_cast<std::size_t>(egptr() - gptr())}; }
    void Skip(std::size_t bytes) { gbump(static_cast<int>(bytes)); }

   protected:
    pos_type seekoff(off_type offset, std::ios_base::seekdir from,
                     std::ios_base::openmode which) override;
    pos_type seekpos(pos_type position, std::ios_base::openmode which) override;
  };
  Buffer buffer;
};

// Collects what is written.
class TextOutput final : public std::ostream {
 public:
  class TooLong : public std::length_error {
   public:
    using std::length_error::length_error;
  };
  static constexpr std::size_t kNoLimit = std::string::npos;

  TextOutput() : std::ostream(nullptr) { rdbuf(&buffer); }
  // The same.
  void Open(std::size_t limit = kNoLimit) { SetLimit(limit); }
  // Writing more bytes throws TooLong, so that nobody goes on composing what nobody gets.
  void SetLimit(std::size_t limit) {
    buffer.limit = limit;
    if (limit != kNoLimit) exceptions(badbit);
  }
  void Close() {
    if (!buffer.text.empty()) Clear();
    Renew(*this);
  }
  // Valid until Close.
  const std::string& Text() const { return buffer.text; }

 private:
  struct Buffer : std::streambuf {
    int_type overflow(int_type byte) override;
    std::streamsize xsputn(const char* bytes, std::streamsize count) override;
    std::string text;
    std::size_t limit = kNoLimit;
  };
  // Drops the text, and what a long one took.
  void Clear();

  Buffer buffer;
};

// Streams of one kind that are kept for the next value.
template <class Stream>
struct StreamStack {
  std::vector<std::unique_ptr<Stream>> streams;
  std::size_t borrowed = 0;  // this many of them, from the first on
};

// The streams by which the values of one tree are read and rendered.
struct ValueStreams {
  StreamStack<TextInput> inputs;
  StreamStack<TextOutput> outputs;
};

// A stream from a stack, opened with `arguments`, and given back at the end of the scope. Scopes
// may nest, as they do when a listener assigns a further value in the middle of an assignment.
template <class Stream>
class Borrowed {
 public:
  // `from` must outlive this.
  template <class... Arguments>
  explicit Borrowed(StreamStack<Stream>& from, Arguments... arguments) : stack(from) {
    if (stack.borrowed == stack.streams.size()) stack.streams.push_back(std::make_unique<Stream>());
    stream = stack.streams[stack.borrowed++].get();
    stream->Open(arguments...);
  }
  ~Borrowed() {
    stream->Close();
    --stack.borrowed;
  }
  Borrowed(const Borrowed&) = delete;
  Borrowed& operator=(const Borrowed&) = delete;

  Stream& operator*() const { return *stream; }
  Stream* operator->() const { return stream; }

 private:
  StreamStack<Stream>& stack;
  Stream* stream;
};
