#pragma once

#include <functional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

// Replaces `path` by what `write` writes: first the whole file is written to the disk under the
// name with ".new" at its end, then that takes the place of the old one in one step. Whatever
// fails, and whenever the power goes, there is the old file or the new one. Mode and owner stay
// those of the old file.
//
// Returns false after one line on standard output that says what failed, with its number in errno;
// the old file is still there then.
bool ReplaceFile(const std::string& path, const std::function<void(std::ostream&)>& write);

// One of several files that are replaced together.
struct Replacement {
  std::string path;
  std::function<void(std::ostream&)> write;
  bool done = false;
  int error_number = 0;  // of what failed
};

// The same for several files, each of which succeeds or fails by itself and becomes `done` or not.
// It costs one wait for the disk for each file, and one for each directory.
void ReplaceFiles(std::span<Replacement> replacements);

// The same for `path` as a symbolic link to `target`.
bool ReplaceLink(const std::string& path, const std::string& target);

// Appends `text` to a log, which it makes if there is none. All that was appended before is on the
// disk then, so that a power cut never costs more than the last text. False if it failed.
bool AppendToLog(const std::string& path, std::string_view text);

// Gives what is at `path`, whatever it is, a second name with ".bad" at its end, in place of what
// had that name, so that `path` can be replaced without loss. What can't have two names, such as a
// directory, is renamed. True also if there is nothing; false as above.
bool KeepBadFile(const std::string& path);

// The whole text of a file. Throws ErrnoError.
std::string ReadWholeFile(const std::string& path);
