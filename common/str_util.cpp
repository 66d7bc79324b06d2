#include "common/str_util.h"

#include <algorithm>
#include <cctype>

namespace {

int Lower(char byte) { return std::tolower(static_cast<unsigned char>(byte)); }
bool IsSpace(char byte) { return std::isspace(static_cast<unsigned char>(byte)) != 0; }
bool SameLetter(char a, char b) { return Lower(a) == Lower(b); }

}  // namespace

int CaseInsensitiveStringCompare(std::string_view a, std::string_view b) {
  const auto [in_a, in_b] = std::mismatch(a.begin(), a.end(), b.begin(), b.end(), SameLetter);
  if (in_a == a.end()) return in_b == b.end() ? 0 : -1;
  return in_b == b.end() ? 1 : Lower(*in_a) - Lower(*in_b);
}

int CaseInsensitiveStringFind(std::string_view text, std::string_view pattern, std::size_t start) {
  if (start >= text.size()) return -1;
  const auto* from = text.data() + start;
  const auto* end = text.data() + text.size();
  const auto* found = std::search(from, end, pattern.begin(), pattern.end(), SameLetter);
  return found == end ? -1 : static_cast<int>(found - text.data());
}

std::string StripEndWS(std::string_view text) {
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsSpace(text.back())) text.remove_suffix(1);
  return std::string(text);
}

char FirstNonSpace(std::string_view text) {
  const auto* const found = std::find_if_not(text.begin(), text.end(), IsSpace);
  return found == text.end() ? '\0' : *found;
}

std::string RemoveSpaceExceptBlanks(std::string_view text) {
  std::string kept;
  for (const char byte : text)
    if (byte == ' ' || !IsSpace(byte)) kept += byte;
  return kept;
}

std::string CollapseSpace(std::string_view text) {
  std::string kept;
  for (const char byte : text)
    if (!IsSpace(byte) || (byte == ' ' && !kept.ends_with(' '))) kept += byte;
  return kept;
}

std::string RemoveChar(std::string_view text, char byte) {
  std::string kept(text);
  std::erase(kept, byte);
  return kept;
}

void SplitCommandLine(std::string_view text, std::vector<std::string>& words) {
  while (true) {
    const std::size_t start = text.find_first_not_of(' ');
    if (start == std::string_view::npos) return;
    text.remove_prefix(start);
    const char quote = text.front();
    const bool quoted = quote == '"' || quote == '\'';
    if (quoted) text.remove_prefix(1);
    const std::size_t end = std::min(text.find(quoted ? quote : ' '), text.size());
    words.emplace_back(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}
