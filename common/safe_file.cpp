#include "common/safe_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <iostream>

#include "common/errno_error.h"
#include "common/stream_file.h"

namespace {

void SyncToDisk(const StreamFile& file, const std::string& name) {
  if (fsync(file.GetFD()) != 0) throw ErrnoError("Unable to write: " + name);
}

// Mode and owner of the file that is replaced, if there is one, go on.
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

void MoveIntoPlace(const std::string& fresh, const std::string& path) {
  sync();
  if (std::rename(fresh.c_str(), path.c_str()) != 0) throw ErrnoError("Unable to replace: " + path);
  // The new name must be on the disk too.
  const std::string directory = std::filesystem::path(path).parent_path();
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

}  // namespace

bool ReplaceFile(const std::string& path, const std::function<void(std::ostream&)>& write) {
  const std::string fresh = path + ".new";
  StreamFile file;
  try {
    file.Open(fresh, O_WRONLY | O_CREAT | O_TRUNC);
  } catch (const ErrnoError& error) {
    return Refuse("Unable to open: " + fresh, error.ErrorNumber());
  }
  return Succeeds([&] {
    TakeAfter(file, fresh, path);
    WriteWhole(file, fresh, write);
    MoveIntoPlace(fresh, path);
  });
}

bool ReplaceLink(const std::string& path, const std::string& target) {
  const std::string fresh = path + ".new";
  return Succeeds([&] {
    unlink(fresh.c_str());
    if (symlink(target.c_str(), fresh.c_str()) != 0) throw ErrnoError("Unable to link: " + fresh);
    MoveIntoPlace(fresh, path);
  });
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
    // It is still there if both were the same file already.
    unlink(fresh.c_str());
  });
}

std::string ReadWholeFile(const std::string& path) {
  StreamFile file(path, O_RDONLY);
  std::string text;
  for (std::string piece; file.ReadString(piece) > 0;) text += piece;
  return text;
}
