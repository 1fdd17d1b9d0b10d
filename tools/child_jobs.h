// Jobs in processes of their own, some side by side: what one of them breaks, it breaks for itself alone, and its
// memory is the system's again.
#ifndef TESSALINE4_TOOLS_CHILD_JOBS_H_
#define TESSALINE4_TOOLS_CHILD_JOBS_H_

#include <cstddef>
#include <functional>
#include <string>

namespace tool {

struct JobOutcome {
  bool good = false;
  std::string text;  // what the job returned, or why it failed
};

// Runs job(index, slot) for each index below count, at most sideBySide at once; slot tells which of these places it
// has. What it throws is its failure, and so is the signal that ends it. done is called here, as jobs end, in any
// order. Call it while the process has one thread alone. Jobs end with this process.
void runJobs(size_t count, size_t sideBySide, const std::function<std::string(size_t index, size_t slot)>& job,
             const std::function<void(size_t index, const JobOutcome& outcome)>& done);

}  // namespace tool

#endif  // TESSALINE4_TOOLS_CHILD_JOBS_H_
