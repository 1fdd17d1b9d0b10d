#include "report_page.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string_view>

#include "file_io.h"
#include "image_file_kinds.h"
#include "json_numbers.h"
#include "output_file.h"
#include "quality.h"
#include "report.h"
#include "report_page_template.h"
#include "resample.h"
#include "truth.h"
#include "turn.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

constexpr int kPictureQuality = 93;
constexpr int kThumbnailQuality = 80;
constexpr int32_t kThumbnailSide = 400;
constexpr Homography kStill = {1, 0, 0, 0, 1, 0, 0, 0, 1};

struct Colour {
  uint8_t r, g, b;
};
// From dark to light in even steps of brightness, so that it reads without its hues.
constexpr Colour kRamp[] = {
    {0x30, 0x0a, 0x5b}, {0x3b, 0x52, 0x8b}, {0x21, 0x91, 0x8c}, {0x5e, 0xc9, 0x62}, {0xfd, 0xe7, 0x25}};
constexpr size_t kRampSteps = std::size(kRamp) - 1;

template <typename... Args>
std::string formatted(const char* pattern, Args... args) {
  char text[256];
  std::snprintf(text, sizeof(text), pattern, args...);
  return text;
}

std::string dataUri(const char* kind, ByteView bytes) {
  static constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string uri = formatted("data:image/%s;base64,", kind);
  uri.reserve(uri.size() + (bytes.size() + 2) / 3 * 4);
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t held = std::min<size_t>(bytes.size() - i, 3);
    uint32_t three = 0;
    for (size_t k = 0; k < 3; ++k) three = three << 8 | (k < held ? bytes[i + k] : 0u);
    for (size_t k = 0; k < 4; ++k) uri += k <= held ? kDigits[three >> (18 - 6 * k) & 63] : '=';
  }
  return uri;
}

// The mean of blocks of so many samples on each side; what is left over on the right and below is left out.
std::vector<uint8_t> shrunkPlane(const std::vector<uint8_t>& plane, int32_t width, int32_t toWidth, int32_t toHeight,
                                 int32_t factor) {
  std::vector<uint8_t> out;
  out.reserve(static_cast<size_t>(toWidth) * static_cast<size_t>(toHeight));
  for (int32_t y = 0; y < toHeight; ++y) {
    for (int32_t x = 0; x < toWidth; ++x) {
      int64_t sum = factor * factor / 2;
      for (int32_t row = y * factor; row < (y + 1) * factor; ++row) {
        const uint8_t* from = plane.data() + static_cast<size_t>(row) * static_cast<size_t>(width) + x * factor;
        for (int32_t i = 0; i < factor; ++i) sum += from[i];
      }
      out.push_back(static_cast<uint8_t>(sum / (factor * factor)));
    }
  }
  return out;
}

Picture thumbnailOf(const Picture& picture) {
  const int32_t factor = std::max(std::max(picture.width, picture.height) / kThumbnailSide, 1);
  // Even sides: each chroma sample then has its whole block.
  Picture small(picture.width / (2 * factor) * 2, picture.height / (2 * factor) * 2);
  small.y = shrunkPlane(picture.y, picture.width, small.width, small.height, factor);
  small.u = shrunkPlane(picture.u, picture.chromaWidth(), small.chromaWidth(), small.chromaHeight(), factor);
  small.v = shrunkPlane(picture.v, picture.chromaWidth(), small.chromaWidth(), small.chromaHeight(), factor);
  return small;
}

// What all pictures of a page have in common.
struct Look {
  int32_t orientation;
  Metadata metadata;  // the profile alone

  explicit Look(const Metadata& result) : orientation(result.orientation()) { metadata.icc = result.icc; }
  std::string jpeg(const Picture& picture, int quality) const {
    const Picture upright = turned(picture, orientation);
    return dataUri("jpeg", encodeJpeg("a picture of the report", upright.planes(), metadata, quality).view());
  }
};

struct Frames {
  Picture base;
  std::vector<Picture> thumbnails;
};

Frames readAgain(const Choice& choice, const std::optional<RawLayout>& raw, const BurstResult& result) {
  Frames frames;
  const auto take = [&](Picture picture) {
    frames.thumbnails.push_back(thumbnailOf(picture));
    if (frames.thumbnails.size() == result.base + 1) frames.base = std::move(picture);
  };
  const std::vector<std::string> files = choice.takenFiles();
  if (files.size() == 1) {
    StreamChoice again;
    for (Picture& picture : readFrames({.paths = files, .raw = raw, .most = kMostFrames, .choice = &again}))
      take(std::move(picture));
  } else {
    for (const std::string& file : files) take(readPicture(file, raw));
  }
  if (frames.thumbnails.size() != result.frames.size()) throw Error(files[0], "has changed while it was merged");
  if (frames.base.width != result.picture.planes.width || frames.base.height != result.picture.planes.height) {
    throw Error(files[0], "has changed while it was merged");
  }
  return frames;
}

// Of a simulated base: what it would be without noise.
std::optional<Picture> truthOf(const std::string& base) {
  const fs::path path(base);
  const std::string folder = path.has_parent_path() ? path.parent_path().string() : ".";
  std::error_code failed;
  if (!fs::exists(fs::path(folder) / "truth.json", failed)) return std::nullopt;
  try {
    const Truth truth = readTruth(folder);
    for (const TruthFrame& frame : truth.frames) {
      if (frame.file == path.filename().string()) return readPicture((fs::path(folder) / frame.clean).string());
    }
  } catch (const Error&) {
    // Another program's file, or one of another burst: then nothing is known.
  }
  return std::nullopt;
}

std::string failureWords(uint32_t failure) {
  static constexpr const char* kWords[] = {"too little structure", "its parts do not move together",
                                           "its motion is uncertain", "it shows something else", "too far away"};
  std::string text;
  for (size_t bit = 0; bit < std::size(kWords); ++bit) {
    if ((failure >> bit & 1) != 0) text.append(text.empty() ? "" : ", ").append(kWords[bit]);
  }
  return text;
}

// toStored: from points of the picture as it is shown.
Json frameCard(const FrameReport& frame, const Homography& toStored) {
  Json card;
  const bool merged = frame.status == ZELVAN_TESSALINE4_MERGED;
  card["merged"] = merged;
  card["verdict"] = frame.order == 0 ? "the base" : statusWords(frame.status);
  if (merged && frame.order != 0) {
    Homography motion = compose(inverse(toStored), compose(frame.motion, toStored));
    const double scale = motion[8];
    for (double& m : motion) m /= scale;
    card["motion"] = motion;
  }
  Json& details = card["details"] = Json::array();
  if (frame.score != 0) details.push_back(formatted("sharpness %d", frame.score));
  if (frame.fine && merged) {
    details.push_back(formatted("%.0f %% of the picture used", 100.0 * frame.fine->share));
    if (frame.order != 0) details.push_back(formatted("aligned to %.2f px", frame.fine->cornerSigma));
  }
  if (frame.fine && frame.trackFailure != 0) details.push_back(failureWords(frame.trackFailure));
  return card;
}

Json framesPart(const Choice& choice, const BurstResult& result, const Frames& frames, const Look& look) {
  const Homography toStored =
      turnedToStored(look.orientation, result.picture.planes.width, result.picture.planes.height);
  Json cards = Json::array();
  const size_t count = choice.isChoice() ? choice.given() : result.frames.size();
  for (size_t place = 0, next = 0; place < count; ++place) {
    const bool isTaken = next < result.frames.size() && choice.placeOf(next) == place;
    Json card = isTaken ? frameCard(result.frames[next], toStored)
                        : Json{{"merged", false}, {"verdict", notSharpestWords()}, {"details", Json::array()}};
    if (isTaken) {
      const std::string& origin = result.metadata.at(next).origin;
      if (!origin.empty()) card["details"].push_back(origin);
      card["thumbnail"] = look.jpeg(frames.thumbnails[next++], kThumbnailQuality);
    }
    card["file"] = formatted("%zu: ", place + 1) + fs::path(choice.fileOf(place)).filename().string();
    cards.push_back(std::move(card));
  }
  return cards;
}

Json mapPart(const FineMap& map, size_t frames, const Look& look) {
  RgbPicture picture = {map.width, map.height, {}};
  const auto most = static_cast<double>(16 * frames);
  double sum = 0;
  size_t whole = 0;
  for (const uint8_t value : map.values) {
    sum += value / 16.0;
    if (value + 8 >= static_cast<int32_t>(most)) ++whole;
    const double place = std::min(value / most, 1.0) * kRampSteps;
    const size_t step = std::min(static_cast<size_t>(place), kRampSteps - 1);
    const auto mix = [&](uint8_t a, uint8_t b) {
      picture.pixels.push_back(static_cast<uint8_t>(a + (b - a) * (place - static_cast<double>(step)) + 0.5));
    };
    mix(kRamp[step].r, kRamp[step + 1].r);
    mix(kRamp[step].g, kRamp[step + 1].g);
    mix(kRamp[step].b, kRamp[step + 1].b);
  }
  Json part;
  const RgbPicture upright = turned(picture, look.orientation);
  const auto rowAt = [&](int32_t y) {
    return upright.pixels.data() + 3 * static_cast<size_t>(upright.width) * static_cast<size_t>(y);
  };
  part["source"] = dataUri("png", encodePng("the map of the report", upright.width, upright.height, rowAt).view());
  part["most"] = frames;
  for (const Colour& c : kRamp) part["colours"].push_back(formatted("rgb(%d %d %d)", c.r, c.g, c.b));
  const auto places = static_cast<double>(map.values.size());
  part["summary"] = formatted("%.1f of %zu frames on average; all of them on %.0f %% of the picture", sum / places,
                              frames, 100.0 * static_cast<double>(whole) / places);
  return part;
}

}  // namespace

bool isPageName(const std::string& path) {
  const std::string ending = endingOf(path);
  return ending == "html" || ending == "htm";
}

void writeReportPage(const std::string& path, const Choice& choice, const std::optional<RawLayout>& raw,
                     const std::string& output, const Settings& settings, const BurstResult& result,
                     Existing existing) {
  Frames frames = readAgain(choice, raw, result);
  const std::string& baseFile = choice.fileOf(choice.placeOf(result.base));
  std::optional<Picture> truth = choice.files.size() == 1 ? std::nullopt : truthOf(baseFile);
  if (truth && (truth->width != frames.base.width || truth->height != frames.base.height)) truth.reset();
  if (const Homography& crop = result.frames[result.base].motion; crop != kStill) {
    frames.base = resample(frames.base, crop);
    if (truth) truth = resample(*truth, crop);
  }

  const Look look(result.metadata[result.base]);
  const Picture merged = result.picture.copy();
  Json page;
  page["title"] = output == "-" ? "Merged burst" : fs::path(output).filename().string();
  page["summary"] = mergeSummary(choice, result);
  const bool swaps = turnsSides(look.orientation);
  page["width"] = swaps ? result.picture.planes.height : result.picture.planes.width;
  page["height"] = swaps ? result.picture.planes.width : result.picture.planes.height;
  const auto addPicture = [&](const char* name, const Picture& picture) {
    page["pictures"].push_back({{"name", name}, {"source", look.jpeg(picture, kPictureQuality)}});
    if (!truth || &picture == &*truth) return;
    const Psnr psnr = psnrOf(picture, *truth, nullptr);
    page["quality"].push_back({{"name", name}, {"luma", psnr.luma}, {"chroma", psnr.chroma}});
  };
  addPicture("Base", frames.base);
  addPicture("Result", merged);
  if (truth) addPicture("Truth", *truth);
  page["frames"] = framesPart(choice, result, frames, look);
  if (result.fine) page["map"] = mapPart(result.fine->count, result.frames.size(), look);

  Json& facts = page["facts"] = Json::array();
  facts.push_back({"Size", formatted("%d x %d", page["width"].get<int>(), page["height"].get<int>())});
  facts.push_back({"Taking frames in", formatted("%.3f s", result.intakeSeconds)});
  facts.push_back({"Merging", formatted("%.3f s", result.mergeSeconds)});
  if (result.fine) {
    const FineReport& fine = *result.fine;
    facts.push_back({"Noise of one frame",
                     formatted("luma %.2f, chroma %.2f and %.2f of 255", fine.noise[0], fine.noise[1], fine.noise[2])});
  }
  for (const auto& [name, value] : settingTexts(settings)) facts.push_back({name, value});
  facts.push_back({"Library", zelvan_Tessaline4_getVersion()});

  std::string json = page.dump(-1, ' ', false, Json::error_handler_t::replace);
  std::string text = kReportPage;
  constexpr std::string_view kPlace = "@DATA@";
  const size_t place = text.find(kPlace);
  // Within a script element only "<" could end it.
  std::string escaped;
  escaped.reserve(json.size());
  for (const char c : json) {
    if (c == '<') {
      escaped += "\\u003c";
    } else {
      escaped += c;
    }
  }
  text.replace(place, kPlace.size(), escaped);
  writeFile(path, ByteView(reinterpret_cast<const uint8_t*>(text.data()), text.size()), existing);
}

}  // namespace tool
