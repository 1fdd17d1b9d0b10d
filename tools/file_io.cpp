#include "file_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

#include "picture.h"

namespace tool {
namespace {

struct Closer {
  void operator()(FILE* file) const { std::fclose(file); }
};

// The path that a link leads to, as far as it exists.
std::string resolve(const std::string& path) {
  std::error_code code;
  const std::filesystem::path real = std::filesystem::weakly_canonical(path, code);
  return code ? path : real.string();
}

bool isSpecial(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode);
}

bool writeAll(int descriptor, const std::vector<uint8_t>& bytes) {
  for (size_t at = 0; at < bytes.size();) {
    const ssize_t count = write(descriptor, bytes.data() + at, bytes.size() - at);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    at += static_cast<size_t>(count);
  }
  return true;
}

[[noreturn]] void failWriting(const std::string& path, int code) {
  throw Error(path, std::string("cannot be written: ") + std::strerror(code));
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

std::vector<uint8_t> readFile(const std::string& path, const Wanted& wanted) {
  std::unique_ptr<FILE, Closer> opened;
  FILE* file = stdin;
  if (path != "-") {
    opened.reset(std::fopen(path.c_str(), "rb"));
    file = opened.get();
  }
  if (file == nullptr) throw Error(path, std::string("cannot be read: ") + std::strerror(errno));
  std::vector<uint8_t> bytes;
  size_t held = 0;
  for (;;) {
    bytes.resize(std::max<size_t>(1 << 16, 2 * held));
    const size_t count = std::fread(bytes.data() + held, 1, bytes.size() - held, file);
    held += count;
    if (held < bytes.size()) break;  // the end, or an error
    if (wanted && held > wanted(bytes)) break;
  }
  if (std::ferror(file) != 0) {
    throw Error(displayName(path), std::string("cannot be read: ") + std::strerror(errno));
  }
  bytes.resize(held);
  return bytes;
}

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
  const std::string target = resolve(path);
  if (isSpecial(target)) {
    const int descriptor = open(target.c_str(), O_WRONLY);
    if (descriptor < 0) failWriting(path, errno);
    const bool written = writeAll(descriptor, bytes);
    const int code = errno;
    if (close(descriptor) != 0 || !written) failWriting(path, written ? errno : code);
    return;
  }
  std::string temporary = target + ".XXXXXX";
  const int descriptor = mkstemp(temporary.data());
  if (descriptor < 0) failWriting(path, errno);
  // mkstemp makes the file private; a result gets the rights of any new file.
  const mode_t mask = umask(0);
  umask(mask);
  bool good = writeAll(descriptor, bytes) && fchmod(descriptor, 0666 & ~mask) == 0;
  int code = errno;
  if (close(descriptor) != 0 && good) {
    good = false;
    code = errno;
  }
  if (good && std::rename(temporary.c_str(), target.c_str()) != 0) {
    good = false;
    code = errno;
  }
  if (!good) {
    unlink(temporary.c_str());
    failWriting(path, code);
  }
}

void checkFileWritable(const std::string& path) {
  const std::string target = resolve(path);
  struct stat info;
  if (stat(target.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) failWriting(path, EISDIR);
  const std::filesystem::path parent = std::filesystem::path(target).parent_path();
  const std::string folder = parent.empty() ? std::string(".") : parent.string();
  if (stat(folder.c_str(), &info) != 0) failWriting(path, errno);
  if (!S_ISDIR(info.st_mode)) failWriting(path, ENOTDIR);
  if (access(isSpecial(target) ? target.c_str() : folder.c_str(), W_OK) != 0) failWriting(path, errno);
}

}  // namespace tool
