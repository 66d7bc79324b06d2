#pragma once

#include <string>

#include "common/text_file.h"

// A directory for one test alone, which is removed at the end.
class TemporaryDirectory {
 public:
  // Throws ErrnoError.
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& Path() const { return path; }

  // A file in it by its name, as text_file.h says.
  void Write(const std::string& name, const std::string& text) const {
    WriteFile(path + "/" + name, text);
  }
  std::string Read(const std::string& name) const { return ReadFile(path + "/" + name); }

 private:
  std::string path;
};
