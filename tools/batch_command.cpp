#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <set>

#include "burst.h"
#include "burst_grouping.h"
#include "child_jobs.h"
#include "commands.h"
#include "file_io.h"
#include "image_file.h"
#include "image_file_kinds.h"
#include "options.h"
#include "output_file.h"
#include "photo.h"
#include "printable.h"
#include "report.h"
#include "report_page.h"
#include "setting_options.h"
#include "sharpest.h"

namespace tool {
namespace {

namespace fs = std::filesystem;

struct BatchOptions {
  std::vector<std::string> folders;
  std::string output;
  GroupingRules rules;
  WriteOptions write;
  Settings settings;
  int32_t sideBySide = 1;
  bool libraryDefaults = false;
  bool dryRun = false;
  bool again = false;
  bool quiet = false;
  bool pages = false;
};

struct Failure {
  std::string name;
  std::string reason;
};

// What the folders hold.
struct Harvest {
  std::vector<Photo> photos;
  std::vector<Failure> failures;
  size_t others = 0;  // files of other kinds
};

// A burst with what its still may be called, by the photo that becomes the base.
struct Work {
  std::vector<Photo> photos;
  std::vector<std::string> names;
};

std::string fileName(const std::string& path) {
  return printable(fs::path(path).filename().string());
}

std::string range(const std::vector<Photo>& photos) {
  return fileName(photos.front().path) + " .. " + fileName(photos.back().path);
}

std::string counted(size_t count, const char* one) {
  return std::to_string(count) + " " + one + (count == 1 ? "" : "s");
}

std::string duration(double seconds) {
  char text[64];
  if (seconds < 10.0) {
    std::snprintf(text, sizeof(text), "%.2g s", seconds);
  } else if (seconds < 120.0) {
    std::snprintf(text, sizeof(text), "%.0f s", seconds);
  } else if (seconds < 7200.0) {
    std::snprintf(text, sizeof(text), "%.0f min", seconds / 60.0);
  } else {
    std::snprintf(text, sizeof(text), "%.1f h", seconds / 3600.0);
  }
  return text;
}

Harvest harvest(const BatchOptions& options) {
  std::set<std::pair<dev_t, ino_t>> seen;
  struct stat output = {};
  const bool hasOutput = stat(options.output.c_str(), &output) == 0;
  std::vector<std::string> paths;
  Harvest found;
  for (const std::string& folder : options.folders) {
    struct stat info;
    std::error_code failed;
    fs::directory_iterator entries(folder, failed);
    if (failed || stat(folder.c_str(), &info) != 0) {
      throw Error(folder, "cannot be read as a folder: " + failed.message());
    }
    if (hasOutput && info.st_dev == output.st_dev && info.st_ino == output.st_ino) {
      throw Error(options.output, "is a folder of photos; stills would take their names");
    }
    if (!seen.emplace(info.st_dev, info.st_ino).second) continue;
    for (; entries != fs::directory_iterator(); entries.increment(failed)) {
      const std::string path = entries->path().string();
      if (entries->path().filename().string().front() == '.' || !entries->is_regular_file(failed)) continue;
      if (isPhotoName(path)) {
        paths.push_back(path);
      } else {
        ++found.others;
      }
    }
    if (failed) throw Error(folder, "cannot be read: " + failed.message());
  }
  // Cameras that keep a shot as raw and as JPEG name both alike.
  const auto stem = [](const std::string& path) { return fs::path(path).replace_extension().string(); };
  std::set<std::string> developed;
  for (const std::string& path : paths) {
    if (!isCameraRawName(path)) developed.insert(stem(path));
  }
  found.others +=
      std::erase_if(paths, [&](const auto& path) { return isCameraRawName(path) && developed.contains(stem(path)); });
  std::sort(paths.begin(), paths.end());
  for (const std::string& path : paths) {
    try {
      found.photos.push_back(readPhoto(path));
    } catch (const Error& error) {
      found.failures.push_back({path, error.what()});
    }
  }
  return found;
}

std::string stillPath(const BatchOptions& options, const std::string& name, const std::string& ending) {
  return (fs::path(options.output) / (name + "." + ending)).string();
}

// The still that is there of a burst; empty without one.
std::string existingStill(const BatchOptions& options, const Work& work) {
  for (const std::string& name : work.names) {
    const std::string path = stillPath(options, name, options.write.format);
    if (access(path.c_str(), F_OK) == 0) return path;
  }
  return {};
}

// With several bursts side by side each has its share of the processors, on which alone its threads are pinned.
void shareProcessors(Settings* settings, size_t sideBySide, size_t slot) {
  cpu_set_t allowed;
  if (sideBySide < 2 || settings->threads || settings->processorMask ||
      sched_getaffinity(0, sizeof(allowed), &allowed) != 0) {
    return;
  }
  std::vector<int> processors;
  for (int i = 0; i < 32; ++i) {  // the mask names no others
    if (CPU_ISSET(i, &allowed)) processors.push_back(i);
  }
  if (processors.empty()) return;
  const size_t share = std::max<size_t>(processors.size() / sideBySide, 1);
  uint32_t mask = 0;
  for (size_t i = 0; i < share; ++i) mask |= 1u << processors[(slot * share + i) % processors.size()];
  settings->threads = static_cast<int32_t>(share);
  settings->processorMask = mask;
}

// Returns what to say of it.
std::string mergeOne(const BatchOptions& options, const Work& work, size_t slot) {
  std::vector<std::string> files;
  for (const Photo& photo : work.photos) files.push_back(photo.path);
  const SizeCheck checkOutput = [&](const std::string&, int64_t width, int64_t height) {
    checkWritableSize(stillPath(options, work.names[0], options.write.format), options.write, width, height);
  };
  const Choice choice = chooseSharpest(files, std::nullopt, kMostFrames, checkOutput);
  Settings settings = chosenSettings(options.settings, options.libraryDefaults);
  shareProcessors(&settings, static_cast<size_t>(options.sideBySide), slot);
  const BurstResult result = mergeFiles(choice.takenFiles(), std::nullopt, settings, checkOutput);

  const size_t base = choice.placeOf(result.base);
  const std::string still = stillPath(options, work.names[base], options.write.format);
  // The still comes last: where it is, the burst is done.
  writeReport(stillPath(options, work.names[base], "json"), choice, still, settings, result, Existing::kReplace);
  if (options.pages) {
    writeReportPage(stillPath(options, work.names[base], "html"), choice, std::nullopt, still, settings, result,
                    Existing::kReplace);
  }
  const std::string earlier = existingStill(options, work);
  std::string told = fileName(still) + ": " + range(work.photos) + ": " + mergeSummary(choice, result);
  for (const std::string& loss :
       writePicture(still, result.picture.planes, result.metadata[result.base], options.write)) {
    told += "\n  " + fileName(files[base]) + ": " + printable(loss);
  }
  if (!earlier.empty() && earlier != still) told += "\n  " + fileName(earlier) + " of an earlier run is still there";
  return told;
}

class BatchProgress {
 public:
  BatchProgress(bool quiet, size_t bursts, size_t photos)
      : shown_(!quiet && isatty(STDERR_FILENO) != 0), bursts_(bursts), photos_(photos) {}

  void show() const {
    if (!shown_) return;
    std::string text = std::to_string(burstsDone_) + " of " + counted(bursts_, "burst");
    if (photosDone_ > 0) {
      const double passed = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
      const auto left = static_cast<double>(photos_ - photosDone_);
      text += ", about " + duration(passed * left / static_cast<double>(photosDone_)) + " left";
    }
    std::fprintf(stderr, "\r\033[K%s", text.c_str());
    std::fflush(stderr);
  }
  void clear() const {
    if (shown_) std::fputs("\r\033[K", stderr);
  }
  void count(size_t photos) {
    ++burstsDone_;
    photosDone_ += photos;
  }

 private:
  bool shown_;
  size_t bursts_;
  size_t photos_;
  size_t burstsDone_ = 0;
  size_t photosDone_ = 0;
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

void tellFailure(const std::string& reason) {
  std::fprintf(stderr, "tessaline4: %s\n", printable(reason).c_str());
}

void printGrouping(const Grouping& grouping, const std::vector<Work>& works, const BatchOptions& options) {
  for (size_t i = 0; i < works.size(); ++i) {
    const std::vector<Photo>& photos = works[i].photos;
    const double seconds = static_cast<double>(photos.back().time - photos.front().time) * 1e-6;
    const std::string still = existingStill(options, works[i]);
    std::printf("burst %zu: %s in %s%s%s\n", i + 1, counted(photos.size(), "photo").c_str(), duration(seconds).c_str(),
                still.empty() ? "" : ", done: ", fileName(still).c_str());
    for (const Photo& photo : photos) std::printf("  %s\n", printable(photo.path).c_str());
  }
  if (!grouping.singles.empty()) std::puts("left alone:");
  for (const Photo& photo : grouping.singles) std::printf("  %s\n", printable(photo.path).c_str());
}

void batch(const BatchOptions& options) {
  Harvest found = harvest(options);
  std::map<std::string, std::string> nameOf;
  const std::vector<std::string> names = stillNames(found.photos);
  for (size_t i = 0; i < names.size(); ++i) nameOf[found.photos[i].path] = names[i];
  const size_t photoCount = found.photos.size();
  const Grouping grouping = groupPhotos(std::move(found.photos), options.rules);

  std::vector<Work> works;
  for (const std::vector<Photo>& photos : grouping.bursts) {
    Work work = {photos, {}};
    for (const Photo& photo : photos) work.names.push_back(nameOf[photo.path]);
    works.push_back(std::move(work));
  }
  std::string how = "runs of " + std::to_string(options.rules.count.value_or(0));
  if (!options.rules.count) {
    how = "gap " + duration(grouping.gap) + (options.rules.gap ? "" : ", found from their times");
  }
  std::printf("%s: %s, %s (%s)%s\n", counted(photoCount, "photo").c_str(), counted(works.size(), "burst").c_str(),
              counted(grouping.singles.size(), "single").c_str(), how.c_str(),
              found.others == 0 ? "" : ("; " + counted(found.others, "other file") + " left alone").c_str());
  for (const Failure& failure : found.failures) tellFailure(failure.reason);
  std::vector<Failure> failures = std::move(found.failures);

  size_t made = 0;
  size_t there = 0;
  if (options.dryRun) {
    printGrouping(grouping, works, options);
  } else {
    std::error_code failed;
    fs::create_directories(options.output, failed);
    if (failed) throw Error(options.output, "cannot be made: " + failed.message());
    std::vector<Work> open;
    size_t photos = 0;
    for (Work& work : works) {
      if (!options.again && !existingStill(options, work).empty()) {
        ++there;
        continue;
      }
      photos += work.photos.size();
      open.push_back(std::move(work));
    }
    BatchProgress progress(options.quiet, open.size(), photos);
    progress.show();
    runJobs(
        open.size(), static_cast<size_t>(options.sideBySide),
        [&](size_t i, size_t slot) { return mergeOne(options, open[i], slot); },
        [&](size_t i, const JobOutcome& outcome) {
          progress.clear();
          progress.count(open[i].photos.size());
          if (outcome.good) {
            ++made;
            if (!options.quiet) std::printf("%s\n", outcome.text.c_str());
          } else {
            failures.push_back({range(open[i].photos), outcome.text});
            tellFailure("burst " + failures.back().name + ": " + outcome.text);
          }
          std::fflush(stdout);
          progress.show();
        });
    progress.clear();
    std::printf("%s made, %zu there already\n", counted(made, "still").c_str(), there);
  }
  if (failures.empty()) return;
  std::string last = std::to_string(failures.size()) + " failed: ";
  for (size_t i = 0; i < failures.size(); ++i) last += (i == 0 ? "" : ", ") + failures[i].name;
  throw Error(last);
}

}  // namespace

void addBatchCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand("batch", "Find the bursts in folders of photos and merge each into a picture");
  const auto options = std::make_shared<BatchOptions>();
  options->write.format = "jpg";
  command->footer(R"(Photos that were taken right after each other, by one camera, in one size and with about the same
exposure are a burst; single photos are left alone. Each burst becomes a still and a report, named
after the photo that became the base. Bursts whose still is there are skipped, so that a run that was
interrupted can go on; a burst that fails costs no other.

Example: tessaline4 batch DCIM/100TRIP -o stills)");
  command->add_option("FOLDER", options->folders, "Folders of photos; folders in them are not looked into")->required();
  command->add_option("-o,--output", options->output, "Folder for the stills, made if it is not there")
      ->required()
      ->type_name("DIR");
  CLI::Option* gap = addRange(*command, "--gap", options->rules.gap,
                              "Longest time between two photos of a burst (default: found from the data)", 0.0, 1e6)
                         ->type_name("SECONDS");
  addRange(*command, "--count", options->rules.count, "Bursts are runs of so many photos, whatever they tell",
           size_t{2}, size_t{1000})
      ->excludes(gap);
  command->add_flag("--dry-run", options->dryRun, "Print which photos make bursts, and do nothing");
  command->add_flag("--again", options->again, "Merge bursts whose still is there, too");
  addRange(*command, "-j,--jobs", options->sideBySide, "Bursts side by side, each with its share of the processors", 1,
           64);
  command->add_option("--output-format", options->write.format, "Kind of the stills (default jpg)")
      ->type_name("FORMAT")
      ->check(CLI::IsMember(writableFormats()));
  addRange(*command, "--quality", options->write.jpegQuality, "JPEG quality of the stills (default 95)", 1, 100);
  command->add_flag("--html", options->pages, "Write a page to look at for each still, too");
  command->add_flag("--quiet", options->quiet, "Nothing but the first and the last line and failures");
  addSettingOptions(*command, &options->settings, &options->libraryDefaults);
  command->callback([options] {
    if (!options->again) options->write.existing = Existing::kRefuse;
    batch(*options);
  });
}

}  // namespace tool
