#include "base/cpu_level.h"

namespace {

constexpr int32_t kUnknown = -1;
int32_t inForce = kUnknown;

CpuLevel highestLevel() {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512dq") &&
      __builtin_cpu_supports("avx512vl")) {
    return CPU_AVX512;
  }
  if (__builtin_cpu_supports("avx2")) return CPU_AVX2;
#endif
  return CPU_PLAIN;
}

}  // namespace

const char* cpuLevelName(CpuLevel level) {
  constexpr const char* kNames[CPU_LEVELS] = {"plain", "avx2", "avx512"};
  return kNames[level];
}

CpuLevel cpuLevel() {
  int32_t level = __atomic_load_n(&inForce, __ATOMIC_RELAXED);
  if (level == kUnknown) {
    level = highestLevel();  // the same whichever thread is first
    __atomic_store_n(&inForce, level, __ATOMIC_RELAXED);
  }
  return static_cast<CpuLevel>(level);
}

bool setCpuLevel(CpuLevel level) {
  if (level > highestLevel()) return false;
  __atomic_store_n(&inForce, static_cast<int32_t>(level), __ATOMIC_RELAXED);
  return true;
}
