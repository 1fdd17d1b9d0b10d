// Time of each stage and of a whole burst by each road, beside a plain copy of the frames' bytes, so that results read
// as ratios of one run (the counter "copies"). A time is the least of some rounds. Nothing here passes or fails.
//
//   tessaline4_bench                          8 frames of 1.2 and 12 megapixels, all processors
//   --sizes=4000x3000,8000x6000 --frames=2,8 --workers=1,2
//                                             each with each
//   --rounds=9                                how many rounds; 20 for small pictures and 5 for others if missing
//   --cpu=avx2                                with the row functions of that level: plain, avx2, avx512
//   --once=640x480                            one burst by the library's road and one by the fine mode, nothing
//                                             measured: for tools that watch a process
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>

#include "api/tessal4_handle.h"
#include "base/cpu_level.h"
#include "support/burst.h"

namespace {

constexpr int32_t kDefaultFrames = 8;
const char* const kFormat = "YVU420_SEMIPLANAR";
int32_t rounds = 0;

// A burst whose frames are tiles of one small scene, shifted from frame to frame by a few pixels.
std::vector<test::Frame> largeBurst(int32_t width, int32_t height, int32_t count) {
  constexpr int32_t kTile = 512;
  test::Frame tile = test::makeFrame(kFormat, kTile, kTile);
  test::fillFrame(&tile, kFormat, 0, 0, 6.0, 1);
  std::vector<test::Frame> frames;
  for (int32_t i = 0; i < count; ++i) {
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

// One burst is kept, that of the last call.
const std::vector<test::Frame>& burstOf(int32_t width, int32_t height, int32_t count) {
  static std::vector<test::Frame> burst;
  if (burst.size() != static_cast<size_t>(count) || burst[0].data.width != width || burst[0].data.height != height) {
    burst = largeBurst(width, height, count);
  }
  return burst;
}

// An instance with its burst, to be taken through the stages.
struct Run {
  zelvan_Tessaline4 handle = {nullptr};
  std::vector<uint8_t> memory;
  std::vector<test::Frame> frames;
  test::Frame output;
  int32_t order[kTessal4Frames] = {};

  Run(int32_t width, int32_t height, int32_t count, int32_t workers, bool strong, bool fine)
      : memory(static_cast<size_t>(zelvan_Tessaline4_getBufferSize(width, height, count, kFormat))),
        frames(test::copyBurst(burstOf(width, height, count))),
        output(test::makeFrame(kFormat, width, height)) {
    check(zelvan_Tessaline4_initialize(&handle, memory.data(), static_cast<int32_t>(memory.size()), width, height));
    check(zelvan_Tessaline4_setCoreSetting(&handle, workers, 0));
    if (strong) {
      check(zelvan_Tessaline4_setLumaNoiseReductionLevel(&handle, 4));
      check(zelvan_Tessaline4_setChromaNoiseReductionLevel(&handle, 4));
    }
    check(zelvan_Tessaline4_setFineMode(&handle, fine ? 1 : 0));
    check(zelvan_Tessaline4_start(&handle, &output.data, count));
  }
  ~Run() { zelvan_Tessaline4_finalize(&handle); }

  static void check(uint32_t status) {
    if (status != ZELVAN_TESSALINE4_OK) std::abort();
  }
  Tessal4* engine() { return &handle.pointer->engine; }
  // The frames' pixels come back, since a merge changes them.
  void copyFrames() {
    const std::vector<test::Frame>& fresh =
        burstOf(output.data.width, output.data.height, static_cast<int32_t>(frames.size()));
    for (size_t i = 0; i < frames.size(); ++i) {
      std::memcpy(frames[i].bytes.data(), fresh[i].bytes.data(), fresh[i].bytes.size());
    }
  }
  void reset() { check(zelvan_Tessaline4_reset(&handle)); }
  void intake() {
    for (test::Frame& frame : frames) check(zelvan_Tessaline4_addImage(&handle, &frame.data));
  }
  void solve() {
    check(Tessal4_getRecommendedOrder(engine(), order, nullptr));
    check(Tessal4_solve(engine(), order[0]));
  }
  void merge() { check(Tessal4_merge(engine(), handle.pointer->frames, order, handle.pointer->mergeCount)); }
  void mergeFine() { check(zelvan_Tessaline4_merge(&handle)); }
  void renderFine() { check(zelvan_Tessaline4_enhance(&handle)); }
  void finish() { check(Tessal4_noiseReduction(engine())); }
  void weakChroma() {
    check(zelvan_Tessaline4Internal_weakUvNr(engine(), &handle.pointer->output, &handle.pointer->output, nullptr,
                                             &handle.pointer->weakUvNrParams));
  }
};

enum Road { kStrong, kDefaults, kFine };  // noise reduction level 4, the library's defaults, the fine mode

using Stage = void (Run::*)();
struct NamedStage {
  const char* name;  // null: not shown
  Stage stage;
};
const std::vector<NamedStage> kRoads[] = {
    {{"intake", &Run::intake},
     {"solve", &Run::solve},
     {"merge", &Run::merge},
     {"finish, noise reduction level 4", &Run::finish},
     {"weak chroma", &Run::weakChroma}},
    {{nullptr, &Run::intake},
     {nullptr, &Run::solve},
     {nullptr, &Run::merge},
     {"finish, library defaults", &Run::finish}},
    {{"fine intake", &Run::intake},
     {"fine alignment and weights", &Run::mergeFine},
     {"fine rendering", &Run::renderFine}},
};

struct Setup {
  Road road;
  int32_t width, height, frames, workers;
  auto operator<=>(const Setup&) const = default;
};

template <typename Work>
double secondsOf(const Work& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// Seconds of each stage, of the whole burst, and of the copy that everything is measured against: the least of all
// rounds, since whatever else the machine does only adds.
const std::vector<double>& measure(const Setup& setup) {
  static std::map<Setup, std::vector<double>> known;
  auto [at, fresh] = known.try_emplace(setup);
  if (!fresh) return at->second;
  const std::vector<NamedStage>& stages = kRoads[setup.road];
  std::vector<double>& least = at->second;
  least.assign(stages.size() + 2, 1e9);
  Run run(setup.width, setup.height, setup.frames, setup.workers, setup.road == kStrong, setup.road == kFine);
  const int32_t most = rounds > 0 ? rounds : setup.width < 2000 ? 20 : 5;
  for (int32_t round = 0; round < most; ++round) {
    std::vector<double> now;
    const double copy = secondsOf([&] { run.copyFrames(); });
    run.reset();
    double whole = 0.0;
    for (const NamedStage& stage : stages) whole += now.emplace_back(secondsOf([&] { (run.*stage.stage)(); }));
    now.insert(now.end(), {whole, copy});
    for (size_t i = 0; i < now.size(); ++i) least[i] = std::min(least[i], now[i]);
  }
  return least;
}

void show(const std::string& name, const Setup& setup, size_t index, bool isCopy = false) {
  const std::string full = name + "/" + std::to_string(setup.width) + "x" + std::to_string(setup.height) +
                           "/frames:" + std::to_string(setup.frames) + "/workers:" + std::to_string(setup.workers);
  benchmark::RegisterBenchmark(full.c_str(),
                               [=](benchmark::State& state) {
                                 const std::vector<double>& least = measure(setup);
                                 for (auto _ : state) state.SetIterationTime(isCopy ? least.back() : least[index]);
                                 state.counters["copies"] = (isCopy ? least.back() : least[index]) / least.back();
                               })
      ->UseManualTime()
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
}

void showAll(int32_t width, int32_t height, int32_t frames, int32_t count) {
  for (const Road road : {kStrong, kDefaults, kFine}) {
    const Setup setup = {road, width, height, frames, count};
    const std::vector<NamedStage>& stages = kRoads[road];
    if (road == kStrong) show("copy", setup, 0, true);
    for (size_t i = 0; i < stages.size(); ++i) {
      if (stages[i].name != nullptr) show(stages[i].name, setup, i);
    }
    if (road != kDefaults) show(road == kFine ? "fine whole burst" : "whole burst", setup, stages.size());
  }
}

// Takes "--name=value" out of the arguments; fallback where it is missing.
std::string takeOption(int* argc, char** argv, const std::string& option, const std::string& fallback = "") {
  for (int i = 1; i < *argc; ++i) {
    if (std::strncmp(argv[i], option.c_str(), option.size()) != 0) continue;
    const std::string value = argv[i] + option.size();
    for (int j = i; j + 1 < *argc; ++j) argv[j] = argv[j + 1];
    --*argc;
    return value;
  }
  return fallback;
}

std::vector<std::string> parts(const std::string& list) {
  std::vector<std::string> out;
  std::istringstream in(list);
  for (std::string part; std::getline(in, part, ',');) out.push_back(part);
  return out;
}

// "4000x3000", no side below 64 pixels.
bool parseSize(const std::string& text, int32_t* width, int32_t* height) {
  char end = 0;
  return std::sscanf(text.c_str(), "%dx%d%c", width, height, &end) == 2 && *width >= 64 && *height >= 64;
}

bool forceLevel(const std::string& name) {
  for (int32_t level = 0; level < CPU_LEVELS; ++level) {
    const auto wanted = static_cast<CpuLevel>(level);
    if (name == cpuLevelName(wanted)) return setCpuLevel(wanted);
  }
  return false;
}

// Both roads, once.
void runOnce(int32_t width, int32_t height, int32_t workers) {
  for (const bool fine : {false, true}) {
    Run run(width, height, kDefaultFrames, workers, !fine, fine);
    run.intake();
    Run::check(zelvan_Tessaline4_getResult(&run.handle));
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string level = takeOption(&argc, argv, "--cpu=");
  const std::string once = takeOption(&argc, argv, "--once=");
  const std::string sizes = takeOption(&argc, argv, "--sizes=", "1280x960,4000x3000");
  const std::string frames = takeOption(&argc, argv, "--frames=", std::to_string(kDefaultFrames));
  const std::string workers = takeOption(&argc, argv, "--workers=", "-1");
  rounds = std::atoi(takeOption(&argc, argv, "--rounds=").c_str());
  if (!level.empty() && !forceLevel(level)) return 1;
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  for (const std::string& size : parts(once.empty() ? sizes : once)) {
    int32_t width = 0, height = 0;
    if (!parseSize(size, &width, &height)) return 1;
    for (const std::string& count : parts(workers)) {
      if (!once.empty()) runOnce(width, height, std::atoi(count.c_str()));
      for (const std::string& n : parts(frames)) {
        if (std::atoi(n.c_str()) < 1 || std::atoi(n.c_str()) > kTessal4Frames) return 1;
        if (once.empty()) showAll(width, height, std::atoi(n.c_str()), std::atoi(count.c_str()));
      }
    }
  }
  if (once.empty()) benchmark::RunSpecifiedBenchmarks();
  return 0;
}
