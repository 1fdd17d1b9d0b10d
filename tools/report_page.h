// What a merge did, as a page to look at: base, result and (if simulated) truth under a slider, every frame with its
// verdict and its motion, the map of how many frames each place got, settings and times. One file, pictures included;
// it asks for nothing from anywhere else.
#ifndef TESSALINE4_TOOLS_REPORT_PAGE_H_
#define TESSALINE4_TOOLS_REPORT_PAGE_H_

#include <optional>
#include <string>

#include "burst.h"
#include "image_file.h"
#include "sharpest.h"

namespace tool {

// Whether a report of this name is a page.
bool isPageName(const std::string& path);

// Reads the frames again, since a merge may change them: files, not standard input. The truth is that of a truth.json
// beside the base that tells of it. Pictures are shown upright, in the colours of the result's ICC profile.
void writeReportPage(const std::string& path, const Choice& choice, const std::optional<RawLayout>& raw,
                     const std::string& output, const Settings& settings, const BurstResult& result, Existing existing);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_REPORT_PAGE_H_
