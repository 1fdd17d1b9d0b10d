#include "report.h"

#include <algorithm>
#include <cstdio>

#include "file_io.h"
#include "image_file.h"
#include "json_numbers.h"

namespace tool {
namespace {

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

Json frameJson(const std::string& file, size_t index, const FrameReport& frame, const std::string& origin) {
  const auto& m = frame.motion;
  Json json = {{"file", file},
               {"index", index},
               {"status", statusWords(frame.status)},
               {"score", frame.score},
               {"order", frame.order},
               {"trackFailure", frame.trackFailure},
               {"motion", {{m[0], m[1], m[2]}, {m[3], m[4], m[5]}, {m[6], m[7], m[8]}}}};
  if (!origin.empty()) json["pixels"] = origin;
  if (frame.fine) {
    json["residual"] = frame.fine->residual;
    json["cornerSigma"] = frame.fine->cornerSigma;
    json["share"] = frame.fine->share;
  }
  return json;
}

Json framesJson(const Choice& choice, const BurstResult& result) {
  Json frames = Json::array();
  const size_t count = choice.isChoice() ? choice.given() : result.frames.size();
  for (size_t place = 0, next = 0; place < count; ++place) {
    const std::string file = displayName(choice.fileOf(place));
    if (next < result.frames.size() && choice.placeOf(next) == place) {
      frames.push_back(frameJson(file, place, result.frames[next], result.metadata.at(next).origin));
      ++next;
    } else {
      frames.push_back({{"file", file}, {"index", place}, {"status", notSharpestWords()}});
    }
    if (choice.isChoice()) frames.back()["sharpness"] = choice.sharpness[place];
  }
  return frames;
}

}  // namespace

std::vector<std::string> mapFiles(const std::string& folder, size_t frames) {
  std::vector<std::string> files = {folder + "/frames.png"};
  for (size_t i = 0; i < frames; ++i) {
    char name[32];
    std::snprintf(name, sizeof(name), "/weight%02zu.png", i);
    files.push_back(folder + name);
  }
  return files;
}

void writeMaps(const std::string& folder, const BurstResult& result, Existing existing) {
  if (!result.fine) return;
  const std::vector<std::string> files = mapFiles(folder, result.frames.size());
  const auto write = [&](const std::string& file, const FineMap& map, int32_t full) {
    Picture picture(map.width, map.height);
    for (size_t i = 0; i < map.values.size(); ++i) {
      picture.y[i] = static_cast<uint8_t>(std::min(map.values[i] * 255 / full, 255));
    }
    WriteOptions options;
    options.existing = existing;
    writePicture(file, picture, options);
  };
  write(files[0], result.fine->count, 16 * static_cast<int32_t>(result.frames.size()));
  for (size_t i = 0; i < result.frames.size(); ++i) {
    if (result.frames[i].status == ZELVAN_TESSALINE4_MERGED) write(files[i + 1], result.fine->weights[i], 255);
  }
}

const char* notSharpestWords() {
  return "not among the sharpest";
}

std::vector<std::pair<std::string, std::string>> settingTexts(const Settings& settings) {
  std::vector<std::pair<std::string, std::string>> texts;
  const Json json = settingsJson(settings);
  for (const auto& [name, value] : json.items()) texts.emplace_back(name, value.dump());
  return texts;
}

std::string mergeSummary(const Choice& choice, const BurstResult& result) {
  const auto merged = std::count_if(result.frames.begin(), result.frames.end(),
                                    [](const FrameReport& frame) { return frame.status == ZELVAN_TESSALINE4_MERGED; });
  char sharpest[64] = "";
  if (choice.isChoice()) {
    std::snprintf(sharpest, sizeof(sharpest), " (the sharpest of %zu)", choice.given());
  }
  char text[192];
  std::snprintf(text, sizeof(text), "%d of %zu frames%s merged, base is frame %zu, %.2f s", static_cast<int>(merged),
                result.frames.size(), sharpest, choice.placeOf(result.base) + 1,
                result.intakeSeconds + result.mergeSeconds);
  return text;
}

void writeReport(const std::string& path, const Choice& choice, const std::string& output, const Settings& settings,
                 const BurstResult& result, Existing existing) {
  Json json;
  json["library"] = zelvan_Tessaline4_getVersion();
  json["output"] = outputName(output);
  json["width"] = result.picture.planes.width;
  json["height"] = result.picture.planes.height;
  json["settings"] = settingsJson(settings);
  json["seconds"] = {{"intake", result.intakeSeconds}, {"merge", result.mergeSeconds}};
  json["base"] = choice.placeOf(result.base);
  if (result.fine) {
    const FineReport& fine = *result.fine;
    json["noise"] = {{"luma", fine.noise[0]}, {"chroma", {fine.noise[1], fine.noise[2]}}};
    json["chosen"] = {{"lumaStrength", fine.lumaStrength}, {"chromaStrength", fine.chromaStrength}};
  }
  json["frames"] = framesJson(choice, result);
  // File names need not be UTF-8.
  const std::string text = json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
  writeFile(path, std::vector<uint8_t>(text.begin(), text.end()), existing);
}

MergeReport readReport(const std::string& path, size_t frames, int32_t width, int32_t height) {
  return parseReport(path, readJsonFile(path), frames, width, height);
}

MergeReport parseReport(const std::string& name, const std::string& json, size_t frames, int32_t width,
                        int32_t height) {
  return parseJson(name, "report of a merge of this burst", json, [&](const Json& root) {
    MergeReport report;
    wholeNumber(root, "width", width, width);
    wholeNumber(root, "height", height, height);
    report.base = static_cast<size_t>(wholeNumber(root, "base", 0, static_cast<int64_t>(frames) - 1));
    const Json& entries = root.at("frames");
    if (!entries.is_array() || entries.size() != frames) {
      throw BadJson("frames is not a list of " + std::to_string(frames));
    }
    for (const Json& entry : entries) {
      MergeReport::Frame frame;
      frame.merged = entry.at("status") == statusWords(ZELVAN_TESSALINE4_MERGED);
      // A frame that could not be aligned need not have a motion.
      if (frame.merged || report.frames.size() == report.base) frame.motion = motionAt(entry, "motion", width, height);
      report.frames.push_back(frame);
    }
    return report;
  });
}

}  // namespace tool
