#include "truth.h"

#include "burst.h"
#include "file_io.h"
#include "json_numbers.h"

namespace tool {
namespace {

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
  return parseTruth(path, folder, readJsonFile(path));
}

Truth parseTruth(const std::string& name, const std::string& folder, const std::string& json) {
  return parseJson(name, "truth of a burst", json, [&](const Json& root) {
    Truth truth;
    truth.folder = folder;
    truth.width = static_cast<int32_t>(wholeNumber(root, "width", 1, kMostPixels));
    truth.height = static_cast<int32_t>(wholeNumber(root, "height", 1, kMostPixels / truth.width));
    truth.frameFormat = root.at("frameFormat");
    const Json& frames = root.at("frames");
    if (!frames.is_array() || frames.empty() || frames.size() > kMostFrames) {
      throw BadJson("frames is not a list of 1 to " + std::to_string(kMostFrames));
    }
    for (const Json& entry : frames) {
      truth.frames.push_back({fileNameAt(entry, "file"), fileNameAt(entry, "clean"),
                              motionAt(entry, "homography", truth.width, truth.height)});
    }
    return truth;
  });
}

}  // namespace tool
