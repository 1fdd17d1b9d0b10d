// Pictures by the tool's own way in and out: through files.
#ifndef TESSALINE4_FUZZ_PICTURE_FILES_H_
#define TESSALINE4_FUZZ_PICTURE_FILES_H_

#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <new>
#include <string>

#include "image_file.h"
#include "support.h"

namespace fuzz {

using Bytes = std::vector<uint8_t>;

// A file in memory, under a path without an ending.
class MemoryFile {
 public:
  explicit MemoryFile(const Bytes& bytes) : descriptor_(memfd_create("input", MFD_CLOEXEC)) {
    REQUIRE(descriptor_ >= 0);
    REQUIRE(write(descriptor_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
    path_ = "/proc/self/fd/" + std::to_string(descriptor_);
  }
  ~MemoryFile() { close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  const std::string& path() const { return path_; }

 private:
  int descriptor_;
  std::string path_;
};

// A folder of this process, gone at its end.
class Folder {
 public:
  Folder() {
    // In memory where the system has such a place: every input writes files.
    std::string name = (access("/dev/shm", W_OK) == 0 ? "/dev/shm" : std::filesystem::temp_directory_path().string()) +
                       "/tessaline4-fuzz-XXXXXX";
    REQUIRE(mkdtemp(name.data()) != nullptr);
    path_ = name;
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

inline const Folder& folder() {
  static const Folder instance;
  return instance;
}

inline Bytes readAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  REQUIRE(file);
  return Bytes((std::istreambuf_iterator<char>(file)), {});
}

inline void writeAll(const std::string& path, const Bytes& bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  REQUIRE(file.good());
}

// Whether body came to its end. The one way out besides is an Error that says something; anything else is a finding.
inline bool succeeds(const std::function<void()>& body) {
  try {
    body();
    return true;
  } catch (const tool::Error& error) {
    REQUIRE(*error.what() != '\0');
    return false;
  }
}

inline void checkPicture(const tool::Picture& picture) {
  REQUIRE(picture.width > 0 && picture.height > 0);
  const auto count = [](int32_t w, int32_t h) { return static_cast<size_t>(w) * static_cast<size_t>(h); };
  REQUIRE(picture.y.size() == count(picture.width, picture.height));
  REQUIRE(picture.u.size() == count((picture.width + 1) / 2, (picture.height + 1) / 2));
  REQUIRE(picture.v.size() == picture.u.size());
}

inline bool samePlanes(const tool::Picture& a, const tool::Picture& b) {
  return a.width == b.width && a.height == b.height && a.y == b.y && a.u == b.u && a.v == b.v;
}

// Larger pictures cost time and show nothing more.
inline constexpr uint64_t kMostPixels = 1 << 18;

// Reads a picture file by both ways in, writes what came of it and reads that again.
inline void readAndRewrite(const Bytes& bytes) {
  const MemoryFile file(bytes);
  tool::Picture picture;
  const bool read = succeeds([&] { picture = tool::readPicture(file.path()); });
  tool::RgbPicture rgb;
  const bool readRgb = succeeds([&] { rgb = tool::readRgb(file.path()); });
  if (readRgb) REQUIRE(rgb.pixels.size() == 3 * static_cast<size_t>(rgb.width) * static_cast<size_t>(rgb.height));
  if (!read) return;
  checkPicture(picture);
  if (readRgb) REQUIRE(rgb.width == picture.width && rgb.height == picture.height);
  for (const char* name : {"out.jpg", "out.png", "out.y4m"}) {
    const std::string path = folder() / name;
    tool::Picture again;
    // A side may be more than a JPEG can have.
    if (!succeeds([&] { tool::writePicture(path, picture); })) continue;
    REQUIRE(succeeds([&] { again = tool::readPicture(path); }));
    checkPicture(again);
    REQUIRE(again.width == picture.width && again.height == picture.height);
    if (std::string(name) == "out.y4m") REQUIRE(samePlanes(again, picture));
  }
}

}  // namespace fuzz

#endif  // TESSALINE4_FUZZ_PICTURE_FILES_H_
