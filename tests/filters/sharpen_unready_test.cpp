#include "filters/sharpen.h"
#include "support/pixel_scene.h"

namespace {

// An executor between construction and its start has no band to give: the caller does the work.
TEST(Sharpen, RunsInTheCallerBeforeTheExecutorStarts) {
  TestArena arena;
  ParallelExecutor unready;
  ASSERT_EQ(construct_ParallelExecutor(&unready, arena.env()), ZELVAN_OK);
  const TestImage src(40, 20, IMAGE_UINT8, 7);
  TestImage dst(40, 20, IMAGE_UINT8, 8), expected(40, 20, IMAGE_UINT8, 8);
  EXPECT_EQ(Tessal4ImageFunc_adaSharp5x5_uint8(nullptr, arena.env(), &expected, &src, 0.8, 0.2, 400, 0.1), ZELVAN_OK);
  EXPECT_EQ(Tessal4ImageFunc_adaSharp5x5_uint8(&unready, arena.env(), &dst, &src, 0.8, 0.2, 400, 0.1), ZELVAN_OK);
  EXPECT_TRUE(dst.sameBytes(expected));
  destruct_ParallelExecutor(&unready);
}

}  // namespace
