#include "common/safe_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

}  // namespace

bool ReplaceFile(const std::string& path, const std::function<void(std::ostream&)>& write) {
  const std::string fresh = path + ".new";
  StreamFile file;
  try {
    file.Open(fresh, O_WRONLY | O_CREAT | O_TRUNC);
  } catch (const ErrnoError&) {
    std::cout << "Unable to open: " << fresh << "\n";
    return false;
  }
  try {
    TakeAfter(file, fresh, path);
    WriteWhole(file, fresh, write);
    sync();
    if (std::rename(fresh.c_str(), path.c_str()) != 0)
      throw ErrnoError("Unable to replace: " + path);
    // The new name must be on the disk too.
    const std::string directory = std::filesystem::path(path).parent_path();
    SyncToDisk(StreamFile(directory, O_RDONLY | O_DIRECTORY), directory);
  } catch (const ErrnoError& error) {
    std::cout << error.what() << "\n";
    return false;
  }
  return true;
}
