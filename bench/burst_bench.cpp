// Time of each stage and of a whole burst, 8 frames, beside a plain copy of the same number of bytes, so that results
// read as ratios of one run. Nothing here passes or fails.
//
//   tessaline4_bench                      both sizes, all processors
//   tessaline4_bench --workers=1          with one worker
//   tessaline4_bench --cpu=avx2           with the row functions of that level: plain, avx2, avx512
//   tessaline4_bench --once=640x480       one burst by the library's road and one by the fine mode, nothing measured:
//                                         for tools that watch a process
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <map>

#include "api/tessal4_handle.h"
#include "base/cpu_level.h"
#include "support/burst.h"

namespace {

constexpr int32_t kFrames = 8;
const char* const kFormat = "YVU420_SEMIPLANAR";
int32_t workers = -1;

// A burst whose frames are tiles of one small scene, shifted from frame to frame by a few pixels.
std::vector<test::Frame> largeBurst(int32_t width, int32_t height) {
  constexpr int32_t kTile = 512;
  test::Frame tile = test::makeFrame(kFormat, kTile, kTile);
  test::fillFrame(&tile, kFormat, 0, 0, 6.0, 1);
  std::vector<test::Frame> frames;
  for (int32_t i = 0; i < kFrames; ++i) {
    frames.push_back(test::makeFrame(kFormat, width, height));
    uint8_t* out = frames.back().bytes.data();
    const int32_t shift = 2 * i;
    const auto copyRows = [&](size_t from, int32_t rows, int32_t down) {
      for (int32_t y = 0; y < rows; ++y) {
        const uint8_t* row =
            tile.bytes.data() + from + static_cast<size_t>((y + down) % (rows == height ? kTile : kTile / 2)) * kTile;
        for (int32_t x = 0; x < width; ++x) *out++ = row[(x + shift) % kTile];
      }
    };
    copyRows(0, height, shift);
    copyRows(size_t{kTile} * kTile, height / 2, shift / 2);
  }
  return frames;
}

const std::vector<test::Frame>& burstOf(int32_t width, int32_t height) {
  static std::map<int32_t, std::vector<test::Frame>> bursts;
  auto [at, fresh] = bursts.try_emplace(width);
  if (fresh) at->second = largeBurst(width, height);
  return at->second;
}

// An instance with its burst, to be taken through the stages.
struct Run {
  zelvan_Tessaline4 handle = {nullptr};
  std::vector<uint8_t> memory;
  std::vector<test::Frame> frames;
  test::Frame output;
  int32_t order[kTessal4Frames] = {};

  Run(int32_t width, int32_t height, bool strong, int32_t fine = 0)
      : memory(static_cast<size_t>(zelvan_Tessaline4_getBufferSize(width, height, kFrames, kFormat))),
        frames(test::copyBurst(burstOf(width, height))),
        output(test::makeFrame(kFormat, width, height)) {
    check(zelvan_Tessaline4_initialize(&handle, memory.data(), static_cast<int32_t>(memory.size()), width, height));
    check(zelvan_Tessaline4_setCoreSetting(&handle, workers, 0));
    if (strong) {
      check(zelvan_Tessaline4_setLumaNoiseReductionLevel(&handle, 4));
      check(zelvan_Tessaline4_setChromaNoiseReductionLevel(&handle, 4));
    }
    check(zelvan_Tessaline4_setFineMode(&handle, fine));
    check(zelvan_Tessaline4_start(&handle, &output.data, kFrames));
  }
  ~Run() { zelvan_Tessaline4_finalize(&handle); }

  static void check(uint32_t status) {
    if (status != ZELVAN_TESSALINE4_OK) std::abort();
  }
  Tessal4* engine() { return &handle.pointer->engine; }
  // The frames' pixels come back, since a merge changes them.
  void rewind() {
    const std::vector<test::Frame>& fresh = burstOf(output.data.width, output.data.height);
    for (size_t i = 0; i < frames.size(); ++i) {
      std::memcpy(frames[i].bytes.data(), fresh[i].bytes.data(), fresh[i].bytes.size());
    }
    check(zelvan_Tessaline4_reset(&handle));
  }
  void intake() {
    for (test::Frame& frame : frames) check(zelvan_Tessaline4_addImage(&handle, &frame.data));
  }
  void solve() {
    check(Tessal4_getRecommendedOrder(engine(), order, nullptr));
    check(Tessal4_solve(engine(), order[0]));
  }
  void merge() { check(Tessal4_merge(engine(), handle.pointer->frames, order, kFrames)); }
  void finish() { check(Tessal4_noiseReduction(engine())); }
  void weakChroma() {
    check(zelvan_Tessaline4Internal_weakUvNr(engine(), &handle.pointer->output, &handle.pointer->output, nullptr,
                                             &handle.pointer->weakUvNrParams));
  }
};

using Stage = void (Run::*)();
constexpr Stage kRoad[] = {&Run::intake, &Run::solve, &Run::merge, &Run::finish, &Run::weakChroma};

// Runs the road up to the stage untimed, then the stage timed.
void stageBench(benchmark::State& state, int32_t stage, bool strong) {
  Run run(static_cast<int32_t>(state.range(0)), static_cast<int32_t>(state.range(1)), strong);
  for (auto _ : state) {
    state.PauseTiming();
    run.rewind();
    for (int32_t i = 0; i < stage; ++i) (run.*kRoad[i])();
    state.ResumeTiming();
    (run.*kRoad[stage])();
  }
}

void wholeBench(benchmark::State& state) {
  Run run(static_cast<int32_t>(state.range(0)), static_cast<int32_t>(state.range(1)), true);
  for (auto _ : state) {
    state.PauseTiming();
    run.rewind();
    state.ResumeTiming();
    for (const Stage stage : kRoad) (run.*stage)();
  }
}

// The fine mode, whole and by its three stages.
void fineBench(benchmark::State& state) {
  Run run(static_cast<int32_t>(state.range(0)), static_cast<int32_t>(state.range(1)), false, 1);
  for (auto _ : state) {
    state.PauseTiming();
    run.rewind();
    state.ResumeTiming();
    run.intake();
    Run::check(zelvan_Tessaline4_getResult(&run.handle));
  }
}
void fineIntakeBench(benchmark::State& state) {
  Run run(static_cast<int32_t>(state.range(0)), static_cast<int32_t>(state.range(1)), false, 1);
  for (auto _ : state) {
    state.PauseTiming();
    run.rewind();
    state.ResumeTiming();
    run.intake();
  }
}
void fineAlignBench(benchmark::State& state) {
  Run run(static_cast<int32_t>(state.range(0)), static_cast<int32_t>(state.range(1)), false, 1);
  for (auto _ : state) {
    state.PauseTiming();
    run.rewind();
    run.intake();
    state.ResumeTiming();
    Run::check(zelvan_Tessaline4_merge(&run.handle));
  }
}
void fineRenderBench(benchmark::State& state) {
  Run run(static_cast<int32_t>(state.range(0)), static_cast<int32_t>(state.range(1)), false, 1);
  for (auto _ : state) {
    state.PauseTiming();
    run.rewind();
    run.intake();
    Run::check(zelvan_Tessaline4_merge(&run.handle));
    state.ResumeTiming();
    Run::check(zelvan_Tessaline4_enhance(&run.handle));
  }
}

// What everything is measured against: the burst's bytes, copied once.
void copyBench(benchmark::State& state) {
  const std::vector<test::Frame>& burst =
      burstOf(static_cast<int32_t>(state.range(0)), static_cast<int32_t>(state.range(1)));
  std::vector<test::Frame> to = test::copyBurst(burst);
  for (auto _ : state) {
    for (size_t i = 0; i < burst.size(); ++i) {
      std::memcpy(to[i].bytes.data(), burst[i].bytes.data(), burst[i].bytes.size());
    }
    benchmark::ClobberMemory();
  }
}

void sizes(benchmark::internal::Benchmark* bench) {
  bench->Args({1280, 960})->Args({4000, 3000})->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(4);
}

}  // namespace

BENCHMARK(copyBench)->Name("copy")->Apply(sizes);
BENCHMARK_CAPTURE(stageBench, intake, 0, true)->Name("intake")->Apply(sizes);
BENCHMARK_CAPTURE(stageBench, solve, 1, true)->Name("solve")->Apply(sizes);
BENCHMARK_CAPTURE(stageBench, merge, 2, true)->Name("merge")->Apply(sizes);
BENCHMARK_CAPTURE(stageBench, finish, 3, false)->Name("finish, library defaults")->Apply(sizes);
BENCHMARK_CAPTURE(stageBench, finishStrong, 3, true)->Name("finish, noise reduction level 4")->Apply(sizes);
BENCHMARK_CAPTURE(stageBench, weakChroma, 4, true)->Name("weak chroma")->Apply(sizes);
BENCHMARK(wholeBench)->Name("whole burst")->Apply(sizes);
BENCHMARK(fineIntakeBench)->Name("fine intake")->Apply(sizes);
BENCHMARK(fineAlignBench)->Name("fine alignment and weights")->Apply(sizes);
BENCHMARK(fineRenderBench)->Name("fine rendering")->Apply(sizes);
BENCHMARK(fineBench)->Name("fine whole burst")->Apply(sizes);

namespace {

// Takes "--name=value" out of the arguments; null where it is missing.
const char* takeOption(int* argc, char** argv, const char* option) {
  const size_t length = std::strlen(option);
  for (int i = 1; i < *argc; ++i) {
    if (std::strncmp(argv[i], option, length) != 0) continue;
    const char* value = argv[i] + length;
    for (int j = i; j + 1 < *argc; ++j) argv[j] = argv[j + 1];
    --*argc;
    return value;
  }
  return nullptr;
}

bool forceLevel(const char* name) {
  for (int32_t level = 0; level < CPU_LEVELS; ++level) {
    const auto wanted = static_cast<CpuLevel>(level);
    if (std::strcmp(name, cpuLevelName(wanted)) == 0) return setCpuLevel(wanted);
  }
  return false;
}

// Both roads, once.
bool runOnce(const char* size) {
  char* rest = nullptr;
  const auto width = static_cast<int32_t>(std::strtol(size, &rest, 10));
  const auto height = *rest == 'x' ? static_cast<int32_t>(std::strtol(rest + 1, &rest, 10)) : 0;
  if (*rest != 0 || width < 64 || height < 64) return false;
  for (const int32_t fine : {0, 1}) {
    Run run(width, height, fine == 0, fine);
    run.intake();
    Run::check(zelvan_Tessaline4_getResult(&run.handle));
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (const char* count = takeOption(&argc, argv, "--workers=")) workers = std::atoi(count);
  if (const char* level = takeOption(&argc, argv, "--cpu="); level != nullptr && !forceLevel(level)) return 1;
  if (const char* size = takeOption(&argc, argv, "--once=")) return runOnce(size) ? 0 : 1;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
