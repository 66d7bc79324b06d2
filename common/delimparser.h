#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Cuts a stream of bytes into messages that each end with a delimiter.
class DelimParser {
 public:
  explicit DelimParser(const std::string& delimiter);

  // Of two delimiters at the same place, the one added earlier wins.
  void AddDelimiter(const std::string& delimiter);
  void Add(std::string_view bytes);

  // Forgets all bytes.
  void Clear();

  // Bytes that belong to no complete message yet.
  std::size_t Pending() const { return buffer.size() - taken; }

  // Takes out the earliest complete message, its delimiter at its end. False if there is none.
  bool Next(std::string& message);
  // The same, and says which delimiter ended it.
  bool Next(std::string& message, std::string& delimiter);

 private:
  // Bytes up to the end of the earliest message, and the index of its delimiter; 0 if there is
  // none.
  std::size_t FindMessage(std::size_t& which);
  void Take(std::size_t length, std::string& message);
  // Frees what a long message has needed, once all is given out.
  void GiveBackRoom();

  std::vector<std::string> delimiters;
  bool line_feed_only = false;
  std::string buffer;
  std::size_t taken = 0;     // bytes at the front of `buffer` that were given out already
  std::size_t searched = 0;  // no message ends before this place
};
