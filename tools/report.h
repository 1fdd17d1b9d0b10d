// What a merge did, as JSON.
#ifndef TESSALINE4_TOOLS_REPORT_H_
#define TESSALINE4_TOOLS_REPORT_H_

#include <string>
#include <vector>

#include "burst.h"
#include "output_file.h"

namespace tool {

// files: where each frame of the result's burst came from; a stream is named once and stands for all frames.
void writeReport(const std::string& path, const std::vector<std::string>& files, const std::string& output,
                 const Settings& settings, const BurstResult& result, Existing existing);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_REPORT_H_
