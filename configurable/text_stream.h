#pragma once

#include <cstddef>
#include <istream>
#include <memory>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

// Standard streams over texts in memory. Making a stream costs more than reading a setting from it,
// so whoever handles many keeps them for the next value, in a TextStreams: take one as a
// Borrowed<TextInput> or Borrowed<TextOutput>. Opening brings one back to its initial state,
// however the value before has left it.

// Reads from a text that must outlive the reading.
class TextInput final : public std::istream {
 public:
  // `in` itself if it is one of these, else null.
  static TextInput* From(std::istream& in) {
    return typeid(in) == typeid(TextInput) ? static_cast<TextInput*>(&in) : nullptr;
  }

  TextInput() : std::istream(nullptr) { rdbuf(&buffer); }
  void Open(std::string_view text);
  // What is not read yet. The state of the stream does not follow Skip.
  std::string_view Rest() const { return buffer.Rest(); }
  void Skip(std::size_t bytes) { buffer.Skip(bytes); }

 private:
  class Buffer : public std::streambuf {
   public:
    void Open(std::string_view text);
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
class TextOutput : public std::ostream {
 public:
  TextOutput() : std::ostream(nullptr) { rdbuf(&buffer); }
  void Open();
  // Valid until the next Open.
  const std::string& Text() const { return buffer.text; }

 private:
  struct Buffer : std::streambuf {
    int_type overflow(int_type byte) override;
    std::streamsize xsputn(const char* bytes, std::streamsize count) override;
    std::string text;
  };
  Buffer buffer;
};

// Streams that are kept for the next value, made at need.
template <class Stream>
struct KeptStreams {
  std::vector<std::unique_ptr<Stream>> streams;
  std::size_t borrowed = 0;  // of these, from the first on
};
struct TextStreams {
  KeptStreams<TextInput> inputs;
  KeptStreams<TextOutput> outputs;
};

// A kept stream in its initial state, given back at the end of the scope. Scopes may nest.
template <class Stream>
class Borrowed {
 public:
  // `kept_streams` must outlive this.
  template <class... Arguments>
  explicit Borrowed(KeptStreams<Stream>& kept_streams, Arguments... arguments)
      : kept(kept_streams) {
    if (kept.borrowed == kept.streams.size()) kept.streams.push_back(std::make_unique<Stream>());
    stream = kept.streams[kept.borrowed++].get();
    stream->Open(arguments...);
  }
  ~Borrowed() { --kept.borrowed; }
  Borrowed(const Borrowed&) = delete;
  Borrowed& operator=(const Borrowed&) = delete;

  Stream& operator*() const { return *stream; }
  Stream* operator->() const { return stream; }

 private:
  KeptStreams<Stream>& kept;
  Stream* stream;
};
