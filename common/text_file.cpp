#include "common/text_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "common/errno_error.h"

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void MakeDirectoriesTo(const std::string& path) {
  // The standard library is no use here: where its times have 32 bits, it fails on what was written
  // after the year 2038.
  for (std::size_t slash = 0; (slash = path.find('/', slash + 1)) != std::string::npos;) {
    const std::string directory = path.substr(0, slash);
    if (mkdir(directory.c_str(), 0777) != 0 && errno != EEXIST)
      throw ErrnoError("unable to make " + directory);
  }
}

void WriteFile(const std::string& path, std::string_view text) {
  MakeDirectoriesTo(path);
  std::ofstream file(path, std::ios::binary);
  if (!(file << text << std::flush)) throw std::runtime_error("unable to write " + path);
}
