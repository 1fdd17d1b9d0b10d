// RandomNumber: the library's pseudo-random generator, of the Mersenne Twister family.
//
// Type 1 is MT19937 (Matsumoto and Nishimura, "Mersenne Twister: a 623-dimensionally equidistributed uniform
// pseudo-random number generator", 1998) with a seeding of its own; type 0 a smaller relative whose middle offset
// exceeds its state, so that the index wraps. The owner sets type between construct and init; construct sets 1.
//
// Seeding: 4096 words from t = s (2 s + 3) + 1, word = (t & 0xFFFF0000) | (s >> 16), s = t (2 t + 3) + 1; then each
// state word is the table's at s >> 20, s = s (2 s + 3) + 1. The table is scratch of the arena.
#ifndef ZVT4_FILTERS_RANDOM_NUMBER_H_
#define ZVT4_FILTERS_RANDOM_NUMBER_H_

#include "base/env.h"

struct RandomNumber {
  Env* env;
  int32_t type;     // 0 or 1
  int32_t index;    // of the next state word
  uint32_t* state;  // arena block
};

extern "C" {
// Bytes of state and of the seeding's scratch.
int32_t RandomNumber_getBufferSize(int32_t type) ZVT4_NAME(RandomNumber_getBufferSize);
Status construct_RandomNumber(RandomNumber* random, Env* env) ZVT4_NAME(construct_RandomNumber);
Status destruct_RandomNumber(RandomNumber* random) ZVT4_NAME(destruct_RandomNumber);
// ZELVAN_ERROR_GENERAL for another type, ZELVAN_ERROR_NOMEM.
Status RandomNumber_init(RandomNumber* random, uint32_t seed) ZVT4_NAME(RandomNumber_init);
// The next 32 bits. Needs an init.
uint32_t RandomNumber_get(RandomNumber* random) ZVT4_NAME(RandomNumber_get);
// low to high, both possible.
int32_t RandomNumber_nextInt32(RandomNumber* random, int32_t low, int32_t high) ZVT4_NAME(RandomNumber_nextInt32);
// 0 to 1, both possible; the forms with ex never give 1.
float RandomNumber_nextFloat32(RandomNumber* random) ZVT4_NAME(RandomNumber_nextFloat32);
float RandomNumber_nextFloat32ex(RandomNumber* random) ZVT4_NAME(RandomNumber_nextFloat32ex);
double RandomNumber_nextFloat64(RandomNumber* random) ZVT4_NAME(RandomNumber_nextFloat64);
double RandomNumber_nextFloat64ex(RandomNumber* random) ZVT4_NAME(RandomNumber_nextFloat64ex);
}

#endif  // ZVT4_FILTERS_RANDOM_NUMBER_H_
