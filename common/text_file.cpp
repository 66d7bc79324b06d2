#include "common/text_file.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void WriteFile(const std::string& path, std::string_view text) {
  std::filesystem::create_directories(std::filesystem::absolute(path).parent_path());
  std::ofstream file(path, std::ios::binary);
  if (!(file << text << std::flush)) throw std::runtime_error("unable to write " + path);
}
