// Runs a fuzz target over the files that are named, or over all files in the directories.

#include <algorithm>
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
  std::vector<std::filesystem::path> files;
  for (int i = 1; i < argc; ++i) {
    if (std::filesystem::is_directory(argv[i]))
      std::ranges::copy(std::filesystem::directory_iterator(argv[i]), std::back_inserter(files));
    else
      files.emplace_back(argv[i]);
  }
  for (const std::filesystem::path& file : files) Replay(file);
  std::cout << files.size() << " inputs replayed\n";
  return files.empty() ? 1 : 0;
}
