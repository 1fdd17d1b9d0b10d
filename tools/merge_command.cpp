#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <sstream>

#include "burst.h"
#include "commands.h"
#include "file_io.h"
#include "image_file.h"
#include "options.h"
#include "output_file.h"
#include "printable.h"
#include "report.h"

namespace tool {
namespace {

struct MergeOptions {
  std::vector<std::string> frames;
  std::string output;
  RawOptions raw;
  std::string report;
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

std::string summary(const BurstResult& result) {
  const auto merged = std::count_if(result.frames.begin(), result.frames.end(),
                                    [](const FrameReport& frame) { return frame.status == ZELVAN_TESSALINE4_MERGED; });
  char text[128];
  std::snprintf(text, sizeof(text), "%d of %zu frames merged, base is frame %zu, %.2f s", static_cast<int>(merged),
                result.frames.size(), result.base + 1, result.intakeSeconds + result.mergeSeconds);
  return text;
}

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
  if (!options.report.empty()) {
    checkFileWritable(options.report, options.write.existing);
    outputs.push_back(options.report);
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
  const auto checkSize = [&](const std::string&, int64_t width, int64_t height) {
    checkWritableSize(options.output, options.write, width, height);
  };
  const Settings settings = overlay(
      options.libraryDefaults ? Settings() : toolDefaults(options.settings.fine.value_or(1) != 0), options.settings);
  BurstResult result = mergeFiles(
      options.frames, options.raw.layout(), settings, checkSize, [&](const char* step, size_t done, size_t all) {
        line.show(std::string(step) + " (" + std::to_string(done) + "/" + std::to_string(all) + ")");
      });
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
  if (!options.report.empty()) {
    writeReport(options.report, options.frames, options.output, settings, result, options.write.existing);
  }
  if (!options.maps.empty()) writeMaps(options.maps, result, options.write.existing);
  line.finish(summary(result));
  warnOfOthers(options.frames, result, "orientation",
               [](const Metadata& a, const Metadata& b) { return a.orientation() == b.orientation(); });
  warnOfOthers(options.frames, result, "ICC profile",
               [](const Metadata& a, const Metadata& b) { return a.icc == b.icc; });
  // A stream stands for all its frames.
  const size_t base = std::min(result.base, options.frames.size() - 1);
  for (const std::string& loss : losses) warn(displayName(options.frames[base]), loss);
}

// The range stands in the place of the type: "--gain 0..1000".
template <typename Field, typename T>
CLI::Option* addRange(CLI::App& command, const char* option, Field& field, const std::string& help, T least, T most) {
  std::ostringstream range;
  range << least << "..";
  if (most < std::numeric_limits<T>::max()) range << most;
  CLI::Range check(least, most);
  check.description("");
  return command.add_option(option, field, help)->check(check)->type_name(range.str());
}

// "--gain" with its default: the tool's where it has one.
template <typename T>
void addSettings(CLI::App& command, const std::vector<Setting<T>>& table, Settings* given) {
  static const Settings defaults = toolDefaults(true);
  for (const Setting<T>& s : table) {
    std::string help = s.help;
    if (const auto& value = defaults.*s.field) help += " (default " + std::to_string(*value) + ")";
    addRange(command, s.option, given->*s.field, help, s.least, s.most)->group("Settings");
  }
}

}  // namespace

void addMergeCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("merge", "Merge the frames of a burst into one picture");
  const auto options = std::make_shared<MergeOptions>();
  command->footer(R"(Frames are JPEG or PNG files, raw files (with --size), or one Y4M stream from a file or
standard input (-): 2 to 10 of them, of one size, 640x480 or larger, and in the same orientation.
The sharpest becomes the base to which the others are aligned; a JPEG or PNG result carries its
EXIF, XMP and ICC profile. Pixels are not rotated: EXIF tells the orientation.

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
  command->add_option("--report", options->report, "Write what became of each frame, as JSON (- for standard output)")
      ->type_name("FILE");
  command
      ->add_option("--report-maps", options->maps,
                   "Write maps of the fine mode: how many frames each place got, and where a frame was kept out")
      ->type_name("DIR");
  command->add_flag("--quiet", options->quiet, "No progress on the terminal");
  command->add_flag("--ignore-exif", options->ignoreExif,
                    "Carry no EXIF and XMP over; the result shows the pixels as they lie");
  command->add_flag("--ignore-icc", options->ignoreIcc, "Carry no ICC profile over");

  Settings* given = &options->settings;
  addRange(*command, "--threads", given->threads, "Worker threads (default: one per processor)", 0, 64);
  command->add_option("--processor-mask", given->processorMask, "Bit mask of the processors to pin threads to")
      ->type_name("MASK");
  command->add_flag("--library-defaults", options->libraryDefaults,
                    "Start from the library's defaults instead of the tool's, which are chosen for looks");
  addSettings(*command, intSettings(), given);
  addSettings(*command, doubleSettings(), given);
  command
      ->add_option_function<std::vector<double>>(
          "--sharpness-sigmas",
          [given](const std::vector<double>& values) {
            given->sharpnessSigmas = {values[0], values[1]};
          },
          "Standard deviations, in pixels, of the two blurs whose difference sharpens")
      ->expected(2)
      ->type_name("FINE WIDE")
      ->group("Settings");
  command
      ->add_option("--luma-nr-table", given->lumaNrTable,
                   "Brightness denoising where 0, 1, 2 ... frames agree, separated by commas")
      ->delimiter(',')
      ->expected(1, 33)
      ->type_name("N,N,...")
      ->group("Settings");
  command
      ->add_option("--chroma-nr-table", given->chromaNrTable,
                   "Colour denoising where 0, 1, 2 ... frames agree, separated by commas")
      ->delimiter(',')
      ->expected(1, 33)
      ->type_name("N,N,...")
      ->group("Settings");
  for (const auto& [level, raw] :
       {std::pair{"--obj-blur-level", "--obj-blur-raw"}, std::pair{"--luma-nr-level", "--luma-nr-raw"},
        std::pair{"--luma-nr-level", "--luma-nr-times"}, std::pair{"--chroma-nr-level", "--chroma-nr-raw"},
        std::pair{"--chroma-nr-level", "--chroma-nr-times"}}) {
    command->get_option(level)->excludes(raw);
  }
  command->callback([options] { merge(*options); });
}

}  // namespace tool
