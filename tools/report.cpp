#include "report.h"

#include <nlohmann/json.hpp>

#include "file_io.h"

namespace tool {
namespace {

using Json = nlohmann::ordered_json;

Json settingsJson(const Settings& settings) {
  Json json = Json::object();
  const auto put = [&](const char* option, const auto& value) {
    if (value) json[option + 2] = *value;  // without the dashes
  };
  for (const Setting<int32_t>& s : intSettings()) put(s.option, settings.*s.field);
  for (const Setting<double>& s : doubleSettings()) put(s.option, settings.*s.field);
  put("--threads", settings.threads);
  put("--processor-mask", settings.processorMask);
  put("--sharpness-sigmas", settings.sharpnessSigmas);
  if (!settings.lumaNrTable.empty()) json["luma-nr-table"] = settings.lumaNrTable;
  if (!settings.chromaNrTable.empty()) json["chroma-nr-table"] = settings.chromaNrTable;
  return json;
}

Json frameJson(const std::string& file, size_t index, const FrameReport& frame) {
  const auto& m = frame.motion;
  return {{"file", file},
          {"index", index},
          {"status", statusWords(frame.status)},
          {"score", frame.score},
          {"order", frame.order},
          {"trackFailure", frame.trackFailure},
          {"motion", {{m[0], m[1], m[2]}, {m[3], m[4], m[5]}, {m[6], m[7], m[8]}}}};
}

}  // namespace

void writeReport(const std::string& path, const std::vector<std::string>& files, const std::string& output,
                 const Settings& settings, const BurstResult& result, Existing existing) {
  Json json;
  json["library"] = zelvan_Tessaline4_getVersion();
  json["output"] = outputName(output);
  json["width"] = result.picture.width;
  json["height"] = result.picture.height;
  json["settings"] = settingsJson(settings);
  json["seconds"] = {{"intake", result.intakeSeconds}, {"merge", result.mergeSeconds}};
  json["base"] = result.base;
  Json& frames = json["frames"] = Json::array();
  for (size_t i = 0; i < result.frames.size(); ++i) {
    const std::string& file = files.size() == result.frames.size() ? files[i] : files.at(0);
    frames.push_back(frameJson(displayName(file), i, result.frames[i]));
  }
  // File names need not be UTF-8.
  const std::string text = json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
  writeFile(path, std::vector<uint8_t>(text.begin(), text.end()), existing);
}

}  // namespace tool
