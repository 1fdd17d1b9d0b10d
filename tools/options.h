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

// Gives every option of the commands that takes text of its own (FILE and DIR do) a check that refuses numbers that
// are none, infinite, or beyond a float. Call it when all options are there.
void refuseNonFinite(CLI::App& app);

// -n, for commands that write files.
void addNoOverwrite(CLI::App& command, Existing* existing);

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
