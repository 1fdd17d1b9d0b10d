#include "imageproc/render.h"

#include <cmath>

#include "imageproc/kernel_rig.h"
#include "parallel/syscall.h"

namespace {

Mvec8Real motionOf(const double (&h)[9]) {
  Mvec8Real motion = {};
  std::copy_n(h, 9, motion.h);
  return motion;
}

struct Corners {
  int32_t x[4], y[4];
};

Status byQuad(KernelRig& rig, Image* dst, const Image* src, const Corners& to, const Corners& from) {
  return ImageProc_render_with4Points(&rig.proc, dst, to.x, to.y, src, from.x, from.y);
}

// The forms with the motion that all of them can follow: one quad stands for the whole picture.
enum FormId { kTiles, kQuad, kPel };
Status run(FormId form, KernelRig& rig, Image* dst, const Image* src, const Mvec8Real& motion) {
  if (form == kTiles) return ImageProc_render(&rig.proc, dst, src, &motion);
  if (form == kPel) return ImageProc2_render(&rig.proc2, dst, src, &motion);
  Corners to = {}, from = {};
  for (const int32_t i : {0, 1, 2, 3}) {
    to.x[i] = i == 1 || i == 2 ? dst->width << 15 : 0;
    to.y[i] = i > 1 ? dst->height << 15 : 0;
    Mvec8Real_trans2DF32(&motion, &from.x[i], &from.y[i], to.x[i], to.y[i]);
  }
  return byQuad(rig, dst, src, to, from);
}

struct Case {
  FormId form;
  int32_t format;
};
constexpr Case kCases[] = {{kTiles, 27}, {kTiles, 29}, {kTiles, 57}, {kTiles, 4}, {kTiles, 15},
                           {kQuad, 27},  {kQuad, 29},  {kQuad, 57},  {kQuad, 9},  {kQuad, 58},
                           {kQuad, 61},  {kPel, 27},   {kPel, 29},   {kPel, 57},  {kPel, 61}};

// Whole shifts and the identity move pixels unchanged, wherever a corner of a tile lies inside.
TEST(Render, WholeShiftsMovePixels) {
  KernelRig rig(0);
  for (const auto& [form, format] : kCases) {
    const TestImage src(150, 170, format, 3, 8);
    TestImage dst(150, 170, format, 4, 8);
    std::vector<Plane> from = planesOf(src), expected = planesOf(dst);
    for (size_t p = 0; p < from.size(); ++p) {
      expected[p].fill([&](int32_t x, int32_t y, int32_t c) {
        const int32_t sx = x + (6 >> p), sy = y + (10 >> p);
        return from[p].holds(sx, sy) ? from[p].at(sx, sy, c) : expected[p].at(x, y, c);
      });
    }
    ASSERT_EQ(run(form, rig, &dst, &src, motionOf({1, 0, 6, 0, 1, 10, 0, 0, 1})), ZELVAN_OK);
    EXPECT_TRUE(planesOf(dst) == expected && dst.guardsUnchanged()) << "form " << form << " format " << format;
  }
}

// A smooth picture whose values between the pixels are known.
double scene(int32_t format, double x, double y, int32_t c) {
  const double peak = format == 58 ? 2e9 : format == 61 ? 65535 : 255;
  return (0.5 + 0.25 * std::sin(x / 9 + c) + 0.2 * std::cos(y / 11 - x / 40 + 2 * c)) * peak;
}

struct Picture : TestImage {
  Picture(int32_t w, int32_t h, int32_t id) : TestImage(w, h, id, 3, 8) {
    const std::vector<Plane> planes = planesOf(*this);
    for (int32_t p = 0; p < static_cast<int32_t>(planes.size()); ++p) {
      Plane plane = planes[p];
      plane.fill([&](int32_t x, int32_t y, int32_t c) {
        const auto value = static_cast<int32_t>(scene(id, x, y, c) + 0.5);
        memcpy(row(p, y) + (x * plane.channels + c) * sampleBytes(id), &value, static_cast<size_t>(sampleBytes(id)));
        return value;
      });
    }
  }
};

// A source position and its distance from the border of what is drawn, negative outside.
struct Truth {
  double x, y, room;
};
// Pixels are the scene at their source position, or as before, but for those within `doubt` of the border.
template <typename At>
void expectScene(const Plane& after, const Plane& before, int32_t format, double doubt, const At& at) {
  int32_t inside = 0, outside = 0, wrong = 0;
  Plane(after).fill([&](int32_t x, int32_t y, int32_t c) {
    const Truth truth = at(x, y);
    const auto value = static_cast<double>(after.edge(x, y, c));
    inside += truth.room > doubt;
    outside += truth.room < -doubt;
    const double bound = 2.5 * scene(format, 0, 0, 0) / scene(57, 0, 0, 0);  // counts of 8 bits
    wrong += truth.room > doubt && std::fabs(value - scene(format, truth.x, truth.y, c)) > bound;
    wrong += truth.room < -doubt && after.edge(x, y, c) != before.edge(x, y, c);
    return 0;
  });
  EXPECT_EQ(wrong, 0) << "of " << inside << " and " << outside;
  EXPECT_TRUE(inside > 3000 && outside > 1000) << inside << ' ' << outside;
}

TEST(Render, FollowsRotationAndPerspective) {
  KernelRigs rigs;
  const Mvec8Real motions[] = {motionOf({0.98, -0.17, 31, 0.17, 0.99, -22, 0, 0, 1}),  // rotation
                               motionOf({-2.2, 0.2, 280, -0.1, -1.8, 230, 0, 0, 2}),   // upside down, scaled
                               motionOf({1.01, 0.02, -9, -0.03, 0.97, 4, 2e-5, -3e-5, 1})};
  for (const Mvec8Real& motion : motions) {
    for (const auto& [form, format] : kCases) {
      if (form == kQuad && motion.h[6] != 0) continue;  // a single quad bends less than a perspective
      SCOPED_TRACE(testing::Message() << "form " << form << " format " << format << " h0 " << motion.h[0]);
      const Picture src(281, 233, format);
      TestImage dst(301, 203, format, 4, 8);
      const std::vector<Plane> before = planesOf(dst), from = planesOf(src);
      ASSERT_EQ(run(form, rigs.rigs[0], &dst, &src, motion), ZELVAN_OK);
      for (size_t p = 0; p < from.size(); ++p) {
        const double scale = p == 0 ? 1 : form == kPel ? 150.0 / 301 : 0.5;
        expectScene(planesOf(dst)[p], before[p], format, 2, [&](int32_t x, int32_t y) {
          double sx = 0, sy = 0;
          Mvec8Real_trans2DReal(&motion, &sx, &sy, x / scale, y / scale);
          sx *= scale, sy *= scale;
          return Truth{sx, sy, std::min({sx, sy, from[p].width - 1 - sx, from[p].height - 1 - sy})};
        });
      }
      for (const int32_t other : {1, 2}) {
        TestImage again(301, 203, format, 4, 8);
        ASSERT_EQ(run(form, rigs.rigs[other], &again, &src, motion), ZELVAN_OK);
        EXPECT_TRUE(again.sameBytes(dst));
      }
    }
  }
}

TEST(Render, TilesBehindThePlaneAreDropped) {
  KernelRig rig(0);
  const Mvec8Real motion = motionOf({0.1, 0, 0, 0, 0.1, 0, -0.005, 0, 1});  // W = 0 at column 200
  for (const auto& [form, format] : kCases) {
    if (form == kQuad) continue;
    const TestImage src(500, 200, format, 3, 8);
    TestImage dst(300, 60, format, 4, 8);
    const std::vector<Plane> before = planesOf(dst);
    ASSERT_EQ(run(form, rig, &dst, &src, motion), ZELVAN_OK);
    for (size_t p = 0; p < before.size(); ++p) {
      const Plane after = planesOf(dst)[p];
      int32_t last = -1;  // column that changed
      Plane(after).fill([&](int32_t x, int32_t y, int32_t c) {
        if (after.edge(x, y, c) != before[p].edge(x, y, c)) last = std::max(last, x);
        return 0;
      });
      EXPECT_EQ(last, ((form == kPel ? 192 : 128) >> p) - 1) << "form " << form << " format " << format;
    }
  }
}

TEST(Render, SwitchesFillAndClip) {
  KernelRig rig(0);
  for (int32_t bits = 0; bits < 48; ++bits) {
    const ImageProcRenderParam param = {bits & 1, bits & 2, bits & 4, bits & 8};
    const bool dropped = bits >= 32;
    const int32_t dx = dropped ? 40000 : 20, format = bits & 16 ? 12 : 29;
    const TestImage src(200, 150, format, 3, 8);
    TestImage dst(200, 150, format, 4, 8);
    const Mvec8Real motion = motionOf({1, 0, 1.0 * dx, 0, 1, 0, 0, 0, 1});
    std::vector<Plane> from = planesOf(src), expected = planesOf(dst);
    for (size_t p = 0; p < from.size(); ++p) {
      expected[p].fill([&](int32_t x, int32_t y, int32_t c) -> int64_t {
        const int32_t sx = x + (dx >> p), right = from[p].width - 1, bottom = from[p].height - 1;
        const bool clipped = (param.clipColumns && sx == right) || (param.clipRows && (y == 0 || y == bottom));
        if (!dropped && sx <= right && !clipped) return from[p].at(sx, y, c);
        return (dropped ? param.fillDropped : param.fillOutside) ? (p == 0 ? 0 : 128) : expected[p].at(x, y, c);
      });
    }
    ASSERT_EQ(ImageProc_render_wParam(&rig.proc, &param, &dst, &src, &motion), ZELVAN_OK);
    EXPECT_EQ(planesOf(dst), expected) << bits;
  }
}

TEST(Render, FourPointsFillASlantedQuad) {
  KernelRig rig(3);
  const Corners to = {{40 << 15, 150 << 15, 110 << 15, 12345}, {5 << 15, (30 << 15) + 777, 95 << 15, 60 << 15}};
  Corners from = to;
  for (const int32_t i : {0, 1, 2, 3}) {
    from.x[i] = to.x[i] / 2 + (20 << 15);
    from.y[i] = to.y[i] + (7 << 15) + to.x[i] / 8;
  }
  for (const int32_t format : {57, 61, 58, 7}) {
    const Picture src(160, 140, format);
    TestImage dst(120, 130, format, 4, 8);  // the right corner lies beyond
    const Plane before = planesOf(dst)[0];
    ASSERT_EQ(byQuad(rig, &dst, &src, to, from), ZELVAN_OK);
    expectScene(planesOf(dst)[0], before, format, 0.01, [&](int32_t x, int32_t y) {
      Truth truth = {x / 2.0 + 20, y + 7 + x / 8.0, 1e9};
      for (const int32_t i : {0, 1, 2, 3}) {
        const int32_t j = (i + 1) & 3;
        const double ex = (to.x[j] - to.x[i]) / 32768.0, ey = (to.y[j] - to.y[i]) / 32768.0;
        const double side = ex * (y - to.y[i] / 32768.0) - ey * (x - to.x[i] / 32768.0);
        truth.room = std::min(truth.room, side / std::hypot(ex, ey));
      }
      return truth;
    });
  }
  TestImage dst(30, 20, 57, 4), src(30, 20, 57);
  Corners bow = to, flat = to, far = from;
  std::swap(bow.x[2], bow.x[3]), std::swap(bow.y[2], bow.y[3]);
  std::fill_n(flat.y, 4, 9);
  far.x[2] = (1 << 30) + 1;
  EXPECT_EQ(byQuad(rig, &dst, &src, bow, from) & byQuad(rig, &dst, &src, flat, from), ZELVAN_ERROR_PARAM);
  EXPECT_EQ(byQuad(rig, &dst, &src, to, far), ZELVAN_OK);
  EXPECT_TRUE(dst.unchanged());
}

TEST(Render, Refusals) {
  const struct {
    FormId form;
    int32_t to, from, width;
    Status status;
  } cases[] = {{kTiles, 58, 58, 8, ZELVAN_ERROR_GENERAL},   {kTiles, 61, 61, 8, ZELVAN_ERROR_GENERAL},
               {kTiles, 27, 29, 8, ZELVAN_ERROR_GENERAL},   {kTiles, 57, 57, 0, ZELVAN_ERROR_PARAM},
               {kQuad, 26, 26, 8, ZELVAN_ERROR_GENERAL},    {kQuad, 63, 63, 8, ZELVAN_ERROR_GENERAL},
               {kPel, 58, 58, 8, ZELVAN_ERROR_UNSUPPORTED}, {kPel, 26, 26, 8, ZELVAN_ERROR_UNSUPPORTED},
               {kPel, 57, 27, 8, ZELVAN_ERROR_PARAM},       {kPel, 57, 57, 0, ZELVAN_ERROR_PARAM}};
  KernelRig rig(0);
  const Mvec8Real motion = motionOf({1, 0, 0, 0, 1, 0, 0, 0, 1});
  for (const auto& [form, to, from, width, status] : cases) {
    const TestImage src(8, 8, from);
    TestImage dst(width, 8, to, 2);
    EXPECT_EQ(run(form, rig, &dst, &src, motion), status) << form << ": " << to << " from " << from;
    EXPECT_TRUE(dst.unchanged());
    EXPECT_EQ(run(form, rig, &dst, nullptr, motion), ZELVAN_ERROR_PARAM);
  }
  KernelRig small(0, 4096);
  const TestImage src(4000, 4, 57);
  TestImage dst(4000, 4, 57, 2);
  constexpr ImageProcRenderParam kPlain = {};
  EXPECT_EQ(run(kTiles, small, &dst, &src, motion), ZELVAN_OK);
  EXPECT_EQ(ImageProc_render_wParam(&small.proc, &kPlain, &dst, &src, &motion), ZELVAN_ERROR_NOMEM);
  EXPECT_EQ(run(kPel, small, &dst, &src, motion), ZELVAN_ERROR_NOMEM);
  EXPECT_TRUE(dst.unchanged());
  // The announced size is enough for a worker on every processor.
  const auto announced = static_cast<uint32_t>(ImageProc2_getBufferSizeForRender(4000, 4));
  KernelRig every(Syscall_getNumberOfProcessors(nullptr), announced);
  EXPECT_EQ(run(kPel, every, &dst, &src, motion), ZELVAN_OK);
  EXPECT_FALSE(dst.unchanged());
}

}  // namespace
