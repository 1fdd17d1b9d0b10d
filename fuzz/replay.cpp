// Runs files, and all files of folders, through a fuzz target: the main of builds without libFuzzer.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "support.h"

extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

size_t replay(const std::filesystem::path& path) {
  if (std::filesystem::is_directory(path)) {
    std::vector<std::filesystem::path> entries(std::filesystem::directory_iterator(path), {});
    std::sort(entries.begin(), entries.end());
    size_t count = 0;
    for (const auto& entry : entries) count += replay(entry);
    return count;
  }
  std::ifstream file(path, std::ios::binary);
  REQUIRE(file);
  const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), {});
  std::fprintf(stderr, "%s\n", path.c_str());  // in front of a crash
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
  size_t count = 0;
  for (int i = 1; i < argc; ++i) count += replay(argv[i]);
  std::fprintf(stderr, "%zu inputs\n", count);
  return count > 0 ? 0 : 1;  // an empty corpus tests nothing
}
