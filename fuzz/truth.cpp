// Truth and report files, by way of the compare command: an input is the text of the one, a zero byte, that of the
// other. The pictures that they may name are there, of two sizes.
#include <fcntl.h>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "picture_files.h"

namespace {

tool::Picture makePicture(int32_t width, int32_t height, uint32_t seed) {
  tool::Picture picture(width, height);
  fuzz::Noise noise(seed);
  for (uint8_t& sample : picture.y) sample = noise();
  return picture;
}

void makePictures() {
  // Inputs may name any picture of a folder above; these lie in a folder of their own.
  std::filesystem::create_directory(fuzz::folder() / "burst");
  tool::writePicture(fuzz::folder() / "result.png", makePicture(24, 20, 1));
  tool::writePicture(fuzz::folder() / "burst/a.png", makePicture(24, 20, 2));
  tool::writePicture(fuzz::folder() / "burst/b.png", makePicture(24, 20, 3));
  tool::writePicture(fuzz::folder() / "burst/a.nv21", makePicture(24, 20, 4));
  tool::writePicture(fuzz::folder() / "burst/s.png", makePicture(8, 6, 5));
}

void compare(const std::vector<std::string>& options) {
  std::vector<const char*> arguments = {"tessaline4", "compare"};
  for (const std::string& option : options) arguments.push_back(option.c_str());
  CLI::App app;
  tool::addCompareCommand(app);
  fuzz::succeeds([&] { app.parse(static_cast<int>(arguments.size()), arguments.data()); });
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The command prints its findings, and nobody reads them.
  REQUIRE(std::freopen("/dev/null", "w", stdout) != nullptr);
  makePictures();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const uint8_t* cut = std::find(data, data + size, uint8_t{0});
  const std::string burst = fuzz::folder() / "burst";
  const std::string report = fuzz::folder() / "report.json";
  const std::string result = fuzz::folder() / "result.png";
  fuzz::writeAll(burst + "/truth.json", fuzz::Bytes(data, cut));
  if (cut == data + size) {
    compare({result, burst});
    return 0;
  }
  fuzz::writeAll(report, fuzz::Bytes(cut + 1, data + size));
  compare({result, burst, "--report", report, "--json", fuzz::folder() / "out.json"});
  return 0;
}
