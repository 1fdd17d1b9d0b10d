// The subcommands of the tool, one file each. Every function adds its subcommand with options, help and a callback
// that does the work and throws Error.
#ifndef TESSALINE4_TOOLS_COMMANDS_H_
#define TESSALINE4_TOOLS_COMMANDS_H_

#include <CLI/CLI.hpp>

namespace tool {

void addMergeCommand(CLI::App& app);
void addBatchCommand(CLI::App& app);
void addSimulateCommand(CLI::App& app);
void addCompareCommand(CLI::App& app);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_COMMANDS_H_
