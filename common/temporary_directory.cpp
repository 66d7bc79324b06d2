#include "common/temporary_directory.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "common/errno_error.h"

TemporaryDirectory::TemporaryDirectory()
    : path(std::filesystem::temp_directory_path() / "lumet-test-XXXXXX") {
  if (mkdtemp(path.data()) == nullptr) throw ErrnoError("unable to make a directory");
}

TemporaryDirectory::~TemporaryDirectory() { std::filesystem::remove_all(path); }

void TemporaryDirectory::Write(const std::string& name, const std::string& text) const {
  const std::filesystem::path file = path + "/" + name;
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << text;
}

std::string TemporaryDirectory::Read(const std::string& name) const {
  std::ostringstream text;
  text << std::ifstream(path + "/" + name, std::ios::binary).rdbuf();
  return text.str();
}
