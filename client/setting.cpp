#include "client/setting.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace {

std::vector<std::string> Split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  while (true) {
    const std::size_t at = text.find(separator);
    parts.emplace_back(text.substr(0, at));
    if (at == std::string_view::npos) return parts;
    text.remove_prefix(at + 1);
  }
}

std::string_view Trimmed(std::string_view text) {
  constexpr std::string_view kSpace = " \t\r\n";
  const std::size_t first = text.find_first_not_of(kSpace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kSpace) - first + 1);
}

// A number as a head prints it; the text itself if it is not a number.
std::string PrintedFloat(const std::string& text) {
  char* end = nullptr;
  const float number = std::strtof(text.c_str(), &end);
  if (text.empty() || *end != '\0') return text;
  char printed[32];
  std::snprintf(printed, sizeof printed, "%g", static_cast<double>(number));
  return printed;
}

// The text without leading zeros in its numbers.
std::string WithoutLeadingZeros(std::string_view text) {
  std::string result;
  const auto is_digit = [&](std::size_t i) {
    return i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])) != 0;
  };
  bool in_number = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool drops = text[i] == '0' && !in_number && is_digit(i + 1);
    if (!drops) in_number = is_digit(i);
    if (!drops) result += text[i];
  }
  return result;
}

std::string Below(const std::string& path, const std::string& name) {
  return path.empty() ? name : path + "/" + name;
}

// Collects the leaves of the values, with their types from the element at the same place.
void Collect(const Element& values, const Element* types, const std::string& path,
             std::vector<Setting>& settings) {
  for (std::size_t i = 0; i < values.children.size(); ++i) {
    const Element& value = values.children[i];
    const Element* type =
        types != nullptr && i < types->children.size() ? &types->children[i] : nullptr;
    const std::string place = Below(path, value.name);
    if (!value.children.empty()) {
      Collect(value, type, place, settings);
      continue;
    }
    // An empty list has neither children nor a type.
    if (types != nullptr && (type == nullptr || type->text.empty())) continue;
    Setting& setting = settings.emplace_back();
    setting.path = place;
    setting.value = value.text;
    if (type == nullptr) continue;
    setting.ReadType(type->text);
    for (const auto& [name, text] : type->attributes)
      if (name == "units" && text.starts_with("{string:") && text.ends_with('}'))
        setting.unit = text.substr(8, text.size() - 9);
  }
}

Element Ask(ConsoleClient& head, std::string_view path, std::string_view query) {
  const Answer answer = head.Request(SettingsDocument(path, query));
  answer.Check();
  const std::vector<Element> elements = answer.Elements();
  return elements.empty() ? Element() : elements.front();
}

}  // namespace

void Setting::ReadType(std::string_view type) {
  if (type.starts_with('{') && type.ends_with('}')) type = type.substr(1, type.size() - 2);
  const std::size_t colon = type.find(':');
  const std::string_view name = type.substr(0, colon);
  const std::string_view rest =
      colon == std::string_view::npos ? std::string_view() : type.substr(colon + 1);
  if (name == "string") {
    default_value = rest;
  } else if (name == "integer" || name == "float" || name == "double") {
    kind = name == "integer" ? Kind::kInteger : Kind::kFloat;
    const std::size_t semicolon = rest.find(';');
    default_value = rest.substr(0, semicolon);
    const std::size_t dots = rest.find("...");
    if (semicolon == std::string_view::npos || dots == std::string_view::npos) return;
    low = rest.substr(semicolon + 1, dots - semicolon - 1);
    high = rest.substr(dots + 3);
  } else if (type.starts_with("int.") || type.starts_with("YYYY") || type.starts_with("HH:")) {
    kind = Kind::kForm;
    form = type;
  } else {
    kind = type == "true|false" ? Kind::kBool : Kind::kChoice;
    choices = Split(type, '|');
  }
}

std::string Setting::KindName() const {
  switch (kind) {
    case Kind::kInteger:
      return "integer";
    case Kind::kFloat:
      return "float";
    case Kind::kBool:
      return "bool";
    case Kind::kChoice:
      return "choice";
    case Kind::kString:
      return "string";
    case Kind::kForm:
      return form;
  }
  return "";
}

bool Setting::Means(std::string_view asked) const {
  const std::string wanted(Trimmed(asked));
  if (wanted == value) return true;
  if (kind == Kind::kFloat) return PrintedFloat(wanted) == value;
  if (kind == Kind::kInteger) {
    const std::size_t sign = wanted.starts_with('+') ? 1 : 0;
    return WithoutLeadingZeros(std::string_view(wanted).substr(sign)) == value;
  }
  // In a head's types, times and dates are strings.
  const bool is_in_numbers =
      !value.empty() && value.find_first_not_of("0123456789.:- ") == std::string::npos;
  return is_in_numbers && WithoutLeadingZeros(wanted) == WithoutLeadingZeros(value) &&
         value.find_first_of(".:-") != std::string::npos;
}

std::string SettingPath(std::string_view text) {
  std::string_view path = text;
  while (path.starts_with('/')) path.remove_prefix(1);
  while (path.ends_with('/')) path.remove_suffix(1);
  for (const std::string_view root : {"nemra", "tavo"}) {
    if (path == root) path = {};
    if (path.starts_with(root) && path[root.size()] == '/') path.remove_prefix(root.size() + 1);
  }
  const bool is_of_tags = std::all_of(path.begin(), path.end(), [](unsigned char letter) {
    return std::isalnum(letter) != 0 || letter == '_' || letter == '-' || letter == '/';
  });
  if (!is_of_tags || path.find("//") != std::string_view::npos)
    throw ClientError("this is no path of a setting: " + Quoted(text));
  return std::string(path);
}

std::vector<Setting> ValuesIn(const Element& element, const std::string& path) {
  std::vector<Setting> settings;
  Collect(element, nullptr, path, settings);
  return settings;
}

std::vector<Setting> SettingsAt(ConsoleClient& head, std::string_view path) {
  const Element values = Ask(head, path, "&query;");
  const Element types = Ask(head, path, "&query_doctype;");
  std::vector<Setting> settings;
  // From the root, so that the setting itself is a child too.
  if (values.Find("tavo") != nullptr && types.Find("tavo") != nullptr)
    Collect(values.At("tavo"), &types.At("tavo"), "", settings);
  const bool is_there = path.empty() || values.Find("tavo/" + std::string(path)) != nullptr;
  if (!is_there) throw ClientError("the head has no setting " + Quoted(path));
  return settings;
}

std::string AssignmentRequest(const std::vector<Setting>& known,
                              std::vector<Assignment>& assignments) {
  std::string content;
  for (Assignment& assignment : assignments) {
    if (assignment.asked.find('\n') != std::string::npos)
      throw ClientError("a value can't hold a line feed: " + Quoted(assignment.asked));
    // The head would answer it in the middle of the rest, however it is escaped.
    if (assignment.asked.find("&query") != std::string::npos)
      throw ClientError("a value can't hold a query: " + Quoted(assignment.asked));
    const auto setting = std::find_if(known.begin(), known.end(), [&](const Setting& each) {
      return each.path == assignment.path;
    });
    if (setting == known.end())
      throw ClientError("the head has no setting " + Quoted(assignment.path));
    assignment.setting = *setting;
    content += NestedElements(assignment.path, EscapedValue(assignment.asked)) +
               NestedElements(assignment.path, "&query;");
  }
  return SettingsDocument("", content);
}

void ReadOutcome(const Answer& answer, std::vector<Assignment>& assignments) {
  if (answer.failed) answer.Check();
  std::size_t next = 0;
  for (const Element& element : answer.Elements()) {
    if (next == assignments.size()) break;
    Assignment& assignment = assignments[next];
    if (element.name == "nemra") {
      assignment.setting.value = element.At("tavo/" + assignment.path).text;
      ++next;
      continue;
    }
    if (!assignment.refusal.empty()) assignment.refusal += "; ";
    assignment.refusal += Trimmed(element.text);
  }
  if (next < assignments.size())
    throw ClientError("the head did not tell what it holds of " + Quoted(assignments[next].path) +
                      " now");
}

std::vector<Assignment> Assign(ConsoleClient& head, const std::vector<Setting>& known,
                               std::vector<Assignment> assignments) {
  const std::string request = AssignmentRequest(known, assignments);
  ReadOutcome(head.Request(request), assignments);
  return assignments;
}
