// Options that several commands have.
#ifndef TESSALINE4_TOOLS_OPTIONS_H_
#define TESSALINE4_TOOLS_OPTIONS_H_

#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include "image_file.h"

namespace tool {

struct PictureSize {
  int32_t width = 0;
  int32_t height = 0;
};
// "640x480". Throws Error for anything else.
PictureSize parseSize(const std::string& text);

// --size and --format, which tell what raw files hold.
struct RawOptions {
  std::string size;
  std::string format;

  void addTo(CLI::App& command);
  // Empty without --size.
  std::optional<RawLayout> layout() const;
};

}  // namespace tool

#endif  // TESSALINE4_TOOLS_OPTIONS_H_
