#include "truth.h"

#include <algorithm>
#include <fstream>

#include <nlohmann/json.hpp>

#include "output_file.h"

namespace tool {
namespace {

using Json = nlohmann::ordered_json;

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
  std::ifstream file(path);
  if (!file) throw Error(path, "cannot be read");
  try {
    const Json json = Json::parse(file);
    Truth truth;
    truth.folder = folder;
    truth.width = json.at("width");
    truth.height = json.at("height");
    truth.seed = json.at("seed");
    truth.storage.format = json.at("frameFormat");
    truth.storage.jpegQuality = json.value("jpegQuality", truth.storage.jpegQuality);
    const Json& noise = json.at("noise");
    truth.noise = {noise.at("shot"), noise.at("read"), noise.value("grain", 0.0)};
    for (const Json& entry : json.at("frames")) {
      TruthFrame frame;
      frame.file = entry.at("file");
      frame.clean = entry.at("clean");
      for (size_t i = 0; i < 9; ++i) frame.motion[i] = entry.at("homography").at(i / 3).at(i % 3);
      frame.sharp = entry.value("sharp", "");
      frame.mask = entry.value("mask", "");
      frame.average = entry.value("average", "");
      frame.usable = !entry.contains("foreign") && !entry.contains("blurred");
      truth.frames.push_back(frame);
    }
    if (truth.frames.empty()) throw Error(path, "tells of no frame");
    return truth;
  } catch (const nlohmann::json::exception& error) {
    throw Error(path, std::string("is no truth of a burst: ") + error.what());
  }
}

}  // namespace tool
