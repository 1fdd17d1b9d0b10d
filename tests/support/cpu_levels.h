// Runs a piece of a test at every level of the processor that this one has.
#ifndef ZVT4_TESTS_SUPPORT_CPU_LEVELS_H_
#define ZVT4_TESTS_SUPPORT_CPU_LEVELS_H_

#include "base/cpu_level.h"

namespace test {

// run(level), the plain one first; then the level is what it was.
template <typename Run>
void atEveryLevel(const Run& run) {
  const CpuLevel before = cpuLevel();
  for (int32_t level = CPU_PLAIN; level < CPU_LEVELS && setCpuLevel(static_cast<CpuLevel>(level)); ++level) {
    run(static_cast<CpuLevel>(level));
  }
  setCpuLevel(before);
}

}  // namespace test

#endif  // ZVT4_TESTS_SUPPORT_CPU_LEVELS_H_
