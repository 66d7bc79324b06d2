#include "common/safe_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <map>

#include "common/errno_error.h"
#include "common/stream_file.h"

namespace {

void SyncToDisk(const StreamFile& file, const std::string& name) {
  if (fsync(file.GetFD()) != 0) throw ErrnoError("Unable to write: " + name);
}

// Takes over mode and owner of the file that is replaced, if there is one.
void TakeAfter(const StreamFile& file, const std::string& name, const std::string& old_path) {
  struct stat status = {};
  if (stat(old_path.c_str(), &status) != 0) return;
  if (fchmod(file.GetFD(), status.st_mode & 07777) != 0 ||
      fchown(file.GetFD(), status.st_uid, status.st_gid) != 0)
    throw ErrnoError("Unable to write: " + name);
}

void WriteWhole(StreamFile& file, const std::string& name,
                const std::function<void(std::ostream&)>& write) {
  std::ostream& out = file.GetOStream();
  write(out);
  out.flush();
  if (!out) throw ErrnoError("Unable to write: " + name);
  SyncToDisk(file, name);
  file.Close();
}

void Rename(const std::string& fresh, const std::string& path) {
  if (std::rename(fresh.c_str(), path.c_str()) != 0) throw ErrnoError("Unable to replace: " + path);
}

std::string DirectoryOf(const std::string& path) {
  const std::size_t end = path.rfind('/');
  if (end == std::string::npos) return ".";
  return path.substr(0, std::max<std::size_t>(end, 1));
}

// New names must be on the disk too.
void SyncDirectory(const std::string& directory) {
  SyncToDisk(StreamFile(directory, O_RDONLY | O_DIRECTORY), directory);
}

bool Refuse(const std::string& what, int error_number) {
  std::cout << what << "\n";
  errno = error_number;
  return false;
}

template <class Act>
bool Succeeds(Act act) {
  try {
    act();
    return true;
  } catch (const ErrnoError& error) {
    return Refuse(error.what(), error.ErrorNumber());
  }
}

// The name under which a file is written before it replaces the one at `path`.
std::string FreshName(const std::string& path) { return path + ".new"; }

// Writes the new file, whole and on the disk, under its fresh name.
bool WriteFresh(const Replacement& replacement) {
  const std::string fresh = FreshName(replacement.path);
  StreamFile file;
  try {
    file.Open(fresh, O_WRONLY | O_CREAT | O_TRUNC);
  } catch (const ErrnoError& error) {
    return Refuse("Unable to open: " + fresh, error.ErrorNumber());
  }
  return Succeeds([&] {
    TakeAfter(file, fresh, replacement.path);
    WriteWhole(file, fresh, replacement.write);
  });
}

}  // namespace

void ReplaceFiles(std::span<Replacement> replacements) {
  // A file is on the disk before it gets its name, so that the name never means half of it.
  const auto step = [&](auto act) {
    for (Replacement& replacement : replacements) {
      if (!replacement.done) continue;
      replacement.done = act(replacement);
      if (!replacement.done) replacement.error_number = errno;
    }
  };
  for (Replacement& replacement : replacements) replacement.done = true;
  step(WriteFresh);
  step([](const Replacement& replacement) {
    return Succeeds([&] { Rename(FreshName(replacement.path), replacement.path); });
  });
  std::map<std::string, bool> synced;
  step([&](const Replacement& replacement) {
    const std::string directory = DirectoryOf(replacement.path);
    const auto known = synced.find(directory);
    if (known != synced.end()) return known->second;
    return synced[directory] = Succeeds([&] { SyncDirectory(directory); });
  });
}

bool ReplaceFile(const std::string& path, const std::function<void(std::ostream&)>& write) {
  std::array<Replacement, 1> replacement = {{{path, write}}};
  ReplaceFiles(replacement);
  errno = replacement[0].error_number;
  return replacement[0].done;
}

bool ReplaceLink(const std::string& path, const std::string& target) {
  const std::string fresh = FreshName(path);
  return Succeeds([&] {
    unlink(fresh.c_str());
    if (symlink(target.c_str(), fresh.c_str()) != 0) throw ErrnoError("Unable to link: " + fresh);
    Rename(fresh, path);
    SyncDirectory(DirectoryOf(path));
  });
}

bool AppendToLog(const std::string& path, std::string_view text) {
  try {
    StreamFile log(path, O_WRONLY | O_CREAT | O_APPEND);
    // Mostly it has had time to get there by itself, and this costs nothing.
    SyncToDisk(log, path);
    const int written = log.Write(text.data(), static_cast<unsigned>(text.size()));
    return static_cast<std::size_t>(written) == text.size();
  } catch (const ErrnoError&) {
    return false;
  }
}

bool KeepBadFile(const std::string& path) {
  const std::string bad = path + ".bad";
  const std::string fresh = bad + ".new";
  return Succeeds([&] {
    unlink(fresh.c_str());
    const bool linked = link(path.c_str(), fresh.c_str()) == 0;
    if (!linked && errno == ENOENT) return;
    if (std::rename((linked ? fresh : path).c_str(), bad.c_str()) != 0)
      throw ErrnoError("Unable to keep: " + path);
    // The fresh name is still there if both were the same file already.
    unlink(fresh.c_str());
  });
}

std::string ReadWholeFile(const std::string& path) {
  StreamFile file(path, O_RDONLY);
  std::string text;
  for (std::string piece; file.ReadString(piece) > 0;) text += piece;
  return text;
}
