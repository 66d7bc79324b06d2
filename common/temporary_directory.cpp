#include "common/temporary_directory.h"

#include <cstdlib>
#include <filesystem>

#include "common/errno_error.h"

TemporaryDirectory::TemporaryDirectory()
    : path(std::filesystem::temp_directory_path() / "lumet-test-XXXXXX") {
  if (mkdtemp(path.data()) == nullptr) throw ErrnoError("unable to make a directory");
}

TemporaryDirectory::~TemporaryDirectory() { std::filesystem::remove_all(path); }
