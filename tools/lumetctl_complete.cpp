#include "tools/lumetctl_complete.h"

#include <algorithm>

namespace {

// What the words before the last say.
struct Line {
  const CommandWords* command = nullptr;         // null before there is one
  const CommandWords::Option* option = nullptr;  // that the last word is the value of
  std::vector<std::string> arguments;            // of the command, without options
  Ctl ctl;
};

const CommandWords::Option* FindOption(const CommandWords* command, const std::string& word) {
  if (command == nullptr) return nullptr;
  for (const CommandWords::Option& option : command->options)
    if (std::find(option.names.begin(), option.names.end(), word) != option.names.end())
      return &option;
  return nullptr;
}

Line Read(const std::vector<CommandWords>& commands, const std::vector<std::string>& words) {
  Line line;
  line.ctl.timeout = std::chrono::seconds(1);
  for (std::size_t i = 0; i + 1 < words.size(); ++i) {
    const std::string& word = words[i];
    if (line.option != nullptr) {
      if (line.option->names.front() == "--head")
        line.ctl.head = HostPort::Parse(word, LineClient::kConsolePort);
      line.option = nullptr;
      continue;
    }
    if (word.starts_with("--head=")) {
      line.ctl.head = HostPort::Parse(word.substr(7), LineClient::kConsolePort);
    } else if (word.starts_with('-') && word != "-") {
      const CommandWords::Option* option = FindOption(line.command, word);
      if (option == nullptr) option = FindOption(&commands.front(), word);
      if (option != nullptr && option->takes_value) line.option = option;
    } else if (line.command == nullptr) {
      const auto found = std::find_if(commands.begin() + 1, commands.end(),
                                      [&](const CommandWords& each) { return each.name == word; });
      if (found == commands.end()) throw std::invalid_argument(word);
      line.command = &*found;
    } else {
      line.arguments.push_back(word);
    }
  }
  return line;
}

// The settings whose paths begin with `start`, up to the next slash. A setting ends with `end`.
std::vector<std::string> Paths(const std::vector<Setting>& settings, const std::string& start,
                               const std::string& end) {
  std::vector<std::string> paths;
  for (const Setting& setting : settings) {
    if (!setting.path.starts_with(start)) continue;
    const std::size_t slash = setting.path.find('/', start.size());
    std::string path =
        slash == std::string::npos ? setting.path + end : setting.path.substr(0, slash + 1);
    if (std::find(paths.begin(), paths.end(), path) == paths.end())
      paths.push_back(std::move(path));
  }
  return paths;
}

std::vector<std::string> Assignments(const std::vector<Setting>& settings,
                                     const std::string& word) {
  const std::size_t equals = word.find('=');
  if (equals == std::string::npos) return Paths(settings, word, "=");
  std::vector<std::string> assignments;
  for (const Setting& setting : settings) {
    if (setting.path != word.substr(0, equals)) continue;
    for (const std::string& choice : setting.choices)
      assignments.push_back(setting.path + "=" + choice);
    if (setting.choices.empty()) assignments.push_back(setting.path + "=" + setting.value);
  }
  return assignments;
}

std::vector<std::string> ColumnLists(const Ctl& ctl, const std::string& word) {
  ConsoleClient head = ctl.Connect();
  const auto columns = head.ColumnsOf("DATA");
  std::vector<std::string> lists;
  const std::string before = word.substr(0, word.rfind(',') + 1);
  if (columns)
    for (const std::string& name : columns->names) lists.push_back(before + name);
  return lists;
}

std::vector<std::string> Options(const std::vector<const CommandWords*>& commands) {
  std::vector<std::string> names;
  for (const CommandWords* command : commands)
    if (command != nullptr)
      for (const CommandWords::Option& option : command->options)
        for (const std::string& name : option.names)
          if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  return names;
}

std::vector<std::string> Arguments(const Line& line, const std::string& word) {
  const std::string& command = line.command->name;
  if (command == "flash") return {"rect", "mpf", "induction", "dark"};
  if (command == "zero") return {"dc", "pc"};
  const bool takes_paths = command == "get" || command == "watch" || command == "tree" ||
                           (command == "save" && !line.arguments.empty());
  if (!takes_paths && command != "set") return {};
  ConsoleClient head = line.ctl.Connect();
  const std::vector<Setting> settings = SettingsAt(head, "");
  return command == "set" ? Assignments(settings, word) : Paths(settings, word, "");
}

std::vector<std::string> All(const std::vector<CommandWords>& commands,
                             const std::vector<std::string>& words) {
  const std::string& word = words.back();
  const Line line = Read(commands, words);
  if (line.option != nullptr)
    return line.option->names.front() == "--columns" ? ColumnLists(line.ctl, word)
                                                     : std::vector<std::string>();
  if (word.starts_with('-')) return Options({line.command, &commands.front()});
  if (line.command != nullptr) return Arguments(line, word);
  std::vector<std::string> names;
  for (auto command = commands.begin() + 1; command != commands.end(); ++command)
    names.push_back(command->name);
  return names;
}

}  // namespace

std::vector<std::string> Candidates(const std::vector<CommandWords>& commands,
                                    const std::vector<std::string>& words) {
  if (words.empty()) return Candidates(commands, {""});
  std::vector<std::string> candidates;
  try {
    candidates = All(commands, words);
  } catch (const std::exception&) {
    // Nobody wants to read an error in the middle of a line that is being typed.
  }
  std::erase_if(candidates,
                [&](const std::string& each) { return !each.starts_with(words.back()); });
  return candidates;
}
