#include "file_io.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "descriptor.h"
#include "picture.h"

namespace tool {
namespace {

// Small enough to go little way past the end of a picture, large enough to make few calls.
constexpr size_t kMostAtOnce = size_t{1} << 18;

[[noreturn]] void failReading(const std::string& path) {
  throw Error(displayName(path), std::string("cannot be read: ") + std::strerror(errno));
}

}  // namespace

std::string displayName(const std::string& path) {
  return path == "-" ? "standard input" : path;
}

std::string endingOf(const std::string& path) {
  std::string ending = std::filesystem::path(path).extension().string();
  if (!ending.empty()) ending.erase(0, 1);
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return ending;
}

std::vector<uint8_t> readFile(const std::string& path, const StillWanted& stillWanted) {
  Descriptor opened;
  if (path != "-") {
    opened = Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (!opened.isOpen()) failReading(path);
  }
  const int file = path == "-" ? STDIN_FILENO : opened.get();
  std::vector<uint8_t> bytes;
  while (const size_t wanted = stillWanted(bytes)) {
    const size_t held = bytes.size();
    const size_t room = std::min(wanted, kMostAtOnce);
    bytes.resize(held + room);
    ssize_t count;
    do {
      count = read(file, bytes.data() + held, room);
    } while (count < 0 && errno == EINTR);
    if (count < 0) failReading(path);
    bytes.resize(held + static_cast<size_t>(count));
    if (count == 0) break;
  }
  return bytes;
}

}  // namespace tool
