#include "truth.h"

#include <algorithm>
#include <limits>

#include "burst.h"
#include "json_numbers.h"
#include "output_file.h"

namespace tool {
namespace {

std::string truthFile(const std::string& folder) {
  return folder + "/truth.json";
}

Json matrix(const Homography& h) {
  return {{h[0], h[1], h[2]}, {h[3], h[4], h[5]}, {h[6], h[7], h[8]}};
}

}  // namespace

int32_t Truth::framesToAverage() const {
  const auto usable = std::count_if(frames.begin(), frames.end(), [](const TruthFrame& frame) { return frame.usable; });
  return std::max(static_cast<int32_t>(usable), 2);
}

void writeTruth(const Truth& truth, const std::string& scene, const Simulation& simulation,
                const SimulatedBurst& burst) {
  Json json;
  json["scene"] = scene;
  json["seed"] = simulation.seed;
  json["width"] = truth.width;
  json["height"] = truth.height;
  json["frameFormat"] = truth.storage.format;
  if (truth.storage.format == "jpg") json["jpegQuality"] = truth.storage.jpegQuality;
  const NoiseModel& noise = simulation.noise;
  json["noise"] = {{"shot", noise.shot}, {"read", noise.read}, {"grain", noise.grain}};
  if (simulation.layers > 0) json["layers"] = simulation.layers;
  if (simulation.rollingShutter > 0) json["rollingShutter"] = simulation.rollingShutter;
  if (simulation.drift > 0) json["drift"] = simulation.drift;
  if (simulation.movingObject) json["objectRadius"] = burst.objectRadius;
  Json& frames = json["frames"] = Json::array();
  for (size_t i = 0; i < truth.frames.size(); ++i) {
    const SimulatedFrame& frame = burst.frames[i];
    Json entry = {
        {"file", truth.frames[i].file}, {"clean", truth.frames[i].clean}, {"homography", matrix(frame.motion)}};
    const TruthFrame& told = truth.frames[i];
    if (!told.sharp.empty()) {
      entry["sharp"] = told.sharp;
      entry["blurred"] = simulation.blurLength;
    }
    if (!told.mask.empty()) entry["mask"] = told.mask;
    if (!told.average.empty()) entry["average"] = told.average;
    if (frame.foreign) entry["foreign"] = true;
    if (simulation.movingObject && !frame.foreign) entry["object"] = {frame.object.x, frame.object.y};
    frames.push_back(entry);
  }
  const std::string text = json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
  writeFile(truthFile(truth.folder), std::vector<uint8_t>(text.begin(), text.end()));
}

Truth readTruth(const std::string& folder) {
  const std::string path = truthFile(folder);
  return parseTruth(path, folder, readJsonFile(path));
}

Truth parseTruth(const std::string& name, const std::string& folder, const std::string& json) {
  return parseJson(name, "truth of a burst", json, [&](const Json& root) {
    Truth truth;
    truth.folder = folder;
    truth.width = static_cast<int32_t>(wholeNumber(root, "width", 1, kMostPixels));
    truth.height = static_cast<int32_t>(wholeNumber(root, "height", 1, kMostPixels / truth.width));
    truth.seed = static_cast<uint32_t>(wholeNumber(root, "seed", 0, std::numeric_limits<uint32_t>::max()));
    truth.storage.format = root.at("frameFormat");
    const auto& formats = frameFormats();
    if (std::find(formats.begin(), formats.end(), truth.storage.format) == formats.end()) {
      throw BadJson("frameFormat is none that frames are stored in");
    }
    if (root.contains("jpegQuality")) {
      truth.storage.jpegQuality = static_cast<int32_t>(wholeNumber(root, "jpegQuality", 1, 100));
    }
    const Json& noise = root.at("noise");
    truth.noise.shot = realNumber(noise, "shot", 0, kMostNoise);
    truth.noise.read = realNumber(noise, "read", 0, kMostNoise);
    if (noise.contains("grain")) truth.noise.grain = realNumber(noise, "grain", 0, kMostGrain);
    const Json& frames = root.at("frames");
    if (!frames.is_array() || frames.empty() || frames.size() > kMostFrames) {
      throw BadJson("frames is not a list of 1 to " + std::to_string(kMostFrames));
    }
    for (const Json& entry : frames) {
      TruthFrame frame;
      frame.file = fileNameAt(entry, "file");
      frame.clean = fileNameAt(entry, "clean");
      frame.motion = motionAt(entry, "homography", truth.width, truth.height);
      for (const auto& [key, name] :
           {std::pair{"sharp", &frame.sharp}, std::pair{"mask", &frame.mask}, std::pair{"average", &frame.average}}) {
        if (entry.contains(key)) *name = fileNameAt(entry, key);
      }
      frame.usable = !entry.contains("foreign") && !entry.contains("blurred");
      truth.frames.push_back(frame);
    }
    return truth;
  });
}

}  // namespace tool
