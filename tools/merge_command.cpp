#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>

#include "burst.h"
#include "commands.h"
#include "file_io.h"
#include "image_file.h"
#include "options.h"
#include "output_file.h"
#include "printable.h"
#include "report.h"
#include "report_page.h"
#include "setting_options.h"
#include "sharpest.h"

namespace tool {
namespace {

struct MergeOptions {
  std::vector<std::string> frames;
  std::string output;
  RawOptions raw;
  std::vector<std::string> reports;
  std::string maps;  // folder; empty: none
  WriteOptions write;
  bool libraryDefaults = false;
  bool quiet = false;
  bool ignoreExif = false;
  bool ignoreIcc = false;
  Settings settings;
};

// One line on a terminal, overwritten from step to step.
class ProgressLine {
 public:
  explicit ProgressLine(bool quiet) : shown_(!quiet && isatty(STDERR_FILENO) != 0) {}
  ~ProgressLine() { clear(); }
  void show(const std::string& text) const {
    if (shown_) std::fprintf(stderr, "\r\033[K%s", text.c_str());
  }
  void finish(const std::string& text) {
    if (shown_) std::fprintf(stderr, "\r\033[K%s\n", text.c_str());
    shown_ = false;
  }

 private:
  void clear() const {
    if (shown_) std::fputs("\r\033[K", stderr);
  }
  bool shown_;
};

void warn(const std::string& names, const std::string& what) {
  std::fprintf(stderr, "tessaline4: warning: %s: %s\n", printable(names).c_str(), printable(what).c_str());
}

// Names the frames that differ from the base in something that the result has from the base.
template <typename IsSame>
void warnOfOthers(const std::vector<std::string>& paths, const BurstResult& result, const std::string& what,
                  const IsSame& isSame) {
  std::string names;
  const size_t base = result.base;
  for (size_t i = 0; i < result.metadata.size(); ++i) {
    if (isSame(result.metadata[i], result.metadata[base])) continue;
    if (!names.empty()) names += ", ";
    names += displayName(paths.at(i));
  }
  if (!names.empty()) {
    warn(names,
         "another " + what + " than the base, " + displayName(paths.at(base)) + ", whose " + what + " the result has");
  }
}

void merge(const MergeOptions& options) {
  checkWritable(options.output, options.write);
  std::vector<std::string> outputs = {options.output};
  for (const std::string& report : options.reports) {
    checkFileWritable(report, options.write.existing);
    if (isPageName(report) && options.frames[0] == "-") {
      throw Error(report, "such a page shows the frames, which cannot be read from standard input twice");
    }
    outputs.push_back(report);
  }
  if (!options.maps.empty()) {
    std::error_code failed;
    std::filesystem::create_directories(options.maps, failed);
    if (failed) throw Error(options.maps, "cannot be made: " + failed.message());
    for (const std::string& file : mapFiles(options.maps, static_cast<size_t>(kMostFrames))) {
      checkFileWritable(file, options.write.existing);
      outputs.push_back(file);
    }
  }
  checkDistinct(outputs, options.frames);
  ProgressLine line(options.quiet);
  line.show("reading frames");
  const auto checkOutput = [&](const std::string&, int64_t width, int64_t height) {
    checkWritableSize(options.output, options.write, width, height);
  };
  Choice choice = chooseSharpest(options.frames, options.raw.layout(), kMostFrames, checkOutput, [&](size_t done) {
    line.show("choosing frames (" + std::to_string(done) + "/" + std::to_string(options.frames.size()) + ")");
  });
  const std::vector<std::string> files = choice.takenFiles();
  const Settings settings = chosenSettings(options.settings, options.libraryDefaults);
  BurstResult result =
      mergeFiles(files, options.raw.layout(), settings, checkOutput, [&](const char* step, size_t done, size_t all) {
        line.show(std::string(step) + " (" + std::to_string(done) + "/" + std::to_string(all) + ")");
      });
  if (!result.stream.taken.empty()) {
    choice.taken = std::move(result.stream.taken);
    choice.sharpness = std::move(result.stream.sharpness);
  }
  for (Metadata& metadata : result.metadata) {
    if (options.ignoreExif) {
      metadata.exif.clear();
      metadata.dropXmp();
    }
    if (options.ignoreIcc) metadata.dropIcc();
  }
  line.show("writing " + printable(outputName(options.output)));
  const std::vector<std::string> losses =
      writePicture(options.output, result.picture.planes, result.metadata[result.base], options.write);
  for (const std::string& report : options.reports) {
    if (isPageName(report)) {
      orOutOfMemory(report, [&] {
        writeReportPage(report, choice, options.raw.layout(), options.output, settings, result, options.write.existing);
      });
    } else {
      writeReport(report, choice, options.output, settings, result, options.write.existing);
    }
  }
  if (!options.maps.empty()) writeMaps(options.maps, result, options.write.existing);
  line.finish(mergeSummary(choice, result));
  warnOfOthers(files, result, "orientation",
               [](const Metadata& a, const Metadata& b) { return a.orientation() == b.orientation(); });
  warnOfOthers(files, result, "ICC profile", [](const Metadata& a, const Metadata& b) { return a.icc == b.icc; });
  // A stream stands for all its frames.
  const size_t base = std::min(result.base, files.size() - 1);
  for (const std::string& loss : losses) warn(displayName(files[base]), loss);
}

}  // namespace

void addMergeCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("merge", "Merge the frames of a burst into one picture");
  const auto options = std::make_shared<MergeOptions>();
  command->footer(R"(Frames are JPEG, PNG, TIFF, HEIC or AVIF files, cameras' raw files with a JPEG inside, bare pixels
(with --size), or one Y4M stream from a file or standard input (-): 2 or more of them, of one size,
640x480 or larger, and in the same orientation. Of more than 10 frames the 10 sharpest are taken. The
sharpest becomes the base to which the others are aligned; a JPEG or PNG result carries its EXIF, XMP
and ICC profile. Pixels are not rotated: EXIF tells the orientation.

Example: tessaline4 merge IMG_*.jpg -o merged.jpg --report merged.json)");
  command->add_option("FRAME", options->frames, "Frames of the burst, or one Y4M stream")->required();
  command
      ->add_option("-o,--output", options->output,
                   "Result, - for standard output; its ending tells the kind: .jpg .jpeg .png .y4m .nv21 .nv12 .i420 "
                   ".yuv .yuyv")
      ->required()
      ->type_name("FILE");
  command
      ->add_option("--output-format", options->write.format,
                   "Kind of the result, named as an ending without its dot; standard output needs it")
      ->type_name("FORMAT")
      ->check(CLI::IsMember(writableFormats()));
  addNoOverwrite(*command, &options->write.existing);
  options->raw.addTo(*command);
  addRange(*command, "--quality", options->write.jpegQuality, "JPEG quality of the result (default 95)", 1, 100);
  command
      ->add_option("--report", options->reports,
                   "Write what became of each frame, as JSON (- for standard output) or, ending in .html, as a page to "
                   "look at; may be given twice")
      ->type_name("FILE")
      ->allow_extra_args(false);
  command
      ->add_option("--report-maps", options->maps,
                   "Write maps of the fine mode: how many frames each place got, and where a frame was kept out")
      ->type_name("DIR");
  command->add_flag("--quiet", options->quiet, "No progress on the terminal");
  command->add_flag("--ignore-exif", options->ignoreExif,
                    "Carry no EXIF and XMP over; the result shows the pixels as they lie");
  command->add_flag("--ignore-icc", options->ignoreIcc, "Carry no ICC profile over");

  addSettingOptions(*command, &options->settings, &options->libraryDefaults);
  command->callback([options] { merge(*options); });
}

}  // namespace tool
