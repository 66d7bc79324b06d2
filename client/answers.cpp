#include "client/answers.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::string_view kAcknowledgement = "<nemra><tavo><ack>true</ack></tavo></nemra>";
constexpr std::string_view kErrorStart = "<nemra><tavo><error>";
constexpr std::string_view kErrorEnd = "</error></tavo></nemra>";

// Whether a text ends in the document of the `error` element.
bool EndsInError(std::string_view text) {
  return text.ends_with(kErrorEnd) && text.rfind(kErrorStart) != std::string_view::npos;
}

}  // namespace

void AnswerReader::Tags::Read(std::string_view line) {
  for (const char letter : line) {
    if (quote != 0) {
      if (letter == quote) quote = 0;
    } else if (!in_tag) {
      in_tag = letter == '<';
      step = 1;
    } else if (letter == '"' || letter == '\'') {
      quote = letter;
    } else if (last == '<' && (letter == '/' || letter == '!' || letter == '?')) {
      step = letter == '/' ? -1 : 0;
    } else if (letter == '>') {
      in_tag = false;
      if (last != '/') depth = std::max(0, depth + step);
    }
    last = letter;
  }
}

void AnswerReader::Expect(int request, std::string_view document) {
  requests.push_back({request, document.find("<error") != std::string_view::npos});
}

void AnswerReader::Put(std::string_view line) {
  if (is_pending) {
    if (line == kAcknowledgement && Expects()) return Reply(false);
    if (Expects() && requests.front().asks_error && EndsInError(text))
      Reply(true);
    else if (has_standing || !Expects())
      Release();
    // Otherwise this is a value with a line feed in it, which goes on.
  }
  if (is_inside || is_pending)
    text += '\n';
  else
    tags = {};
  is_pending = false;
  text += line;
  tags.Read(line);
  is_inside = tags.Open() && !EndsInError(text);
  if (!is_inside) Finish();
}

void AnswerReader::PassRow() {
  if (!is_pending) return;
  if (Expects() && requests.front().asks_error && EndsInError(text))
    Reply(true);
  else
    Release();
}

void AnswerReader::Finish() {
  is_pending = true;
  if (!Expects())
    Release();
  else if (EndsInError(text) && !requests.front().asks_error)
    Reply(true);
}

void AnswerReader::Release() {
  if (has_standing && !text.empty())
    found.emplace_back(Change{std::move(text)});
  else
    found.emplace_back(ClientError("the head sent what nobody asked for: " + Quoted(text)));
  text.clear();
  is_pending = false;
}

void AnswerReader::Reply(bool failed) {
  found.emplace_back(NumberedAnswer{requests.front().number, {std::move(text), failed}});
  requests.pop_front();
  text.clear();
  is_pending = false;
}

std::optional<AnswerReader::Found> AnswerReader::Next() {
  if (found.empty()) return std::nullopt;
  std::optional<Found> first = std::move(found.front());
  found.pop_front();
  return first;
}
