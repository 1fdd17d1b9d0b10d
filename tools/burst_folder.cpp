#include "burst_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "picture.h"
#include "printable.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

// The folder itself or, as long as it is to be made, the nearest above it that exists.
fs::path existingPart(fs::path folder) {
  std::error_code failed;
  while (!folder.empty() && !fs::exists(folder, failed)) {
    const fs::path above = folder.parent_path();
    if (above == folder) break;
    folder = above;
  }
  return folder.empty() ? fs::path(".") : folder;
}

// Length and FNV-1a hash of a file's bytes; empty when it is no plain file or cannot be read.
std::string fingerprint(const std::string& path) {
  struct stat info;
  if (lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return "";
  std::ifstream file(path, std::ios::binary);
  uint64_t hash = 0xCBF29CE484222325u;
  uint64_t length = 0;
  for (char buffer[1 << 14]; file.read(buffer, sizeof(buffer)) || file.gcount() > 0;) {
    for (std::streamsize i = 0; i < file.gcount(); ++i) {
      hash = (hash ^ static_cast<uint8_t>(buffer[i])) * 0x100000001B3u;
    }
    length += static_cast<uint64_t>(file.gcount());
  }
  if (!file.eof()) return "";
  char text[48];
  std::snprintf(text, sizeof(text), "%" PRIu64 "-%016" PRIx64, length, hash);
  return text;
}

std::string recordOf(const std::string& folder) {
  return folder + "/.simulated";
}

}  // namespace

void checkBurstFolder(const std::string& folder, const std::vector<std::string>& names,
                      const std::vector<std::string>& inputs, Existing existing) {
  const std::string there = existingPart(folder).string();
  struct stat info;
  errno = 0;
  if (stat(there.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) || access(there.c_str(), W_OK | X_OK) != 0) {
    throw Error(folder, std::string("cannot be written: ") + std::strerror(errno == 0 ? ENOTDIR : errno));
  }
  if (!fs::is_directory(folder)) return;
  std::vector<std::string> outputs;
  for (const std::string& name : names) {
    outputs.push_back(folder + "/" + name);
    checkFileWritable(outputs.back(), existing);
  }
  checkDistinct(outputs, inputs);
}

void prepareBurstFolder(const std::string& folder, const std::vector<std::string>& names) {
  std::error_code failed;
  fs::create_directories(folder, failed);
  if (failed) throw Error(folder, "cannot be made: " + failed.message());
  std::ifstream record(recordOf(folder));
  for (std::string mark, name; record >> mark >> name;) {
    const std::string path = folder + "/" + name;
    if (fs::path(name).filename() != name || std::find(names.begin(), names.end(), name) != names.end()) continue;
    if (fingerprint(path) == mark) {
      fs::remove(path, failed);
    } else if (fs::exists(path, failed)) {
      std::fprintf(stderr, "tessaline4: %s: left alone: it is not as simulate wrote it\n", printable(path).c_str());
    }
  }
}

void recordBurstFolder(const std::string& folder, const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    const std::string mark = fingerprint(folder + "/" + name);
    if (!mark.empty()) text += mark + " " + name + "\n";
  }
  writeFile(recordOf(folder), std::vector<uint8_t>(text.begin(), text.end()));
}

}  // namespace tool
