// The folder of a simulated burst, where other files may lie too.
#ifndef TESSALINE4_TOOLS_BURST_FOLDER_H_
#define TESSALINE4_TOOLS_BURST_FOLDER_H_

#include <string>
#include <vector>

#include "output_file.h"

namespace tool {

// Throws Error when the folder cannot be made, or a file of these names cannot be written in it (output_file.h) or is
// one of the inputs.
void checkBurstFolder(const std::string& folder, const std::vector<std::string>& names,
                      const std::vector<std::string>& inputs, Existing existing);

// Makes the folder. Frames of an earlier burst would be taken for frames of this one: files that an earlier call of
// recordBurstFolder tells of go, unless they are among names. Only those that still are as they were recorded do; of
// others a line is printed.
void prepareBurstFolder(const std::string& folder, const std::vector<std::string>& names);

// Notes length and hash of files of these names in ".simulated" in the folder, for the next burst there.
void recordBurstFolder(const std::string& folder, const std::vector<std::string>& names);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_BURST_FOLDER_H_
