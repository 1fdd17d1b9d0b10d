// The tool, run in a folder of its own.
#ifndef TESSALINE4_TESTS_TOOLS_TOOL_RUN_H_
#define TESSALINE4_TESTS_TOOLS_TOOL_RUN_H_

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace tool {

inline std::string textOf(const std::filesystem::path& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

class ToolFolder {
 public:
  explicit ToolFolder(const std::string& name)
      : folder_(std::filesystem::temp_directory_path() / ("tessaline4-" + name + "-" + std::to_string(::getpid()))) {
    std::filesystem::create_directories(folder_);
  }
  ~ToolFolder() { std::filesystem::remove_all(folder_); }
  ToolFolder(const ToolFolder&) = delete;
  ToolFolder& operator=(const ToolFolder&) = delete;

  std::filesystem::path operator/(const std::string& name) const { return folder_ / name; }
  // Exit status; what it prints is in out and err.
  int run(const std::string& arguments) const {
    const std::string command =
        "cd '" + folder_.string() + "' && '" TESSALINE4_TOOL "' " + arguments + " >out 2>err </dev/null";
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  std::string out() const { return textOf(folder_ / "out"); }
  std::string err() const { return textOf(folder_ / "err"); }

 private:
  std::filesystem::path folder_;
};

}  // namespace tool

#endif  // TESSALINE4_TESTS_TOOLS_TOOL_RUN_H_
