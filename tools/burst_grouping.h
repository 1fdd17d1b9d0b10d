// Which photos belong to one burst.
//
// Photos are taken in the order of their times; equal times in the order of file names, then of paths, as bytes. A new
// group begins with a photo
//   - that was taken more than the gap after the one before it,
//   - of another camera (make or model) or another size, or
//   - whose exposure time or ISO differs by more than a factor of 2; where either is not known, it does not differ.
// Groups of two and more are bursts.
//
// The gap, unless told, is found from the data: the differences of time between neighbours, in whole microseconds, are
// limited to 0.05 s and 10 s (to 1 s and 10 s when any photo tells whole seconds only) and sorted. Of the neighbours a
// < b among them with b >= 1 s and b >= 3 a, those with the largest b / a count, the last of equal ones: gap = sqrt(a
// b). Without any: 2 s.
#ifndef TESSALINE4_TOOLS_BURST_GROUPING_H_
#define TESSALINE4_TOOLS_BURST_GROUPING_H_

#include <cstddef>
#include <optional>
#include <vector>

#include "photo.h"

namespace tool {

struct GroupingRules {
  std::optional<double> gap;    // seconds; empty: found from the data
  std::optional<size_t> count;  // instead of all these rules: runs of so many photos, the last one with what is left
};

struct Grouping {
  std::vector<std::vector<Photo>> bursts;  // each of 2 and more photos, all in order of time
  std::vector<Photo> singles;
  double gap = 0.0;  // seconds; what was told or found
};

// Seconds. photos: in order.
double findGap(const std::vector<Photo>& photos);
Grouping groupPhotos(std::vector<Photo> photos, const GroupingRules& rules);

// What the stills of these photos are called, without an ending: the name of the file without its ending, "IMG_1";
// where several share that, with their folder before it, "100TRIP-IMG_1"; where several share that too, with the ending
// behind it, "100TRIP-IMG_1-heic". Throws Error when two are still the same.
std::vector<std::string> stillNames(const std::vector<Photo>& photos);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_BURST_GROUPING_H_
