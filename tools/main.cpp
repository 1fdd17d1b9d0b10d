// tessaline4: merges bursts of hand-held frames from the command line.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>

#include <zelvan_tessaline4.h>

#include "commands.h"
#include "options.h"
#include "picture.h"
#include "printable.h"

namespace {

int fail(const char* reason) {
  std::fprintf(stderr, "tessaline4: %s\n", tool::printable(reason).c_str());
  return EXIT_FAILURE;
}

// A standard stream that the caller closed must not become the first file that is opened. What takes its place
// refuses what the stream is for.
void fillStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) >= 0) continue;
    if (open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) != stream) _exit(EXIT_FAILURE);
  }
}

int run(int argc, char** argv) {
  CLI::App app("Merges a burst of hand-held frames into one sharper, less noisy still.", "tessaline4");
  app.set_version_flag("-V,--version",
                       std::string("tessaline4 " TESSALINE4_VERSION "\n") + zelvan_Tessaline4_getVersion(),
                       "Show the versions of the tool and of the library");
  app.require_subcommand(1);
  tool::addMergeCommand(app);
  tool::addBatchCommand(app);
  tool::addSimulateCommand(app);
  tool::addCompareCommand(app);
  tool::refuseNonFinite(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    fail(error.what());
    return 2;
  }
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  fillStandardStreams();
  // A file beyond the limit of its size is then an error of the write, and cleaned up after.
  signal(SIGXFSZ, SIG_IGN);
  try {
    const int status = run(argc, argv);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
      return fail((std::string("standard output: cannot be written: ") + std::strerror(errno)).c_str());
    }
    return status;
  } catch (const std::bad_alloc&) {
    return fail("out of memory");
  } catch (const std::exception& error) {
    return fail(error.what());
  }
}
