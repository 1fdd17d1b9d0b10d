// Builds of a row function for the levels of the processor.
//
// A row function is written once, as an always-inline body: the plain build of it runs everywhere and is the truth, the
// others give the same bytes. CpuRow makes all builds and calls the one of the level in force:
//
//   ALWAYS_INLINE void addRow(uint8_t* __restrict dst, const uint8_t* __restrict src, int32_t count) { .. }
//   constexpr CpuRow<addRow> kAddRow;
//   kAddRow(dst, src, count);
//
// What the body calls must be inlined into it, else it is built for the plain level: mark it ALWAYS_INLINE too. AArch64
// and 32-bit ARM have their vector units in the plain build.
//
// The level belongs to the process, since the processor does: the highest one that it runs, found at the first use.
// Tests and benches lower it.
#ifndef ZVT4_BASE_CPU_LEVEL_H_
#define ZVT4_BASE_CPU_LEVEL_H_

#include <cstdint>

#define ALWAYS_INLINE [[gnu::always_inline]] inline

enum CpuLevel : int32_t { CPU_PLAIN, CPU_AVX2, CPU_AVX512, CPU_LEVELS };

const char* cpuLevelName(CpuLevel level);
CpuLevel cpuLevel();
// False, without effect, for a level that this processor does not run. No row function may run meanwhile.
bool setCpuLevel(CpuLevel level);

template <auto Body>
struct CpuRow;

template <typename Result, typename... Args, Result (*Body)(Args...)>
struct CpuRow<Body> {
  Result operator()(Args... args) const { return kBuilds[cpuLevel()](args...); }

 private:
  static Result plain(Args... args) { return Body(args...); }
#if defined(__x86_64__)
  [[gnu::target("avx2")]] static Result avx2(Args... args) {
    return Body(args...);
  }
  [[gnu::target("avx512f,avx512bw,avx512dq,avx512vl")]] static Result avx512(Args... args) {
    return Body(args...);
  }
  static constexpr Result (*kBuilds[CPU_LEVELS])(Args...) = {plain, avx2, avx512};
#else
  static constexpr Result (*kBuilds[CPU_LEVELS])(Args...) = {plain, plain, plain};
#endif
};

#endif  // ZVT4_BASE_CPU_LEVEL_H_
