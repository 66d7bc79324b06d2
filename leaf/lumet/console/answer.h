#pragma once

#include <cstddef>
#include <ostream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <utility>

#include "common/memory.h"

// Collects the text of an answer. Writing beyond its limit throws TooLong, so that nobody goes on
// composing what nobody gets.
class Answer : public std::ostream {
 public:
  class TooLong : public std::length_error {
   public:
    using std::length_error::length_error;
  };

  // `limit` in bytes.
  explicit Answer(std::size_t limit) : std::ostream(nullptr), buffer(limit) {
    rdbuf(&buffer);
    exceptions(badbit);
  }
  // Drops what was written, to make room for a short error.
  void Restart() {
    clear();
    Release(buffer.text);
    buffer.limit = std::string::npos;
  }
  std::string Take() { return std::move(buffer.text); }

 private:
  struct Buffer : std::streambuf {
    explicit Buffer(std::size_t limit) : limit(limit) {}
    int_type overflow(int_type byte) override {
      const char letter = traits_type::to_char_type(byte);
      if (!traits_type::eq_int_type(byte, traits_type::eof())) xsputn(&letter, 1);
      return traits_type::not_eof(byte);
    }
    std::streamsize xsputn(const char* bytes, std::streamsize count) override {
      if (text.size() + static_cast<std::size_t>(count) > limit)
        throw TooLong("The answer is longer than " + std::to_string(limit) + " bytes");
      text.append(bytes, static_cast<std::size_t>(count));
      return count;
    }
    std::string text;
    std::size_t limit;
  };
  Buffer buffer;
};
