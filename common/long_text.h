#pragma once

#include <cstddef>
#include <string_view>

// A text that never stands in memory as a whole: whoever wants it asks for one piece after another.
class LongText {
 public:
  virtual ~LongText() = default;

  // The next piece, which is made in a moment and holds until the next call; empty at the end.
  virtual std::string_view Next() = 0;
  // Begins again; the text stays the same.
  virtual void Rewind() = 0;
  // Bytes of memory that it takes.
  virtual std::size_t Bytes() const = 0;
};
