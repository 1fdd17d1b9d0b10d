#include "setting_options.h"

namespace tool {
namespace {

// "--gain" with its default: the tool's where it has one.
template <typename T>
void addSettings(CLI::App& command, const std::vector<Setting<T>>& table, Settings* given) {
  static const Settings defaults = toolDefaults(true);
  for (const Setting<T>& s : table) {
    std::string help = s.help;
    if (const auto& value = defaults.*s.field) help += " (default " + std::to_string(*value) + ")";
    addRange(command, s.option, given->*s.field, help, s.least, s.most)->group("Settings");
  }
}

}  // namespace

void addSettingOptions(CLI::App& command, Settings* given, bool* libraryDefaults) {
  addRange(command, "--threads", given->threads, "Worker threads (default: one per processor)", 0, 64);
  command.add_option("--processor-mask", given->processorMask, "Bit mask of the processors to pin threads to")
      ->type_name("MASK");
  command.add_flag("--library-defaults", *libraryDefaults,
                   "Start from the library's defaults instead of the tool's, which are chosen for looks");
  addSettings(command, intSettings(), given);
  addSettings(command, doubleSettings(), given);
  command
      .add_option_function<std::vector<double>>(
          "--sharpness-sigmas",
          [given](const std::vector<double>& values) {
            given->sharpnessSigmas = {values[0], values[1]};
          },
          "Standard deviations, in pixels, of the two blurs whose difference sharpens")
      ->expected(2)
      ->type_name("FINE WIDE")
      ->group("Settings");
  command
      .add_option("--luma-nr-table", given->lumaNrTable,
                  "Brightness denoising where 0, 1, 2 ... frames agree, separated by commas")
      ->delimiter(',')
      ->expected(1, 33)
      ->type_name("N,N,...")
      ->group("Settings");
  command
      .add_option("--chroma-nr-table", given->chromaNrTable,
                  "Colour denoising where 0, 1, 2 ... frames agree, separated by commas")
      ->delimiter(',')
      ->expected(1, 33)
      ->type_name("N,N,...")
      ->group("Settings");
  for (const auto& [level, raw] :
       {std::pair{"--obj-blur-level", "--obj-blur-raw"}, std::pair{"--luma-nr-level", "--luma-nr-raw"},
        std::pair{"--luma-nr-level", "--luma-nr-times"}, std::pair{"--chroma-nr-level", "--chroma-nr-raw"},
        std::pair{"--chroma-nr-level", "--chroma-nr-times"}}) {
    command.get_option(level)->excludes(raw);
  }
}

Settings chosenSettings(const Settings& given, bool libraryDefaults) {
  return overlay(libraryDefaults ? Settings() : toolDefaults(given.fine.value_or(1) != 0), given);
}

}  // namespace tool
