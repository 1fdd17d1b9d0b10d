#include "truth.h"

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

void writeTruth(const Truth& truth, const std::string& scene, const Simulation& simulation,
                const SimulatedBurst& burst) {
  Json json;
  json["scene"] = scene;
  json["seed"] = simulation.seed;
  json["width"] = truth.width;
  json["height"] = truth.height;
  json["frameFormat"] = truth.frameFormat;
  json["noise"] = {{"shot", simulation.shotNoise}, {"read", simulation.readNoise}};
  if (simulation.movingObject) json["objectRadius"] = burst.objectRadius;
  Json& frames = json["frames"] = Json::array();
  for (size_t i = 0; i < truth.frames.size(); ++i) {
    const SimulatedFrame& frame = burst.frames[i];
    Json entry = {
        {"file", truth.frames[i].file}, {"clean", truth.frames[i].clean}, {"homography", matrix(frame.motion)}};
    const auto index = static_cast<int32_t>(i);
    if (simulation.blurredFrame == index) entry["blurred"] = simulation.blurLength;
    if (simulation.foreignFrame == index) entry["foreign"] = true;
    if (simulation.movingObject && simulation.foreignFrame != index) entry["object"] = {frame.object.x, frame.object.y};
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
    truth.frameFormat = json.at("frameFormat");
    for (const Json& entry : json.at("frames")) {
      TruthFrame frame;
      frame.file = entry.at("file");
      frame.clean = entry.at("clean");
      for (size_t i = 0; i < 9; ++i) frame.motion[i] = entry.at("homography").at(i / 3).at(i % 3);
      truth.frames.push_back(frame);
    }
    if (truth.frames.empty()) throw Error(path, "tells of no frame");
    return truth;
  } catch (const nlohmann::json::exception& error) {
    throw Error(path, std::string("is no truth of a burst: ") + error.what());
  }
}

}  // namespace tool
