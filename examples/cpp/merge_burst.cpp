// Merges raw NV21 frames into one: the C example again, with an owner for what must be given back. Ctrl-C stops it.
//
//   merge_burst WIDTH HEIGHT RESULT FRAME FRAME...
#include <zelvan_tessaline4.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// An instance, its memory and its bursts; every failure is an exception.
class Burst {
 public:
  using Progress = std::function<bool(int percent)>;  // false stops

  Burst(int width, int height, int frames, Progress progress = {}) : progress_(std::move(progress)) {
    const int32_t bytes = zelvan_Tessaline4_getBufferSize(width, height, frames, "YVU420_SEMIPLANAR");
    if (bytes <= 0) throw std::length_error("the frames are too large");
    memory_.resize(static_cast<size_t>(bytes));
    check(zelvan_Tessaline4_initialize(handle_.get(), memory_.data(), bytes, width, height));
    if (progress_) check(zelvan_Tessaline4_setProgress(handle_.get(), &Burst::tell, &progress_));
  }
  Burst(const Burst&) = delete;  // the library keeps the address of progress_
  Burst& operator=(const Burst&) = delete;
  zelvan_Tessaline4* get() { return handle_.get(); }

  // Frames and output must live until result; frames are changed.
  void start(zelvan_ImageData* output, int frames) { check(zelvan_Tessaline4_start(get(), output, frames)); }
  void add(zelvan_ImageData* frame) { check(zelvan_Tessaline4_addImage(get(), frame)); }
  void result() { check(zelvan_Tessaline4_getResult(get())); }
  bool merged(int frame) {
    int32_t fate = -1;
    check(zelvan_Tessaline4_getMergeStatus(get(), &fate, frame));
    return fate == ZELVAN_TESSALINE4_MERGED;
  }

  static void check(uint32_t status) {
    if (status != ZELVAN_TESSALINE4_OK) throw std::runtime_error(zelvan_Tessaline4_getStatusText(status));
  }

 private:
  struct Finalize {
    void operator()(zelvan_Tessaline4* handle) const {
      zelvan_Tessaline4_finalize(handle);
      delete handle;
    }
  };
  static int32_t tell(void* user, int32_t percent) { return (*static_cast<Progress*>(user))(percent) ? 0 : 1; }

  Progress progress_;
  std::vector<unsigned char> memory_;
  std::unique_ptr<zelvan_Tessaline4, Finalize> handle_{new zelvan_Tessaline4{nullptr}};  // goes before its memory
};

namespace {

volatile std::sig_atomic_t stopped = 0;

std::vector<char> read(const std::string& path, size_t size) {
  std::ifstream file(path, std::ios::binary);
  std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
  if (bytes.size() != size) throw std::runtime_error(path + ": not a frame of this size");
  return bytes;
}

zelvan_ImageData record(std::vector<char>* pixels, int width, int height) {
  return {width, height, pixels->data(), pixels->data() + width * height, nullptr};
}

void merge(int width, int height, const std::string& result, const std::vector<std::string>& paths) {
  if (width < 2 || height < 2 || width % 2 != 0 || height % 2 != 0) throw std::runtime_error("even sizes only");
  const size_t size = static_cast<size_t>(width) * static_cast<size_t>(height) / 2 * 3;
  const int count = static_cast<int>(paths.size());
  std::vector<std::vector<char>> frames;
  for (const std::string& path : paths) frames.push_back(read(path, size));
  std::vector<char> picture(size);
  zelvan_ImageData output = record(&picture, width, height);

  Burst burst(width, height, count, [](int percent) {
    std::cerr << '\r' << percent << " %" << (percent == 100 ? "\n" : "") << std::flush;
    return stopped == 0;
  });
  Burst::check(zelvan_Tessaline4_setSharpnessEnhanceLevel(burst.get(), 0));
  burst.start(&output, count);
  for (std::vector<char>& frame : frames) {
    zelvan_ImageData data = record(&frame, width, height);
    burst.add(&data);
  }
  burst.result();
  for (int i = 0; i < count; ++i) {
    std::cout << paths[static_cast<size_t>(i)] << ": " << (burst.merged(i) ? "merged" : "left out") << '\n';
  }
  std::ofstream file(result, std::ios::binary);
  if (!file.write(picture.data(), static_cast<std::streamsize>(size)).flush()) throw std::runtime_error(result);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 6) {
    std::cerr << "usage: merge_burst WIDTH HEIGHT RESULT FRAME FRAME... (2 to 10 frames)\n";
    return EXIT_FAILURE;
  }
  std::signal(SIGINT, [](int) { stopped = 1; });
  try {
    merge(std::atoi(argv[1]), std::atoi(argv[2]), argv[3], {argv + 4, argv + argc});
  } catch (const std::exception& error) {
    std::cerr << "merge_burst: " << error.what() << '\n';
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}
