#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>

#include "burst_folder.h"
#include "commands.h"
#include "file_io.h"
#include "image_file.h"
#include "image_file_kinds.h"
#include "options.h"
#include "output_file.h"
#include "truth.h"

namespace tool {
namespace {

struct Options {
  std::string scene;
  bool builtIn = false;
  std::string folder;
  std::string size = "1280x960";
  std::string noise = "medium";
  std::string frameFormat = "png";
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

// For a PNG that reads back as the same 4:2:0 planes, but for rounding and clipping: the usual way to RGB blends each
// chroma sample with its neighbours, which would take half of the chroma noise away.
RgbPicture rgbOfPlanes(const Picture& picture) {
  RgbPicture rgb{picture.width, picture.height, {}};
  rgb.pixels.reserve(3 * picture.y.size());
  for (size_t i = 0; i < picture.y.size(); ++i) {
    const size_t x = i % static_cast<size_t>(picture.width);
    const size_t y = i / static_cast<size_t>(picture.width);
    const size_t pair = y / 2 * static_cast<size_t>(picture.chromaWidth()) + x / 2;
    const double u = picture.u[pair] - 128.0;
    const double v = picture.v[pair] - 128.0;
    for (const double offset : {1.402 * v, -0.344136 * u - 0.714136 * v, 1.772 * u}) {
      rgb.pixels.push_back(static_cast<uint8_t>(std::clamp(picture.y[i] + offset + 0.5, 0.0, 255.0)));
    }
  }
  return rgb;
}

void write(const std::string& path, const Picture& picture) {
  if (endingOf(path) == "png") {
    writeFile(path, encodePng(path, rgbOfPlanes(picture)));
  } else {
    writePicture(path, picture);
  }
}

void run(const Options& o, const CLI::App& command) {
  Simulation s = o.simulation;
  const PictureSize size = parseSize(o.size);
  s.width = size.width;
  s.height = size.height;
  const NoiseLevel level = kNoiseLevels.at(o.noise);
  if (command.count("--shot-noise") == 0) s.shotNoise = level.shot;
  if (command.count("--read-noise") == 0) s.readNoise = level.read;
  if (o.builtIn != o.scene.empty()) throw Error("name a photograph or take --built-in, not both");
  for (const auto& special : {s.blurredFrame, s.foreignFrame}) {
    if (special && *special >= s.frames) throw Error("there is no frame " + std::to_string(*special) + " to change");
  }

  std::vector<std::string> names = {"truth.json"};
  for (size_t i = 0; i < static_cast<size_t>(s.frames); ++i) {
    names.insert(names.end(), {numbered("frame", i, o.frameFormat), numbered("clean", i, "png")});
  }
  checkBurstFolder(o.folder, names, o.builtIn ? std::vector<std::string>() : std::vector{o.scene}, o.existing);

  const RgbPicture scene = o.builtIn ? builtInScene(s.width, s.height, s.seed) : readRgb(o.scene);
  if (scene.width < s.width || scene.height < s.height) {
    throw Error(o.scene, "is smaller than the frames of " + o.size);
  }
  const RgbPicture foreign = s.foreignFrame ? builtInScene(s.width, s.height, s.seed + 7919) : RgbPicture{};
  const SimulatedBurst burst = simulateBurst(scene, foreign, s);

  prepareBurstFolder(o.folder, names);
  Truth truth;
  truth.folder = o.folder;
  truth.width = s.width;
  truth.height = s.height;
  truth.frameFormat = o.frameFormat;
  for (size_t i = 0; i < burst.frames.size(); ++i) {
    const SimulatedFrame& frame = burst.frames[i];
    truth.frames.push_back({numbered("frame", i, o.frameFormat), numbered("clean", i, "png"), frame.motion});
    write(o.folder + "/" + truth.frames[i].file, frame.noisy);
    write(o.folder + "/" + truth.frames[i].clean, frame.clean);
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
  command->add_option("--shot-noise", o->simulation.shotNoise, "Variance of the noise per unit of brightness")
      ->check(CLI::Range(0.0, 100.0));
  command->add_option("--read-noise", o->simulation.readNoise, "Standard deviation of the noise of black")
      ->check(CLI::Range(0.0, 100.0));
  command->add_option("--shift", o->simulation.shift, "Shake: largest shift from frame to frame, share of the width")
      ->check(CLI::Range(0.0, 0.1));
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
  command->add_flag("--moving-object", o->simulation.movingObject, "An object crosses the scene");
  command
      ->add_option("--foreign-frame", o->simulation.foreignFrame,
                   "This frame shows another scene (frame 3 unless told)")
      ->expected(0, 1)
      ->default_str("3")
      ->check(CLI::Range(0, 9));
  command->add_option("--frame-format", o->frameFormat, "png, jpg or nv21 (default png)")
      ->check(CLI::IsMember({"png", "jpg", "nv21"}))
      ->type_name("FORMAT");
  command->footer(
      "Frames are frame00, frame01, ...; clean00.png, ... are the same without noise. Frame numbers begin at 0.\n\n"
      "Example: tessaline4 simulate photo.jpg -o burst --frames 8 --noise high --moving-object");
  command->callback([o, command] { orOutOfMemory(o->folder, [&] { run(*o, *command); }); });
}

}  // namespace tool
