#include "tools/reference.h"

#include <cctype>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "client/deadline.h"
#include "client/json_text.h"
#include "tools/terminal.h"

std::string AsFileName(const std::string& text) {
  std::string name = text;
  for (char& letter : name)
    if (std::isalnum(static_cast<unsigned char>(letter)) == 0 && letter != '-') letter = '_';
  return name;
}

std::string ReferencePath(const std::string& device) {
  const char* const state = std::getenv("XDG_STATE_HOME");
  const char* const home = std::getenv("HOME");
  std::string directory;
  if (state != nullptr && *state == '/')
    directory = state;
  else if (home != nullptr && *home != '\0')
    directory = std::string(home) + "/.local/state";
  else
    throw FileError(
        "there is no home directory to keep a reference in; name a file with --reference");
  return directory + "/lumet/reference-" + AsFileName(device) + ".json";
}

void KeepReference(const std::string& path, const DarkReference& reference) {
  const std::filesystem::path directory = std::filesystem::path(path).parent_path();
  std::error_code error;
  if (!directory.empty()) std::filesystem::create_directories(directory, error);
  WriteOutput(path, "{\"DEVICE\":" + JsonText(reference.device) + ",\"TAKEN\":" +
                        JsonText(reference.taken) + ",\"FO\":" + NumberText(reference.Fo, 9) +
                        ",\"FM\":" + NumberText(reference.Fm, 9) +
                        ",\"MEASURING_LIGHT\":" + JsonText(reference.measuring_light) + "}\n");
}

std::optional<DarkReference> ReadReference(const std::string& path) {
  std::ifstream file(path);
  if (!file) return std::nullopt;
  const std::string text(std::istreambuf_iterator<char>(file), {});
  try {
    const Json::Value members = ReadJson(text, "reference");
    const double Fo = members.isMember("FO") ? members["FO"].asDouble() : 0;
    const double Fm = members.isMember("FM") ? members["FM"].asDouble() : 0;
    if (!(Fo > 0) || !(Fm > 0)) throw ClientError("it holds no FO and FM above 0");
    return DarkReference{Fo, Fm, members["DEVICE"].asString(), members["TAKEN"].asString(),
                         members["MEASURING_LIGHT"].asString()};
  } catch (const std::exception& error) {
    throw FileError(path + " is not a reference: " + error.what());
  }
}
