#include "file_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <new>

#include "picture.h"

namespace tool {
namespace {

// Small enough to go little way past the end of a picture, large enough to make few calls.
constexpr size_t kMostAtOnce = size_t{1} << 18;
constexpr size_t kMostHinted = size_t{1} << 26;

[[noreturn]] void failReading(const std::string& name) {
  throw Error(name, std::string("cannot be read: ") + std::strerror(errno));
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

InputFile::InputFile(const std::string& path) : name_(displayName(path)), number_(STDIN_FILENO) {
  if (path == "-") return;
  opened_ = Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
  if (!opened_.isOpen()) failReading(name_);
  number_ = opened_.get();
}

size_t InputFile::readSome(uint8_t* to, size_t most) {
  for (;;) {
    const ssize_t count = ::read(number_, to, most);
    if (count >= 0) return static_cast<size_t>(count);
    if (errno != EINTR) failReading(name_);
  }
}

size_t InputFile::read(uint8_t* to, size_t count) {
  size_t held = 0;
  while (held < count) {
    const size_t more = readSome(to + held, count - held);
    if (more == 0) break;
    held += more;
  }
  return held;
}

FileBytes InputFile::read(const StillWanted& stillWanted) {
  FileBytes bytes;
  while (const size_t wanted = stillWanted(bytes.view())) {
    // The length of the file is a hint alone: it may be a device, or grow.
    if (struct stat info; bytes.size() == 0 && fstat(number_, &info) == 0 && info.st_size > 0) {
      if (bytes.room(std::min(static_cast<size_t>(info.st_size), kMostHinted)) == nullptr) throw std::bad_alloc();
    }
    const size_t most = std::min(wanted, kMostAtOnce);
    uint8_t* room = bytes.room(most);
    if (room == nullptr) throw std::bad_alloc();
    const size_t count = readSome(room, most);
    if (count == 0) break;
    bytes.add(count);
  }
  return bytes;
}

FileBytes readFile(const std::string& path, const StillWanted& stillWanted) {
  return InputFile(path).read(stillWanted);
}

bool isRegularFile(const std::string& path) {
  struct stat info;
  return path != "-" && stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

}  // namespace tool
