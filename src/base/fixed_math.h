// Fixed-point elementary functions and byte helpers of the library's general offer. Tables follow from their rules at
// compile time. Angles and values are Q15 unless said otherwise; none of it reports an error.
#ifndef ZVT4_BASE_FIXED_MATH_H_
#define ZVT4_BASE_FIXED_MATH_H_

#include <cstdint>

#include "base/export.h"

extern "C" {
// Cosine in Q15 of an angle in Q15 radians (the circle is 205887), from the nearest entry at or below it of 4096 to the
// circle.
int32_t getCOS(int32_t angle) ZVT4_NAME(getCOS);
// Arc sine in Q15 of v / 1024, v in 0 to 1024; 0 above.
int32_t getASIN(int32_t v) ZVT4_NAME(getASIN);

// Radians in Q15, reduced modulo 2 pi in Q25; a table of 1/256 radian with linear interpolation, clamped at 32768.
int32_t mi_lsm_sin(int32_t angle) ZVT4_NAME(mi_lsm_sin);
void mi_lsm_sincos(int32_t angle, int32_t* sine, int32_t* cosine) ZVT4_NAME(mi_lsm_sincos);
// Saturates where the cosine is 0.
int32_t mi_lsm_tan(int32_t angle) ZVT4_NAME(mi_lsm_tan);
int32_t mi_lsm_tanh(int32_t x) ZVT4_NAME(mi_lsm_tanh);
int32_t mi_lsm_asin(int32_t x) ZVT4_NAME(mi_lsm_asin);
int32_t mi_lsm_atan2(int32_t y, int32_t x) ZVT4_NAME(mi_lsm_atan2);
// Natural logarithm; the lowest value for 0 and below.
int32_t mi_lsm_log(int32_t x) ZVT4_NAME(mi_lsm_log);
// floor(sqrt(n)), by the steps of isqrt.
uint32_t mi_lsm_sqrt(uint32_t n) ZVT4_NAME(mi_lsm_sqrt);
// About 2^32 / sqrt(v); all ones for 0.
uint32_t mi_lsm_invsqrt(uint32_t v) ZVT4_NAME(mi_lsm_invsqrt);

// Byte order reversal in place of the word at the address, which need not be aligned.
void swapbo2(void* word) ZVT4_NAME(swapbo2);
void swapbo4(void* word) ZVT4_NAME(swapbo4);
void swapbo8(void* word) ZVT4_NAME(swapbo8);
// Byte copy and fill, without a library call. No overlap.
void bytesCopy(void* dst, const void* src, uint32_t count) ZVT4_NAME(8bit_memcpy);
void bytesFill(void* dst, int32_t value, uint32_t count) ZVT4_NAME(8bit_memset);
}

#endif  // ZVT4_BASE_FIXED_MATH_H_
