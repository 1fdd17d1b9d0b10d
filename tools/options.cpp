#include "options.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace tool {

PictureSize parseSize(const std::string& text) {
  PictureSize size;
  const char* end = text.data() + text.size();
  auto result = std::from_chars(text.data(), end, size.width);
  bool good = result.ec == std::errc() && result.ptr != end && *result.ptr == 'x';
  if (good) {
    result = std::from_chars(result.ptr + 1, end, size.height);
    good = result.ec == std::errc() && result.ptr == end;
  }
  if (!good || size.width < 1 || size.height < 1) throw Error("'" + text + "' is not a size like 640x480");
  return size;
}

void refuseNonFinite(CLI::App& app) {
  const auto check = [](const std::string& text) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    const bool isNumber = !text.empty() && *end == '\0';
    return isNumber && !(std::abs(value) <= std::numeric_limits<float>::max()) ? text + " is no finite number"
                                                                               : std::string();
  };
  for (CLI::App* command : app.get_subcommands({})) {
    for (CLI::Option* option : command->get_options()) {
      const std::string type = option->get_type_name();
      if (!option->get_positional() && type != "FILE" && type != "DIR") option->check(CLI::Validator(check, ""));
    }
  }
}

void addNoOverwrite(CLI::App& command, Existing* existing) {
  command.add_flag_callback(
      "-n,--no-overwrite", [existing] { *existing = Existing::kRefuse; }, "Refuse to replace files that exist");
}

void RawOptions::addTo(CLI::App& command) {
  command.add_option("--size", size, "Width and height of raw pixels")->type_name("WxH");
  command
      .add_option("--format", format, "Layout of raw pixels: nv21, nv12, i420 or yuyv (default: by the file's ending)")
      ->type_name("FORMAT")
      ->check(CLI::IsMember({"nv21", "nv12", "i420", "yuyv"}))
      ->needs("--size");
}

std::optional<RawLayout> RawOptions::layout() const {
  if (size.empty()) return std::nullopt;
  const PictureSize parsed = parseSize(size);
  return RawLayout{parsed.width, parsed.height, format};
}

}  // namespace tool
