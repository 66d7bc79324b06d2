#include "common/delimparser.h"

#include <algorithm>

#include "common/memory.h"

DelimParser::DelimParser(const std::string& delimiter) { AddDelimiter(delimiter); }

void DelimParser::AddDelimiter(const std::string& delimiter) {
  delimiters.push_back(delimiter);
  line_feed_only = delimiters.size() == 1 && delimiter == "\n";
  searched = taken;
}

void DelimParser::GiveBackRoom() {
  constexpr std::size_t kMostKeptRoom = 1024;
  if (Pending() > 0 || buffer.capacity() <= kMostKeptRoom) return;
  Release(buffer, kMostKeptRoom);
  taken = searched = 0;
}

void DelimParser::Add(std::string_view bytes) {
  // Make room only here, once per chunk of input, however many messages it held.
  buffer.erase(0, taken);
  searched -= taken;
  taken = 0;
  buffer.append(bytes);
}

bool DelimParser::Next(std::string& message) {
  std::size_t which = 0;
  const std::size_t length = FindMessage(which);
  if (length == 0) {
    GiveBackRoom();
    return false;
  }
  Take(length, message);
  return true;
}

bool DelimParser::Next(std::string& message, std::string& delimiter) {
  std::size_t which = 0;
  const std::size_t length = FindMessage(which);
  if (length == 0) return false;
  Take(length, message);
  delimiter = delimiters[which];
  return true;
}

std::size_t DelimParser::FindMessage(std::size_t& which) {
  std::size_t first = std::string::npos;
  std::size_t longest = 0;
  if (line_feed_only) {
    first = buffer.find('\n', searched);
    longest = 1;
  } else {
    for (std::size_t i = 0; i < delimiters.size(); ++i) {
      const std::size_t at = buffer.find(delimiters[i], searched);
      if (at < first) {
        first = at;
        which = i;
      }
      longest = std::max(longest, delimiters[i].size());
    }
  }
  if (first != std::string::npos) return first + delimiters[which].size() - taken;
  // A delimiter may have begun in the last bytes.
  if (buffer.size() >= longest) searched = std::max(searched, buffer.size() - longest + 1);
  return 0;
}

void DelimParser::Take(std::size_t length, std::string& message) {
  if (taken == 0 && length == buffer.size()) {
    // A long message is not copied.
    message.swap(buffer);
    return Clear();
  }
  message.assign(buffer, taken, length);
  taken += length;
  searched = taken;
}

void DelimParser::Clear() {
  Release(buffer);
  taken = searched = 0;
}
