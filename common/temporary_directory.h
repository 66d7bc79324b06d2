#pragma once

#include <string>

// A directory of its own for a test, gone at the end.
class TemporaryDirectory {
 public:
  // Throws ErrnoError.
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& Path() const { return path; }

  // The file of this name in it, and the directories on the way, with this text.
  void Write(const std::string& name, const std::string& text) const;
  // Its text; empty if there is no such file.
  std::string Read(const std::string& name) const;

 private:
  std::string path;
};
