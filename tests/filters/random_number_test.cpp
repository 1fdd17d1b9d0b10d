#include "filters/random_number.h"

#include <random>
#include <sstream>

#include "support/test_arena.h"

namespace {

TEST(RandomNumber, TypeOneIsTheMersenneTwister) {
  TestArena arena;
  RandomNumber random;
  construct_RandomNumber(&random, arena.env());
  ASSERT_EQ(RandomNumber_init(&random, 0), ZELVAN_OK);  // a seed of 0 gives a state, too
  std::stringstream state;
  for (int32_t i = 0; i < 624; ++i) state << random.state[i] << ' ';
  state << 624;  // all words are to be made anew
  std::mt19937 twister;
  state >> twister;
  ASSERT_FALSE(state.fail());
  for (int32_t i = 0; i < 3000; ++i) ASSERT_EQ(RandomNumber_get(&random), twister()) << i;
  for (int32_t i = 0; i < 1000; ++i) {
    const int32_t value = RandomNumber_nextInt32(&random, -3, 2);
    ASSERT_GE(value, -3);
    ASSERT_LE(value, 2);
    ASSERT_LT(RandomNumber_nextFloat32ex(&random), 1.0f);
    ASSERT_LE(RandomNumber_nextFloat32(&random), 1.0f);
    ASSERT_LT(RandomNumber_nextFloat64ex(&random), 1.0);
    ASSERT_LE(RandomNumber_nextFloat64(&random), 1.0);
  }
  EXPECT_EQ(destruct_RandomNumber(&random), ZELVAN_OK);
}

TEST(RandomNumber, TypeZeroWrapsItsMiddleOffset) {
  TestArena arena;
  RandomNumber random;
  construct_RandomNumber(&random, arena.env());
  random.type = 2;
  EXPECT_EQ(RandomNumber_init(&random, 1), ZELVAN_ERROR_GENERAL);
  random.type = 0;
  ASSERT_EQ(RandomNumber_init(&random, 1), ZELVAN_OK);
  double sum = 0;
  for (int32_t i = 0; i < 20000; ++i) sum += RandomNumber_nextFloat64ex(&random);
  EXPECT_NEAR(sum / 20000, 0.5, 0.01);
  EXPECT_EQ(destruct_RandomNumber(&random), ZELVAN_OK);
}

TEST(RandomNumber, StatesItsMemory) {
  EXPECT_EQ(RandomNumber_getBufferSize(1), (624 + 4096) * 4);
  EXPECT_EQ(RandomNumber_getBufferSize(0), (351 + 4096) * 4);
  EXPECT_EQ(RandomNumber_getBufferSize(2), -1);
}

}  // namespace
