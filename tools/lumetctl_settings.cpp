// lumetctl's commands for settings.

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>

#include "tools/lumetctl.h"

namespace {

bool IsAtOrBelow(const std::string& path, const std::string& branch) {
  return branch.empty() || path == branch || path.starts_with(branch + "/");
}

std::string LastTag(const std::string& path) { return path.substr(path.rfind('/') + 1); }

std::string LowerCase(std::string text) {
  for (char& letter : text)
    letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  return text;
}

// How many letters must be put in, left out or replaced to make one text of the other.
std::size_t Distance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t above = row[j];
      row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

// The paths that somebody who wrote `path` may have meant: those with the same name elsewhere, or
// else with a letter or two different.
std::string LikeNamed(const std::vector<Setting>& all, const std::string& path) {
  constexpr std::size_t kMost = 4;
  const std::string tag = LowerCase(LastTag(path));
  for (std::size_t distance = 0; distance <= 2 && distance < tag.size(); ++distance) {
    std::string found;
    std::size_t count = 0;
    for (const Setting& setting : all) {
      if (Distance(LowerCase(LastTag(setting.path)), tag) != distance || ++count > kMost) continue;
      found += (found.empty() ? "" : ", ") + setting.path;
    }
    if (count > 0) return "; there is " + found + (count > kMost ? ", …" : "");
  }
  return "";
}

[[noreturn]] void FailUnknown(const std::vector<Setting>& all, const std::string& path) {
  throw ClientError("the head has no setting " + Quoted(path) + LikeNamed(all, path));
}

std::string JsonValue(const Setting& setting) {
  if (setting.IsNumber()) return JsonNumber(setting.value);
  if (setting.kind == Setting::Kind::kBool) return setting.value;
  return JsonText(setting.value);
}

// One member for each path; an array where a list holds several of it.
std::string JsonObject(const std::vector<Setting>& settings) {
  std::map<std::string, std::vector<std::string>> values;
  for (const Setting& setting : settings) values[setting.path].push_back(JsonValue(setting));
  std::string text;
  for (const Setting& setting : settings) {
    const auto found = values.find(setting.path);
    if (found == values.end()) continue;
    text += (text.empty() ? "{" : ",\n ") + JsonText(setting.path) + ":";
    if (found->second.size() == 1) {
      text += found->second.front();
    } else {
      std::string array;
      for (const std::string& value : found->second) array += (array.empty() ? "" : ",") + value;
      text += "[" + array + "]";
    }
    values.erase(found);
  }
  return (text.empty() ? "{" : text) + "}\n";
}

// "integer 0...100", "off|auto|percent".
std::string TypeText(const Setting& setting) {
  if (!setting.choices.empty()) {
    std::string text;
    for (const std::string& choice : setting.choices) text += (text.empty() ? "" : "|") + choice;
    return text;
  }
  return setting.KindName() + (setting.low.empty() ? "" : " " + setting.low + "..." + setting.high);
}

std::string JsonOfType(const Setting& setting) {
  std::string text = "{\"path\":" + JsonText(setting.path) + ",\"value\":" + JsonValue(setting) +
                     ",\"type\":" + JsonText(setting.KindName());
  if (!setting.low.empty()) text += ",\"min\":" + setting.low + ",\"max\":" + setting.high;
  if (!setting.default_value.empty())
    text += ",\"default\":" + (setting.IsNumber() ? JsonNumber(setting.default_value)
                                                  : JsonText(setting.default_value));
  if (setting.kind == Setting::Kind::kChoice) {
    std::string choices;
    for (const std::string& choice : setting.choices)
      choices += (choices.empty() ? "" : ",") + JsonText(choice);
    text += ",\"choices\":[" + choices + "]";
  }
  if (!setting.unit.empty()) text += ",\"unit\":" + JsonText(setting.unit);
  return text + "}";
}

// What became of an assignment that is not done, in the head's own words where it had any.
std::string Complaint(const Assignment& assignment) {
  const Setting& setting = assignment.setting;
  std::string text = assignment.path + ": ";
  if (!assignment.refusal.empty()) {
    text += "the head refused: " + assignment.refusal;
    return text + (setting.Means(assignment.asked) ? "; it took the value all the same"
                                                   : "; it holds " + Quoted(setting.value));
  }
  text += "asked for " + Quoted(assignment.asked) + ", the head holds " + Quoted(setting.value);
  const bool is_text = setting.kind == Setting::Kind::kString;
  return is_text ? text : text + "; it takes " + TypeText(setting);
}

// Reports all that went wrong, and ends the command if anything did.
void Check(const std::vector<Assignment>& outcome) {
  std::size_t wrong = 0;
  for (const Assignment& assignment : outcome) {
    if (assignment.IsDone()) continue;
    Warn(Complaint(assignment));
    ++wrong;
  }
  if (wrong > 0)
    throw Failed(std::to_string(wrong) + " of " + std::to_string(outcome.size()) +
                 " settings did not become what was asked for");
}

std::string Present() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto whole = std::chrono::system_clock::from_time_t(seconds);
  const auto thousandths = std::chrono::duration_cast<std::chrono::milliseconds>(now - whole);
  std::tm parts = {};
  localtime_r(&seconds, &parts);
  char date[32];
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &parts);
  char text[48];
  std::snprintf(text, sizeof text, "%s.%03d", date, static_cast<int>(thousandths.count()));
  return text;
}

// The settings that a file may hold: the others are the head's own to set, or orders.
bool IsKept(const std::string& path) {
  return IsAtOrBelow(path, "cfg") || IsAtOrBelow(path, "cal") || IsAtOrBelow(path, "factory");
}

// A document as heads keep it in their files.
std::string DocumentOf(const std::vector<Setting>& settings) {
  std::string text = "<nemra>\n\t<tavo>\n";
  std::vector<std::string> open;
  const auto indent = [&] { return std::string(open.size() + 2, '\t'); };
  const auto close_to = [&](std::size_t depth) {
    while (open.size() > depth) {
      const std::string tag = open.back();
      open.pop_back();
      text += indent() + "</" + tag + ">\n";
    }
  };
  for (const Setting& setting : settings) {
    std::vector<std::string> tags;
    std::string rest = setting.path;
    for (std::size_t slash = 0; (slash = rest.find('/')) != std::string::npos;
         rest = rest.substr(slash + 1))
      tags.push_back(rest.substr(0, slash));
    const auto same = std::mismatch(open.begin(), open.end(), tags.begin(), tags.end());
    close_to(static_cast<std::size_t>(same.first - open.begin()));
    while (open.size() < tags.size()) {
      const std::string& tag = tags[open.size()];
      text += indent() + "<" + tag + ">\n";
      open.push_back(tag);
    }
    text += indent() + NestedElements(rest, EscapedValue(setting.value)) + "\n";
  }
  close_to(0);
  return text + "\t</tavo>\n</nemra>\n";
}

std::vector<Setting> SettingsIn(const std::string& path) {
  std::ifstream file;
  if (path != "-") {
    file.open(path);
    if (!file) throw FileError("unable to read " + path);
  }
  std::istream& in = path == "-" ? std::cin : file;
  const std::string text(std::istreambuf_iterator<char>(in), {});
  try {
    return ValuesIn(ReadSettings(text).At("tavo"), "");
  } catch (const ClientError& error) {
    throw FileError(path + " holds no settings: " + error.what());
  }
}

}  // namespace

std::vector<Setting> Select(const std::vector<Setting>& all,
                            const std::vector<std::string>& paths) {
  if (paths.empty()) return all;
  std::vector<Setting> selected;
  for (const std::string& text : paths) {
    const std::string path = SettingPath(text);
    const std::size_t before = selected.size();
    for (const Setting& setting : all)
      if (IsAtOrBelow(setting.path, path)) selected.push_back(setting);
    // The list of zeros may be empty.
    if (selected.size() == before && path != "history") FailUnknown(all, path);
  }
  return selected;
}

void GetSettings(const Ctl& ctl, const std::vector<std::string>& paths) {
  ConsoleClient head = ctl.Connect();
  const std::vector<Setting> settings = Select(SettingsAt(head, ""), paths);
  if (ctl.json) {
    std::cout << JsonObject(settings);
  } else if (paths.size() == 1 && settings.size() == 1 &&
             settings.front().path == SettingPath(paths.front())) {
    std::cout << settings.front().value << "\n";
  } else {
    for (const Setting& setting : settings)
      std::cout << setting.path << "=" << setting.value << "\n";
  }
  Flush();
}

void SetSettings(const Ctl& ctl, const std::vector<std::string>& assignments) {
  std::vector<Assignment> asked;
  for (const std::string& text : assignments) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos) throw ClientError("this is not PATH=VALUE: " + Quoted(text));
    asked.push_back({SettingPath(text.substr(0, equals)), text.substr(equals + 1), {}, ""});
  }
  ConsoleClient head = ctl.Connect();
  // A mistyped tag is found before anything is set.
  const std::vector<Setting> all = SettingsAt(head, "");
  for (const Assignment& each : asked) {
    const std::vector<Setting> found = Select(all, {each.path});
    if (found.size() != 1 || found.front().path != each.path)
      throw ClientError(Quoted(each.path) + " is not a setting but holds " +
                        std::to_string(found.size()) + " of them");
  }
  const std::vector<Assignment> outcome = Assign(head, all, asked);
  if (ctl.json) {
    std::vector<Setting> held;
    for (const Assignment& each : outcome) held.push_back(each.setting);
    std::cout << JsonObject(held);
    Flush();
  }
  Check(outcome);
}

void PrintTree(const Ctl& ctl, const std::string& path) {
  ConsoleClient head = ctl.Connect();
  const std::vector<std::string> paths =
      path.empty() ? std::vector<std::string>() : std::vector<std::string>{path};
  const std::vector<Setting> settings = Select(SettingsAt(head, ""), paths);
  if (ctl.json) {
    std::string text;
    for (const Setting& setting : settings)
      text += (text.empty() ? "[" : ",\n ") + JsonOfType(setting);
    std::cout << (text.empty() ? "[" : text) << "]\n";
    return Flush();
  }
  Table table;
  for (const Setting& setting : settings) {
    const std::string other = setting.default_value.empty() || setting.Means(setting.default_value)
                                  ? ""
                                  : "default " + setting.default_value;
    table.Add({setting.path, setting.value, setting.unit, TypeText(setting), other});
  }
  std::cout << table.Text();
  Flush();
}

void WatchSettings(const Ctl& ctl, const std::vector<std::string>& paths, Timeout duration) {
  ConsoleClient head = ctl.Connect();
  const std::vector<Setting> all = SettingsAt(head, "");
  Select(all, paths);
  std::map<std::string, Setting> known;
  for (const Setting& setting : all) known.emplace(setting.path, setting);
  std::vector<std::string> watched;
  for (const std::string& path : paths) watched.push_back(SettingPath(path));
  if (paths.empty()) watched.emplace_back();
  // What is in a watched branch would be printed twice.
  for (const std::string& path : watched)
    if (std::none_of(watched.begin(), watched.end(), [&](const std::string& other) {
          return other != path && IsAtOrBelow(path, other);
        }))
      head.Watch(path);
  Listen(head, Deadline(duration), [&](const ConsoleMessage& message) {
    const auto* change = std::get_if<Change>(&message);
    if (change == nullptr) return true;
    const std::string now = Present();
    for (Setting& each : ValuesIn(ReadSettings(change->text).At("tavo"), "")) {
      const auto type = known.find(each.path);
      Setting setting = type == known.end() ? each : type->second;
      setting.value = each.value;
      if (ctl.json)
        std::cout << "{\"time\":" << JsonText(now) << ",\"path\":" << JsonText(setting.path)
                  << ",\"value\":" << JsonValue(setting) << "}\n";
      else
        std::cout << now << " " << setting.path << "=" << setting.value << "\n";
    }
    Flush();
    return true;
  });
}

void SaveSettings(const Ctl& ctl, const std::string& file, const std::vector<std::string>& paths) {
  ConsoleClient head = ctl.Connect();
  std::vector<Setting> settings =
      Select(SettingsAt(head, ""), paths.empty() ? std::vector<std::string>{"cfg"} : paths);
  if (paths.empty())
    // They belong to the machine.
    std::erase_if(settings, [](const Setting& each) {
      return IsAtOrBelow(each.path, "cfg/clock") || IsAtOrBelow(each.path, "cfg/network");
    });
  for (const Setting& setting : settings)
    if (!IsKept(setting.path))
      throw ClientError("only what is below cfg, cal and factory can be restored, not " +
                        setting.path);
  WriteOutput(file, DocumentOf(settings));
}

void RestoreSettings(const Ctl& ctl, const std::string& file, bool dry_run) {
  const std::vector<Setting> wanted = SettingsIn(file);
  ConsoleClient head = ctl.Connect();
  const std::vector<Setting> all = SettingsAt(head, "");
  std::vector<Assignment> differing;
  std::string json;
  Table table;
  for (const Setting& each : wanted) {
    if (!IsKept(each.path))
      throw ClientError("only what is below cfg, cal and factory can be restored, not " +
                        each.path);
    const auto present = std::find_if(all.begin(), all.end(),
                                      [&](const Setting& one) { return one.path == each.path; });
    if (present == all.end()) FailUnknown(all, each.path);
    if (present->Means(each.value)) continue;
    differing.push_back({each.path, each.value, {}, ""});
    table.Add({each.path, present->value, "→ " + each.value});
    Setting target = *present;
    target.value = each.value;
    json += (json.empty() ? "" : ",\n ") + ("{\"path\":" + JsonText(each.path)) +
            ",\"from\":" + JsonValue(*present) + ",\"to\":" + JsonValue(target) + "}";
  }
  if (ctl.json)
    std::cout << "[" << json << "]\n";
  else if (differing.empty())
    std::cout << "The head holds all of it already\n";
  else
    std::cout << table.Text();
  Flush();
  if (!dry_run && !differing.empty()) Check(Assign(head, all, differing));
}
