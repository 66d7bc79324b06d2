#pragma once

#include <string>
#include <string_view>

// Whole files as texts, for tools and tests. The daemon's own files go through safe_file.h.

// Empty if there is no such file.
std::string ReadFile(const std::string& path);
// Makes the directories on the way to the file `path`. Throws ErrnoError.
void MakeDirectoriesTo(const std::string& path);
// Makes the directories on the way. Throws std::runtime_error, "unable to write " and the path.
void WriteFile(const std::string& path, std::string_view text);
