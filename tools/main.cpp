// tessaline4: merges bursts of hand-held frames from the command line.
#include <cstdio>
#include <exception>

#include <zelvan_tessaline4.h>

#include "commands.h"
#include "picture.h"

namespace {

int fail(const char* reason) {
  std::fprintf(stderr, "tessaline4: %s\n", reason);
  return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    CLI::App app("Merges a burst of hand-held frames into one sharper, less noisy still.", "tessaline4");
    app.set_version_flag("--version", zelvan_Tessaline4_getVersion(), "Show the version of the library");
    app.require_subcommand(1);
    tool::addMergeCommand(app);
    tool::addSimulateCommand(app);
    tool::addCompareCommand(app);
    try {
      app.parse(argc, argv);
    } catch (const CLI::Success& help) {
      return app.exit(help);
    } catch (const CLI::ParseError& error) {
      fail(error.what());
      return 2;
    }
    return EXIT_SUCCESS;
  } catch (const std::bad_alloc&) {
    return fail("out of memory");
  } catch (const std::exception& error) {
    return fail(error.what());
  }
}
