#include "filters/random_number.h"

#include "base/scoped.h"

namespace {

struct Parameters {
  int32_t words;
  int32_t middle;
  uint32_t lastShift;
  uint32_t twist;
  uint32_t maskB;
  uint32_t maskC;
};

constexpr Parameters kParameters[] = {
    {351, 397, 17, 0xccab8ee7u, 0x31b6ab00u, 0xffe50000u},
    {624, 397, 18, 0x9908b0dfu, 0x9d2c5680u, 0xefc60000u},
};
constexpr uint32_t kUpper = 0x80000000u;
constexpr size_t kSeedTable = 4096;

bool isType(int32_t type) {
  return type == 0 || type == 1;
}

constexpr uint32_t stirred(uint32_t s) {
  return s * (2 * s + 3) + 1;
}

}  // namespace

int32_t RandomNumber_getBufferSize(int32_t type) {
  if (!isType(type)) return -1;
  return (kParameters[type].words + static_cast<int32_t>(kSeedTable)) * static_cast<int32_t>(sizeof(uint32_t));
}

Status construct_RandomNumber(RandomNumber* random, Env* env) {
  if (random == nullptr) return ZELVAN_ERROR_PARAM;
  *random = {env, 1, 0, nullptr};
  return ZELVAN_OK;
}

Status destruct_RandomNumber(RandomNumber* random) {
  if (random == nullptr) return ZELVAN_ERROR_PARAM;
  if (random->env != nullptr) Heap2_free(&random->env->heap, random->state);
  *random = {};
  return ZELVAN_OK;
}

Status RandomNumber_init(RandomNumber* random, uint32_t seed) {
  if (random == nullptr || random->env == nullptr) return ZELVAN_ERROR_PARAM;
  if (!isType(random->type)) return ZELVAN_ERROR_GENERAL;
  Heap2* heap = &random->env->heap;
  const auto words = static_cast<size_t>(kParameters[random->type].words);
  Heap2_free(heap, random->state);
  random->state = static_cast<uint32_t*>(Heap2_malloc(heap, static_cast<uint32_t>(words * sizeof(uint32_t))));
  const ScopedBlock<uint32_t> table(random->env, kSeedTable);
  if (random->state == nullptr || !table) return ZELVAN_ERROR_NOMEM;
  uint32_t s = seed;
  for (size_t k = 0; k < kSeedTable; ++k) {
    const uint32_t t = stirred(s);
    table[k] = (t & 0xFFFF0000u) | (s >> 16);
    s = stirred(t);
  }
  for (size_t j = 0; j < words; ++j) {
    random->state[j] = table[s >> 20];
    s = stirred(s);
  }
  random->index = 0;
  return ZELVAN_OK;
}

uint32_t RandomNumber_get(RandomNumber* random) {
  const Parameters& p = kParameters[random->type];
  uint32_t* state = random->state;
  const int32_t i = random->index;
  const int32_t next = (i + 1) % p.words;
  uint32_t y = (state[i] & kUpper) | (state[next] & ~kUpper);
  state[i] = state[(i + p.middle) % p.words] ^ (y >> 1) ^ ((y & 1) != 0 ? p.twist : 0);
  random->index = next;
  y = state[i];
  y ^= y >> 11;
  y ^= (y << 7) & p.maskB;
  y ^= (y << 15) & p.maskC;
  return y ^ (y >> p.lastShift);
}

int32_t RandomNumber_nextInt32(RandomNumber* random, int32_t low, int32_t high) {
  if (high <= low) return low;
  const auto range = static_cast<uint64_t>(int64_t{high} - low + 1);
  return static_cast<int32_t>(low + static_cast<int64_t>(RandomNumber_get(random) % range));
}

float RandomNumber_nextFloat32(RandomNumber* random) {
  return static_cast<float>((RandomNumber_get(random) >> 8) / 16777215.0);
}

float RandomNumber_nextFloat32ex(RandomNumber* random) {
  return static_cast<float>((RandomNumber_get(random) >> 8) / 16777216.0);
}

double RandomNumber_nextFloat64(RandomNumber* random) {
  const uint64_t high = RandomNumber_get(random) >> 5;
  return static_cast<double>(high << 26 | RandomNumber_get(random) >> 6) / 9007199254740991.0;
}

double RandomNumber_nextFloat64ex(RandomNumber* random) {
  const uint64_t high = RandomNumber_get(random) >> 5;
  return static_cast<double>(high << 26 | RandomNumber_get(random) >> 6) / 9007199254740992.0;
}
