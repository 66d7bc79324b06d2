// Runs a fuzz target over the files that are named, or over all files in the directories.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void Replay(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
  // An abort does not name the file by itself.
  std::cout << path.string() << std::endl;
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  int files = 0;
  for (int i = 1; i < argc; ++i) {
    if (!std::filesystem::is_directory(argv[i])) {
      Replay(argv[i]);
      ++files;
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      Replay(entry.path());
      ++files;
    }
  }
  std::cout << files << " inputs replayed\n";
  return files > 0 ? 0 : 1;
}
