// A folder of its own, the tool run in it, and what files show of it.
#ifndef TESSALINE4_TESTS_TOOLS_TOOL_RUN_H_
#define TESSALINE4_TESTS_TOOLS_TOOL_RUN_H_

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "burst_simulator.h"
#include "picture.h"

namespace tool {

namespace fs = std::filesystem;

inline std::string textOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void expectIn(const std::string& text, const std::string& words) {
  EXPECT_NE(text.find(words), std::string::npos) << text << "\nlacks: " << words;
}
// What the tool says of an error: one line that has the words in it.
inline void expectOneLine(const std::string& text, const std::string& words) {
  EXPECT_EQ(text.rfind("tessaline4: ", 0), 0u) << text;
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
  expectIn(text, words);
}

class ToolFolder {
 public:
  explicit ToolFolder(const std::string& name)
      : folder_(fs::temp_directory_path() / ("tessaline4-" + name + "-" + std::to_string(::getpid()))) {
    fs::create_directories(folder_);
  }
  ~ToolFolder() { fs::remove_all(folder_); }
  ToolFolder(const ToolFolder&) = delete;
  ToolFolder& operator=(const ToolFolder&) = delete;

  fs::path operator/(const std::string& name) const { return folder_ / name; }
  std::string path(const std::string& name) const { return (folder_ / name).string(); }
  std::string text(const std::string& name) const { return textOf(folder_ / name); }
  std::string write(const std::string& name, const std::string& bytes) const {  // its path
    std::ofstream(path(name), std::ios::binary) << bytes;
    return path(name);
  }
  // Exit status; what it prints is in out and err.
  int run(const std::string& arguments, const std::string& input = "/dev/null") const {
    const std::string command =
        "cd '" + folder_.string() + "' && '" TESSALINE4_TOOL "' " + arguments + " >out 2>err <" + input;
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  std::string out() const { return text("out"); }
  std::string err() const { return text("err"); }

 private:
  fs::path folder_;
};

inline Picture randomPicture(int32_t width, int32_t height, uint32_t seed = 7, uint32_t least = 0,
                             uint32_t most = 255) {
  std::mt19937 random(seed);
  Picture picture(width, height);
  for (std::vector<uint8_t>* plane : {&picture.y, &picture.u, &picture.v}) {
    for (uint8_t& sample : *plane) sample = static_cast<uint8_t>(least + random() % (most - least + 1));
  }
  return picture;
}

inline Simulation simulationOf(int32_t width, int32_t height, int32_t frames, uint32_t seed = 1) {
  Simulation s;
  s.width = width;
  s.height = height;
  s.frames = frames;
  s.seed = seed;
  return s;
}

inline void smear(Picture* frame) {
  for (size_t at = frame->y.size() - 1; at >= 4; --at) {
    frame->y[at] = static_cast<uint8_t>((frame->y[at] + frame->y[at - 1] + frame->y[at - 2] + frame->y[at - 3]) / 4);
  }
}

}  // namespace tool

#endif  // TESSALINE4_TESTS_TOOLS_TOOL_RUN_H_
