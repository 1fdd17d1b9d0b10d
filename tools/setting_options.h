// The options that set what the library does, for every command that merges.
#ifndef TESSALINE4_TOOLS_SETTING_OPTIONS_H_
#define TESSALINE4_TOOLS_SETTING_OPTIONS_H_

#include <limits>
#include <sstream>
#include <string>

#include <CLI/CLI.hpp>

#include "burst.h"

namespace tool {

// The range stands in the place of the type: "--gain 0..1000".
template <typename Field, typename T>
CLI::Option* addRange(CLI::App& command, const char* option, Field& field, const std::string& help, T least, T most) {
  std::ostringstream range;
  range << least << "..";
  if (most < std::numeric_limits<T>::max()) range << most;
  CLI::Range check(least, most);
  check.description("");
  return command.add_option(option, field, help)->check(check)->type_name(range.str());
}

// One option per setter, with its range and the tool's default, and --library-defaults. given gets what is set.
void addSettingOptions(CLI::App& command, Settings* given, bool* libraryDefaults);
// What is given, laid over the defaults that are asked for.
Settings chosenSettings(const Settings& given, bool libraryDefaults);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_SETTING_OPTIONS_H_
