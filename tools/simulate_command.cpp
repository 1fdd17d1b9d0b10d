#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>

#include "burst_folder.h"
#include "commands.h"
#include "image_file.h"
#include "options.h"
#include "output_file.h"
#include "truth.h"
#include "yardstick.h"

namespace tool {
namespace {

struct Options {
  std::string scene;
  bool builtIn = false;
  std::string folder;
  std::string size = "1280x960";
  std::string noise = "medium";
  FrameStorage storage;
  bool averages = false;
  Existing existing = Existing::kReplace;
  Simulation simulation;
};

struct NoiseLevel {
  double shot;
  double read;
};
const std::map<std::string, NoiseLevel> kNoiseLevels = {
    {"none", {0, 0}}, {"low", {0.15, 1.5}}, {"medium", {0.7, 4}}, {"high", {1.6, 6}}};

std::string numbered(const char* stem, size_t i, const std::string& ending) {
  char name[64];
  std::snprintf(name, sizeof(name), "%s%02zu.%s", stem, i, ending.c_str());
  return name;
}

// The files of frame i.
TruthFrame filesOf(size_t i, bool blurred, bool masked, const Options& o) {
  TruthFrame told;
  told.file = numbered("frame", i, o.storage.format);
  told.clean = numbered("clean", i, "png");
  if (blurred) told.sharp = numbered("sharp", i, "png");
  if (masked) told.mask = numbered("mask", i, "png");
  if (o.averages) told.average = numbered("average", i, "png");
  return told;
}

// All files that the folder gets.
std::vector<std::string> namesOf(const std::vector<TruthFrame>& frames) {
  std::vector<std::string> names = {"truth.json"};
  for (const TruthFrame& frame : frames) {
    for (const std::string& name : {frame.file, frame.clean, frame.sharp, frame.mask, frame.average}) {
      if (!name.empty()) names.push_back(name);
    }
  }
  return names;
}

void run(const Options& o, const CLI::App& command) {
  Simulation s = o.simulation;
  const PictureSize size = parseSize(o.size);
  s.width = size.width;
  s.height = size.height;
  const NoiseLevel level = kNoiseLevels.at(o.noise);
  if (command.count("--shot-noise") == 0) s.noise.shot = level.shot;
  if (command.count("--read-noise") == 0) s.noise.read = level.read;
  if (o.builtIn != o.scene.empty()) throw Error("name a photograph or take --built-in, not both");
  for (const auto& special : {s.blurredFrame, s.foreignFrame}) {
    if (special && *special >= s.frames) throw Error("there is no frame " + std::to_string(*special) + " to change");
  }

  // Which frame would be the sharpest is not known yet.
  std::vector<TruthFrame> possible;
  for (int32_t i = 0; i < s.frames; ++i) {
    possible.push_back(
        filesOf(static_cast<size_t>(i), s.blurSharpest || s.blurredFrame == i, s.layers > 0 && s.foreignFrame != i, o));
  }
  checkBurstFolder(o.folder, namesOf(possible), o.builtIn ? std::vector<std::string>() : std::vector{o.scene},
                   o.existing);

  const RgbPicture scene = o.builtIn ? builtInScene(s.width, s.height, s.seed) : readRgb(o.scene);
  if (scene.width < s.width || scene.height < s.height) {
    throw Error(o.scene, "is smaller than the frames of " + o.size);
  }
  const RgbPicture foreign = s.foreignFrame ? builtInScene(s.width, s.height, s.seed + 7919) : RgbPicture{};
  const SimulatedBurst burst = simulateBurst(scene, foreign, s);

  Truth truth;
  truth.folder = o.folder;
  truth.width = s.width;
  truth.height = s.height;
  truth.seed = s.seed;
  truth.noise = s.noise;
  truth.storage = o.storage;
  for (size_t i = 0; i < burst.frames.size(); ++i) {
    const SimulatedFrame& frame = burst.frames[i];
    TruthFrame told = filesOf(i, !frame.sharp.y.empty(), !frame.seenByAll.empty(), o);
    told.motion = frame.motion;
    told.usable = !frame.foreign && frame.sharp.y.empty();
    truth.frames.push_back(told);
  }
  const std::vector<std::string> names = namesOf(truth.frames);
  prepareBurstFolder(o.folder, names);
  for (size_t i = 0; i < burst.frames.size(); ++i) {
    const SimulatedFrame& frame = burst.frames[i];
    const TruthFrame& told = truth.frames[i];
    const auto put = [&](const std::string& name, const Picture& picture, const FrameStorage& storage) {
      writeFrame(o.folder + "/" + name, picture, storage);
    };
    put(told.file, frame.noisy, o.storage);
    put(told.clean, frame.clean, {});
    if (!told.sharp.empty()) put(told.sharp, frame.sharp, {});
    if (!told.mask.empty()) {
      Picture mask(s.width, s.height);
      mask.y = frame.seenByAll;
      put(told.mask, mask, {});
    }
    if (!told.average.empty()) {
      const Picture& shown = told.sharp.empty() ? frame.clean : frame.sharp;
      put(told.average, alignedAverage(shown, truth.noise, truth.storage, truth.framesToAverage(), truth.seed), {});
    }
  }
  writeTruth(truth, o.builtIn ? "built-in" : o.scene, s, burst);
  recordBurstFolder(o.folder, names);
}

}  // namespace

void addSimulateCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("simulate", "Make a hand-held burst whose truth is known");
  const auto o = std::make_shared<Options>();
  command->add_option("SCENE", o->scene, "Photograph to take the burst of, JPEG or PNG");
  command->add_flag("--built-in", o->builtIn, "Take the built-in scene instead of a photograph");
  command->add_option("-o,--output", o->folder, "Folder for the frames, the clean frames and truth.json")
      ->required()
      ->type_name("DIR");
  addNoOverwrite(*command, &o->existing);
  command->add_option("--size", o->size, "Size of the frames (default 1280x960)")->type_name("WxH");
  command->add_option("--frames", o->simulation.frames, "Number of frames (default 8)")->check(CLI::Range(1, 10));
  command->add_option("--seed", o->simulation.seed, "Another seed gives another burst (default 1)");
  command->add_option("--noise", o->noise, "none, low, medium or high (default medium)")
      ->check(CLI::IsMember({"none", "low", "medium", "high"}))
      ->type_name("LEVEL");
  command->add_option("--shot-noise", o->simulation.noise.shot, "Variance of the noise per unit of brightness")
      ->check(CLI::Range(0.0, kMostNoise));
  command->add_option("--read-noise", o->simulation.noise.read, "Standard deviation of the noise of black")
      ->check(CLI::Range(0.0, kMostNoise));
  command
      ->add_option("--grain", o->simulation.noise.grain,
                   "Noise of neighbours is alike over so many pixels, as blurred by a Gaussian (0.8 unless told)")
      ->expected(0, 1)
      ->default_str("0.8")
      ->type_name("PIXELS")
      ->check(CLI::Range(0.0, kMostGrain));
  command->add_option("--shift", o->simulation.shift, "Shake: largest shift from frame to frame, share of the width")
      ->check(CLI::Range(0.0, 0.1));
  command
      ->add_option("--shake", o->simulation.scatter,
                   "Instead of --shift: frames lie anywhere in a square of this share of the width (0.1 unless told)")
      ->expected(0, 1)
      ->default_str("0.1")
      ->check(CLI::Range(0.0, 0.3));
  command->add_option("--rotation", o->simulation.rotation, "Shake: largest rotation, in degrees")
      ->check(CLI::Range(0.0, 10.0));
  command->add_option("--zoom", o->simulation.zoom, "Shake: largest change of scale")->check(CLI::Range(0.0, 0.1));
  command
      ->add_option("--blurred-frame", o->simulation.blurredFrame,
                   "This frame is blurred by motion (frame 2 unless told)")
      ->expected(0, 1)
      ->default_str("2")
      ->check(CLI::Range(0, 9));
  command->add_option("--blur-length", o->simulation.blurLength, "Length of that blur in pixels (default 9)")
      ->check(CLI::Range(1.0, 100.0));
  command->add_flag("--blur-base", o->simulation.blurSharpest,
                    "The frame that would be the sharpest is blurred by motion");
  command->add_flag("--moving-object", o->simulation.movingObject, "An object crosses the scene");
  command->add_flag("--insect", o->simulation.insect, "A small dark thing darts about the scene");
  command->add_option("--layers", o->simulation.layers, "So many parts of the scene are nearer than the rest")
      ->check(CLI::Range(0, 20));
  command
      ->add_option("--parallax", o->simulation.parallax,
                   "Shift of the nearest part against the rest from frame to frame, at most, share of the width "
                   "(default 0.006)")
      ->check(CLI::Range(0.0, 0.1));
  command
      ->add_option("--rolling-shutter", o->simulation.rollingShutter,
                   "Rows of a frame are shifted against each other by so many pixels at most (default 0)")
      ->type_name("PIXELS")
      ->check(CLI::Range(0.0, 100.0));
  command->add_option("--drift", o->simulation.drift, "Brightness of the frames differs by so much at most (default 0)")
      ->type_name("PERCENT")
      ->check(CLI::Range(0.0, 50.0));
  command
      ->add_option("--foreign-frame", o->simulation.foreignFrame,
                   "This frame shows another scene (frame 3 unless told)")
      ->expected(0, 1)
      ->default_str("3")
      ->check(CLI::Range(0, 9));
  command->add_option("--frame-format", o->storage.format, "png, jpg or nv21 (default png)")
      ->check(CLI::IsMember(frameFormats()))
      ->type_name("FORMAT");
  command->add_option("--jpeg-quality", o->storage.jpegQuality, "Quality of JPEG frames (default 95)")
      ->check(CLI::Range(1, 100));
  command->add_flag("--averages", o->averages,
                    "Write average00.png, ..., too: the mean of noisy frames that show exactly what this frame shows");
  command->footer(
      "Frames are frame00, frame01, ...; clean00.png, ... are the same without noise, sharp02.png the same\n"
      "without the blur of a blurred frame, and white pixels of mask00.png are seen by all frames of a scene with\n"
      "layers. Frame numbers begin at 0.\n\n"
      "Example: tessaline4 simulate photo.jpg -o burst --frames 8 --noise high --moving-object");
  command->callback([o, command] { orOutOfMemory(o->folder, [&] { run(*o, *command); }); });
}

}  // namespace tool
