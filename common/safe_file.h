#pragma once

#include <functional>
#include <ostream>
#include <string>

// Replaces `path` by what `write` writes: first whole, under the name with ".new" behind it, and on
// the disk, then in one step. Whatever fails, and whenever the power goes, there is the old file or
// the new one. Mode and owner stay those of the old file.
//
// False after one line on standard output that says what failed; the old file stands then.
bool ReplaceFile(const std::string& path, const std::function<void(std::ostream&)>& write);
