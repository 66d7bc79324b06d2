#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "client/settings.h"

// What a standing query reports of a change.
struct Change {
  std::string text;  // a document, as ReadSettings takes it
};

// The answer to the request with this number.
struct NumberedAnswer {
  int request = 0;
  Answer answer;
};

// Finds the answers in what a head sends besides rows.
//
// An answer may have many lines, since values and messages may hold line feeds, and may be empty.
// The line after it is the acknowledgement, a document that a request can just as well ask for. A
// request that fails is answered by what it had come to so far and the document of the `error`
// element, without an acknowledgement. What standing queries report looks like an answer, and may
// come before one, but never within. So this counts elements: a line feed ends a text where none is
// open.
class AnswerReader {
 public:
  // The request that was sent now; all are answered in their order.
  void Expect(int request, std::string_view document);
  // A standing query was sent now.
  void ExpectChanges() { has_standing = true; }
  bool Expects() const { return !requests.empty(); }

  // Whether the next line belongs to a text that has begun, whatever it looks like.
  bool IsInside() const { return is_inside; }
  // Takes a line that is not a row.
  void Put(std::string_view line);
  // Call it for each row that comes between lines.
  void PassRow();

  // Takes out what has been completed; an error for a text that nobody has asked for.
  using Found = std::variant<Change, NumberedAnswer, ClientError>;
  std::optional<Found> Next();

 private:
  struct Request {
    int number;
    bool asks_error;  // its answer may be the document that reports a failure
  };
  // Follows the tags of a text.
  class Tags {
   public:
    void Read(std::string_view line);
    bool Open() const { return depth > 0 || in_tag; }

   private:
    int depth = 0;
    bool in_tag = false;
    int step = 0;  // what the tag does to the depth
    char quote = 0;
    char last = 0;
  };

  void Finish();
  void Release();
  void Reply(bool failed);

  std::deque<Request> requests;
  bool has_standing = false;
  std::string text;         // being read, or complete and not known to be an answer
  bool is_inside = false;   // an element of `text` is open
  bool is_pending = false;  // `text` is complete; the next line shows what it is
  Tags tags;
  std::deque<Found> found;
};
