#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

#include "commands.h"
#include "image_file.h"
#include "json_numbers.h"
#include "options.h"
#include "output_file.h"
#include "quality.h"
#include "report.h"
#include "resample.h"
#include "truth.h"
#include "yardstick.h"

namespace tool {
namespace {

struct Options {
  std::string result;
  std::string truthFolder;
  std::string report;
  std::string json;
  RawOptions raw;
};

// Largest error at the four corners, in pixels; not finite when a map takes a corner to infinity.
double cornerError(const Homography& found, const Homography& truth, int32_t width, int32_t height) {
  double worst = 0;
  for (const Point corner :
       {Point{0, 0}, Point{width - 1.0, 0}, Point{0, height - 1.0}, Point{width - 1.0, height - 1.0}}) {
    const Point a = mapPoint(found, corner);
    const Point b = mapPoint(truth, corner);
    const double error = std::hypot(a.x - b.x, a.y - b.y);
    if (!(error <= worst)) worst = error;  // a NaN is the worst
    if (std::isnan(worst)) break;
  }
  return worst;
}

std::vector<double> motionErrors(const MergeReport& report, const Truth& truth) {
  std::vector<double> errors;
  const Homography fromBase = inverse(truth.frames[report.base].motion);
  const Homography uncrop = inverse(report.crop());
  for (size_t i = 0; i < report.frames.size(); ++i) {
    if (i == report.base || !report.frames[i].merged) continue;
    errors.push_back(cornerError(compose(report.frames[i].motion, uncrop), compose(truth.frames[i].motion, fromBase),
                                 truth.width, truth.height));
    if (!std::isfinite(errors.back())) {
      throw Error(truth.folder, "the motion of frame " + std::to_string(i) + " cannot be compared");
    }
  }
  std::sort(errors.begin(), errors.end());
  return errors;
}

std::string ssimText(double ssim) {
  char text[32] = "-     ";
  if (!std::isnan(ssim)) std::snprintf(text, sizeof(text), "%.4f", ssim);
  return text;
}

// No number is null.
Json qualityJson(const Quality& q) {
  return {
      {"lumaPsnr", q.lumaPsnr}, {"chromaPsnr", q.chromaPsnr}, {"lumaSsim", q.lumaSsim}, {"chromaSsim", q.chromaSsim}};
}

Yardstick printedYardstick(const Picture& result, const Picture& noisy, const Picture& clean, const Truth& truth,
                           const Mask* counted) {
  const Picture average = alignedAverage(clean, truth.noise, truth.storage, truth.framesToAverage(), truth.seed);
  const Yardstick y = measure(result, noisy, average, clean, counted);
  std::printf("%-16s %6.2f dB    %6.2f dB\n\n", "aligned average", y.average.luma, y.average.chroma);
  if (counted != nullptr) {
    std::printf("Where all frames see the same: luma %.2f dB, chroma %.2f dB.\n", y.result.luma, y.result.chroma);
  }
  std::printf("Share of the average's gain %.2f; mean shift of Y %+.2f, U %+.2f, V %+.2f; edges %.3f times as steep.\n",
              y.share, y.meanShift[0], y.meanShift[1], y.meanShift[2], y.gradientGain);
  return y;
}

// The pixels of the result that count.
Mask countedOf(const Picture& white, const Homography& crop) {
  Picture picture = resample(white, crop);
  for (uint8_t& y : picture.y) y = y > 127 ? 1 : 0;
  return std::move(picture.y);
}

Json yardstickJson(const Yardstick& y) {
  const auto psnr = [](const Psnr& p) { return Json{{"luma", p.luma}, {"chroma", p.chroma}}; };
  return {{"share", y.share},
          {"psnr", {{"noisy", psnr(y.noisy)}, {"average", psnr(y.average)}, {"result", psnr(y.result)}}},
          {"meanShift", y.meanShift},
          {"gradientGain", y.gradientGain}};
}

void run(const Options& o) {
  if (!o.json.empty()) {
    checkFileWritable(o.json);
    checkDistinct({o.json}, {o.result, o.report, o.truthFolder + "/truth.json"});
  }
  const Truth truth = readTruth(o.truthFolder);
  const auto read = [&](const std::string& path, const std::optional<RawLayout>& raw) {
    Picture picture = readPicture(path, raw);
    if (picture.width != truth.width || picture.height != truth.height) {
      throw Error(path, "is not of the size of the burst in " + o.truthFolder);
    }
    return picture;
  };
  const auto inFolder = [&](const std::string& name) { return o.truthFolder + "/" + name; };
  const Picture result = read(o.result, o.raw.layout());
  const auto clean = [&](size_t i) {
    const TruthFrame& frame = truth.frames[i];
    return read(inFolder(frame.sharp.empty() ? frame.clean : frame.sharp), std::nullopt);
  };

  size_t base = 0;
  MergeReport report;
  if (!o.report.empty()) {
    report = readReport(o.report, truth.frames.size(), truth.width, truth.height);
    base = report.base;
  } else {
    // The frame that the result shows is the one it is nearest to.
    double best = -1;
    for (size_t i = 0; i < truth.frames.size(); ++i) {
      const double psnr = lumaPsnr(result, clean(i));
      if (psnr > best) {
        best = psnr;
        base = i;
      }
    }
  }
  const Picture reference = clean(base);
  const RawLayout own = {truth.width, truth.height, truth.storage.format};
  const bool rawFrames = truth.storage.format == "nv21";
  const Picture noisy =
      read(inFolder(truth.frames[base].file), rawFrames ? std::optional<RawLayout>(own) : std::nullopt);
  const Quality before = compareWithTruth(noisy, reference);
  const bool isCropped = !o.report.empty() && report.isCropped();
  const Picture shown = isCropped ? resample(reference, report.crop()) : reference;
  const Quality after = compareWithTruth(result, shown);

  std::printf("Against %s, the clean frame of the base%s:\n\n", truth.frames[base].clean.c_str(),
              isCropped ? ", cropped and scaled as the result is" : "");
  std::printf("                 luma PSNR  chroma PSNR  luma SSIM  chroma SSIM\n");
  for (const auto& [name, q] :
       {std::pair<const char*, const Quality&>{"one noisy frame", before}, {"the result", after}}) {
    std::printf("%-16s %6.2f dB    %6.2f dB     %s       %s\n", name, q.lumaPsnr, q.chromaPsnr,
                ssimText(q.lumaSsim).c_str(), ssimText(q.chromaSsim).c_str());
  }
  std::printf("%-16s %+6.2f dB    %+6.2f dB\n", "gain", after.lumaPsnr - before.lumaPsnr,
              after.chromaPsnr - before.chromaPsnr);

  Mask mask;  // empty: all pixels count
  if (const std::string& name = truth.frames[base].mask; !name.empty()) {
    mask = countedOf(read(inFolder(name), std::nullopt),
                     isCropped ? report.crop() : Homography{1, 0, 0, 0, 1, 0, 0, 0, 1});
  }
  Json json = {{"base", base}, {"noisy", qualityJson(before)}, {"result", qualityJson(after)}};
  json["yardstick"] = yardstickJson(printedYardstick(result, noisy, shown, truth, mask.empty() ? nullptr : &mask));
  if (!o.report.empty()) {
    const std::vector<double> errors = motionErrors(report, truth);
    if (errors.empty()) {
      std::printf("\nNo frame but the base was merged.\n");
    } else {
      const double median = errors[errors.size() / 2];
      std::printf("\nMotions of %zu merged frames: corners off by %.2f pixels in the median, %.2f at most.\n",
                  errors.size(), median, errors.back());
      json["cornerErrors"] = {{"median", median}, {"most", errors.back()}};
    }
  }
  if (!o.json.empty()) {
    const std::string text = json.dump(2) + "\n";
    writeFile(o.json, std::vector<uint8_t>(text.begin(), text.end()));
  }
}

}  // namespace

void addCompareCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("compare", "Compare a merged picture with the truth of a simulated burst");
  const auto o = std::make_shared<Options>();
  command->add_option("RESULT", o->result, "The merged picture")->required();
  command->add_option("TRUTH-DIR", o->truthFolder, "Folder that simulate wrote")->required();
  command
      ->add_option("--report", o->report,
                   "Report of the merge: names the base, and its motions are checked. A picture merged with "
                   "--auto-scaling 1 needs it")
      ->type_name("FILE");
  command->add_option("--json", o->json, "Write the numbers as JSON, too")->type_name("FILE");
  o->raw.addTo(*command);
  command->callback([o] { run(*o); });
}

}  // namespace tool
