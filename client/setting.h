#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "client/console.h"

// The settings of a head one by one, with what a head reports about them.

struct Setting {
  enum class Kind { kInteger, kFloat, kBool, kChoice, kString, kForm };

  // Takes the text of a type, such as "{integer:5;0...10}".
  void ReadType(std::string_view type);
  // "integer", "float", "bool", "choice", "string", or the form itself.
  std::string KindName() const;
  bool IsNumber() const { return kind == Kind::kInteger || kind == Kind::kFloat; }
  // Whether `value` is what a head holds after it has taken `asked`: floats have six digits, and
  // times, dates and addresses may come without leading zeros.
  bool Means(std::string_view asked) const;

  std::string path;  // below the head's own element, such as "cfg/fan_duty"
  std::string value;
  Kind kind = Kind::kString;
  std::string form;           // of kForm, such as "YYYY-MM-DD"
  std::string default_value;  // empty where the head gives none
  std::string low;            // the range as the head prints it; empty where there is none
  std::string high;
  std::vector<std::string> choices;  // of kBool and kChoice
  std::string unit;
};

// A path as it stands in `Setting`: "/cfg/fan_duty/" and "nemra/tavo/cfg/fan_duty" are
// "cfg/fan_duty". Throws ClientError for any other text.
std::string SettingPath(std::string_view text);

// The settings at a path and below it, in the head's order; all for an empty path. Throws
// ClientError if there are none.
std::vector<Setting> SettingsAt(ConsoleClient& head, std::string_view path);

// The values at a path of a document, without what only a head can report about them.
std::vector<Setting> ValuesIn(const Element& element, const std::string& path);

// A value to set, and what became of it.
struct Assignment {
  std::string path;
  std::string asked;
  Setting setting;      // its `value` is what the head holds afterwards
  std::string refusal;  // what the head said; it may have taken the value all the same

  bool IsDone() const { return refusal.empty() && setting.Means(asked); }
};

// The request that sets the values together and reads each back. `known` must hold each path.
// Throws ClientError for what can't be asked.
std::string AssignmentRequest(const std::vector<Setting>& known,
                              std::vector<Assignment>& assignments);
// Fills in what became of them, by the answer to that request. Throws Refused when that came to
// nothing.
void ReadOutcome(const Answer& answer, std::vector<Assignment>& assignments);

// Sets values by one request, so that they come into force together, and reads each back in it.
// `known` must hold each path. Throws Refused when the request failed as a whole.
std::vector<Assignment> Assign(ConsoleClient& head, const std::vector<Setting>& known,
                               std::vector<Assignment> assignments);
