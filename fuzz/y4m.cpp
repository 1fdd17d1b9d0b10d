// Y4M streams. The first byte is the number of frames that are allowed.
#include "picture_files.h"

namespace {

bool isLarge(const fuzz::Bytes& bytes) {
  // A number of the header that has more than three digits.
  size_t digits = 0;
  for (size_t i = 0; i < bytes.size() && bytes[i] != '\n'; ++i) {
    digits = bytes[i] >= '0' && bytes[i] <= '9' ? digits + 1 : 0;
    if (digits > 3) return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const size_t most = input.byte() % 12;
  fuzz::Bytes bytes = input.rest();
  if (isLarge(bytes)) return 0;
  const fuzz::MemoryFile file(bytes);
  std::vector<tool::Picture> frames;
  if (!fuzz::succeeds([&] { frames = tool::readFrames({.paths = {file.path()}, .most = most}); })) return 0;
  REQUIRE(!frames.empty() && frames.size() <= most);
  for (const tool::Picture& frame : frames) {
    fuzz::checkPicture(frame);
    REQUIRE(frame.width == frames[0].width && frame.height == frames[0].height);
  }
  const std::string path = fuzz::folder() / "out.y4m";
  tool::writeY4m(path, frames);
  const std::vector<tool::Picture> again = tool::readFrames({.paths = {path}, .most = most});
  REQUIRE(again.size() == frames.size());
  for (size_t i = 0; i < frames.size(); ++i) REQUIRE(fuzz::samePlanes(again[i], frames[i]));
  return 0;
}
