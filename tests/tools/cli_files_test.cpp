// Files as the program takes and leaves them: outputs that are inputs, rights, killed processes, endless inputs.

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>

#include <cstddef>
#include <set>

#include "image_file.h"
#include "support/sanitized.h"
#include "tool_run.h"

namespace tool {
namespace {

// From here on the process and its children get a refusal for files without a name, or for links to them.
void refuse(bool unnamed, bool links) {
  const auto number = [](long call) { return static_cast<uint32_t>(call); };
  sock_filter filter[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number(links ? SYS_linkat : -1), 4, 0),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number(unnamed ? SYS_openat : -1), 0, 2),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args) + 2 * sizeof(uint64_t)),
      BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, O_TMPFILE & ~O_DIRECTORY, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
  };
  const sock_fprog program = {sizeof(filter) / sizeof(filter[0]), filter};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    _exit(126);
  }
}
using Prepare = void (*)();
constexpr Prepare kPlain = [] {};
constexpr Prepare kNoUnnamed = [] { refuse(true, false); };
constexpr Prepare kNoLinks = [] { refuse(false, true); };

class CliFiles : public ::testing::Test, public ToolFolder {
 protected:
  CliFiles() : ToolFolder("cli-files") {}
  void SetUp() override {
    fs::create_directories(path("work"));
    ASSERT_EQ(shell("$T simulate --built-in -o ../in --size 640x480 --frames 2 --seed 2 --frame-format nv21"), 0);
    for (const char* name : {"frame00", "frame01"}) {
      const std::string file = path(std::string("in/") + name);
      const Picture frame = readPicture(file + ".nv21", RawLayout{640, 480, ""});
      for (const char* ending : {".jpg", ".png", ".y4m"}) writePicture(file + ending, frame);
    }
    ASSERT_EQ(shell(merge("-o ../in/result.i420")), 0);
    result_ = text("in/result.i420");
    clear();
  }
  void clear() const {
    ASSERT_EQ(shell("cd ..; rm -rf work; mkdir work"), 0);
    fs::copy_file(path("in/frame00.nv21"), path("work/a.nv21"));
  }

  // Exit status of a script run in the folder work, where $T is the tool, or 128 and more where a signal ended it.
  int shell(const std::string& script, Prepare prepare = kPlain) const {
    const pid_t child = fork();
    if (child == 0) {
      prepare();
      const std::string line =
          "export T='" TESSALINE4_TOOL "'; cd '" + path("work") + "' && (" + script + "\n) >../out 2>../err </dev/null";
      execl("/bin/bash", "bash", "-c", line.c_str(), nullptr);
      _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  // Wait status of a merge into o.i420 that gets a signal when it enters a system call: the one that writes the result
  // (0), or the calls-th after it.
  int signalAt(int calls, int signal, Prepare prepare) const {
    const pid_t child = fork();
    if (child == 0) {
      setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
      prepare();
      if (chdir(path("work").c_str()) != 0 || ptrace(PTRACE_TRACEME) != 0) _exit(127);
      execl(TESSALINE4_TOOL, "tessaline4", "merge", "../in/frame00.nv21", "../in/frame01.nv21", "--size", "640x480",
            "-o", "o.i420", nullptr);
      _exit(127);
    }
    int status = 0, pass = 0;
    waitpid(child, &status, 0);
    ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    for (int seen = -1; WIFSTOPPED(status);) {
      ptrace(PTRACE_SYSCALL, child, nullptr, pass);
      waitpid(child, &status, 0);
      pass = WIFSTOPPED(status) && WSTOPSIG(status) != (SIGTRAP | 0x80) ? WSTOPSIG(status) : 0;
      if (!WIFSTOPPED(status) || pass != 0) continue;
      __ptrace_syscall_info info = {};
      ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof(info), &info);
      if (info.op != PTRACE_SYSCALL_INFO_ENTRY) continue;
      if (info.entry.nr == SYS_write && info.entry.args[2] == result_.size()) seen = 0;
      if (seen >= 0 && seen++ == calls) {
        kill(child, signal);
        ptrace(PTRACE_DETACH, child, nullptr, 0);
        waitpid(child, &status, 0);
      }
    }
    return status;
  }
  static std::string merge(const std::string& rest) {
    return "$T merge ../in/frame00.nv21 ../in/frame01.nv21 --size 640x480 " + rest;
  }
  // Runs a script that must fail with one line that has the words in it.
  void expectError(const std::string& script, const std::string& words) const {
    SCOPED_TRACE(script.substr(0, 200));
    const int status = shell(script);
    EXPECT_TRUE(status == 1 || status == 2) << status;
    expectOneLine(err(), words);
  }
  std::string work(const std::string& name) const { return text("work/" + name); }
  std::set<std::string> files(const std::string& folder = "") const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(path("work/" + folder))) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }
  mode_t bits(const std::string& name) const {
    struct stat info;
    return stat(path("work/" + name).c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
  }

  std::string result_;
};

// A frame that is not there comes last: the refusal is older than any reading.
TEST_F(CliFiles, OneFileForTwoPurposesIsRefusedBeforeWork) {
  ASSERT_EQ(shell("ln -s a.nv21 soft.nv21; ln a.nv21 hard.nv21; ln -s new.png to-new; mkdir d; ln -s .. d/up"
                  "; cp ../in/frame00.y4m s.y4m"),
            0);
  const std::string frames = "$T merge a.nv21 gone.nv21 --size 640x480 ";
  for (const char* rest : {"-o a.nv21", "-o ./d/../a.nv21", "-o soft.nv21", "-o hard.nv21", "-o o.png --report a.nv21",
                           "-o o.png --report hard.nv21", "-o new.png --report new.png", "-o new.png --report to-new",
                           "-o d/up/new.png --report new.png", "-o - --output-format png 1<>a.nv21",
                           "-o - --output-format png --report -"}) {
    expectError(frames + rest, "is the same file as");
  }
  expectError("$T merge - -o s.y4m <s.y4m", "is the same file as standard input");
  expectError("$T compare a.nv21 ../in --size 640x480 --json soft.nv21", "is the same file as");
  ASSERT_EQ(shell("cp -r ../in burst"), 0);
  expectError("$T simulate burst/clean01.png -o burst --size 320x240", "clean01.png: is the same file as");
  EXPECT_EQ(work("a.nv21"), text("in/frame00.nv21"));
  EXPECT_EQ(work("burst/clean01.png"), text("in/clean01.png"));
  EXPECT_EQ(shell(merge("-o /dev/null --output-format png --report /dev/null")), 0) << err();
}

TEST_F(CliFiles, ReplacedFilesKeepTheirAccess) {
  for (const Prepare prepare : {kPlain, kNoUnnamed, kNoLinks}) {
    clear();
    ASSERT_EQ(shell("echo old >old; chmod 604 old; ln old hard; ln -s old l1; ln -s $PWD/l1 l2; mkdir d"
                    "; ln -s ../made.i420 d/dangling"),
              0);
    const std::string old = path("work/old");
    const bool isRoot = geteuid() == 0 && chown(old.c_str(), 1234, 5678) == 0;
    // Owner, one more user, group, mask and others.
    const std::string list(
        "\2\0\0\0\1\0\6\0\xFF\xFF\xFF\xFF\2\0\4\0\xD2\4\0\0\4\0\0\0\xFF\xFF\xFF\xFF"
        "\x10\0\4\0\xFF\xFF\xFF\xFF\x20\0\4\0\xFF\xFF\xFF\xFF",
        44);
    const bool hasList = setxattr(old.c_str(), "system.posix_acl_access", list.data(), list.size(), 0) == 0;
    const mode_t before = bits("old");

    ASSERT_EQ(shell(merge("-o l2 --output-format i420"), prepare), 0) << err();
    EXPECT_EQ(work("old"), result_);
    EXPECT_EQ(bits("old"), before);
    EXPECT_TRUE(fs::is_symlink(path("work/l1")) && fs::is_symlink(path("work/l2")));
    EXPECT_EQ(work("hard"), "old\n");
    struct stat info;
    ASSERT_EQ(stat(old.c_str(), &info), 0);
    EXPECT_TRUE(!isRoot || (info.st_uid == 1234 && info.st_gid == 5678));
    char kept[64];
    EXPECT_TRUE(!hasList || getxattr(old.c_str(), "system.posix_acl_access", kept, sizeof(kept)) == 44);

    ASSERT_EQ(shell("umask 027; " + merge("-n -o d/dangling --output-format i420 --report new.json"), prepare), 0)
        << err();
    EXPECT_EQ(work("made.i420"), result_);
    EXPECT_EQ(bits("made.i420"), 0640u);
    EXPECT_TRUE(fs::is_symlink(path("work/d/dangling")));
    EXPECT_EQ(files(), (std::set<std::string>{"a.nv21", "d", "hard", "l1", "l2", "made.i420", "new.json", "old"}));
  }
}

TEST_F(CliFiles, WhatCannotBeWrittenIsToldBeforeWork) {
  ASSERT_EQ(shell("echo old >locked.png; chmod 444 locked.png; echo old >old.png; ln -s loop.png loop.png; mkdir d.png"
                  "; cp -r ../in burst; chmod 444 burst/clean00.png"),
            0);
  const std::string frames = "$T merge a.nv21 gone.nv21 --size 640x480 ", longest(255, 'n');
  for (const auto& [rest, words] :
       {std::pair<std::string, std::string>{"-o locked.png", "locked.png: cannot be written"},
        {"-o o.png --report locked.png", "locked.png"},
        {"-n -o old.png", "old.png: cannot be written: File exists"},
        {"--no-overwrite -o o.png --report old.png", "old.png"},
        {"-o loop.png", "loop.png"},
        {"-o d.png", "Is a directory"},
        {"-o x" + longest + " --output-format png", "name too long"},
        {"-o -", "--output-format"},
        {"-o - --output-format gif", "gif"},
        {"-o - --output-format png >&-", "standard output: cannot be written"}}) {
    expectError(frames + rest, words);
  }
  for (const auto& [size, words] : {std::pair{"100x100", "gone.nv21: 100x100 is too small"},
                                    {"70000x640", "o.jpg: no JPEG is wider"},
                                    {"20000x20000", "gone.nv21: a size of"}}) {
    expectError("$T merge gone.nv21 gone.nv21 -o o.jpg --size " + std::string(size), words);
  }
  expectError("$T simulate --built-in -o burst", "clean00.png");
  expectError("$T simulate --built-in -o burst -n --frame-format nv21", "File exists");
  expectError("$T simulate --built-in -o old.png/x", "old.png/x");
  EXPECT_EQ(work("locked.png") + work("old.png"), "old\nold\n");
}

TEST_F(CliFiles, KilledProcessesLeaveNothingBehind) {
  for (const bool replaces : {false, true}) {
    int32_t left = 0;
    for (int32_t calls = 0; calls < (replaces ? 9 : 4); ++calls) {
      clear();
      if (replaces) std::ofstream(path("work/o.i420")) << "old";
      signalAt(calls, SIGKILL, kPlain);
      std::set<std::string> names = files();
      names.erase("a.nv21");
      const std::string bytes = work("o.i420");
      EXPECT_TRUE((names.erase("o.i420") == 0 && !replaces) || bytes == result_ || (replaces && bytes == "old"))
          << calls;
      left += static_cast<int32_t>(names.size());
    }
    EXPECT_LE(left, replaces ? 1 : 0) << "a name may be left between link and rename alone";
  }
  // With a second name for as long as writing lasts, the signals that can wait do.
  for (int32_t calls = 0; calls < 4; ++calls) {
    clear();
    const int status = signalAt(calls, SIGTERM, kNoUnnamed);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << calls << ": " << status;
    EXPECT_EQ(files(), (std::set<std::string>{"a.nv21", "o.i420"}));
  }
}

TEST_F(CliFiles, FailedWritesAreToldAndLeaveNothing) {
  for (const Prepare prepare : {kPlain, kNoUnnamed}) {
    EXPECT_EQ(shell("echo old >o.i420; ulimit -f 20; " + merge("-o o.i420"), prepare), 1);
    expectIn(err(), "o.i420: cannot be written: File too large");
    EXPECT_EQ(files(), (std::set<std::string>{"a.nv21", "o.i420"}));
    EXPECT_EQ(work("o.i420"), "old\n");
  }
  expectError("ln -s /dev/full full.i420; " + merge("-o full.i420"), "full.i420: cannot be written");
  expectError(merge("-o - --output-format i420 >/dev/full"), "standard output: cannot be written");
  expectError("$T --help >/dev/full", "standard output: cannot be written");
}

TEST_F(CliFiles, NamesGoUpToTheLimitsOfTheSystem) {
  std::string longest = std::string(250, 'n') + ".i420", deep;
  while (deep.size() + 8 < 4095) deep += std::string(std::min<size_t>(250, 4095 - 8 - deep.size()), 'd') + "/";
  deep += "o.i420";
  for (const Prepare prepare : {kPlain, kNoUnnamed}) {
    for (const std::string& name : {longest, deep}) {
      ASSERT_EQ(shell("mkdir -p $(dirname " + name + ")"), 0);
      for (int32_t again = 0; again < 2; ++again) ASSERT_EQ(shell(merge("-o " + name), prepare), 0) << err();
      EXPECT_EQ(shell("cmp ../in/result.i420 " + name), 0);
    }
  }
}

TEST_F(CliFiles, EndlessInputsEnd) {
  const std::string limited = "T='timeout 60 '$T; ", rest = " ../in/frame01.nv21 --size 640x480 -o o.png";
  expectError(limited + "$T merge /dev/zero ../in/frame01.png -o o.png", "/dev/zero: not a JPEG");
  expectError(limited + "$T merge /dev/zero --format nv21" + rest, "/dev/zero: more bytes");
  expectError(limited + "$T simulate /dev/zero -o s", "/dev/zero: not a JPEG");
  expectError("mkdir -p e; ln -sf /dev/zero e/truth.json; " + limited + "$T compare ../in/frame00.png e",
              "e/truth.json: is too long");
  expectError(limited + "(head -c 3000 ../in/frame00.y4m; cat /dev/zero) | $T merge - -o o.png", "standard input");
  expectError(limited +
                  "(head -n 1 ../in/frame00.y4m; while tail -n +2 ../in/frame00.y4m; do :; done) 2>/dev/null | "
                  "$T merge - -o o.png",
              "more than 1000 frames");
  for (const char* kind : {"jpg", "png"}) {
    for (const char* length : {"30", "2000", "40000"}) {
      expectError(limited + "(head -c " + length + " ../in/frame00." + kind + "; cat /dev/zero) | $T merge - -o o.png",
                  "standard input: damaged");
    }
    // No byte behind the picture is waited for: the pipe stays open, and silent.
    const std::string name = std::string("../in/frame00.") + kind, second = std::string("../in/frame01.") + kind;
    EXPECT_EQ(shell(limited + "mkfifo p" + kind + "; exec 3<>p" + kind + "; cat " + name + " >&3 & exec 3<>p" + kind +
                    "; $T merge p" + kind + " " + second + " -o p.i420 && $T merge " + name + " " + second +
                    " -o f.i420 && cmp p.i420 f.i420"),
              0)
        << err();
  }
  expectError(limited + "mkfifo p; exec 3<>p; printf xy >&3; $T merge p ../in/frame01.png -o o.png", "p: not a JPEG");
  expectError(limited + "(printf '\\xff\\xd8'; yes $(printf '\\xff\\xe1\\xff\\x40')) | $T merge - -o o.png",
              "standard input: damaged");
}

TEST_F(CliFiles, MemoryThatIsNotThereNamesTheFile) {
  if (kSanitized) GTEST_SKIP() << "the sanitizer takes more addresses than any limit";
  for (const char* name : {"big.jpg", "big.png", "big.i420"}) {
    writePicture(path(std::string("work/") + name), Picture(2000, 1500));
    int32_t shortages = 0;
    // Up to where both frames are in memory, and beyond it: reading, decoding and merging run short.
    for (int32_t limit = 24000; limit <= 72000; limit += 8000) {
      const std::string both = std::string(name) + " " + name;
      const int status =
          shell("ulimit -v " + std::to_string(limit) + "; $T merge " + both + " --size 2000x1500 -o o.png");
      EXPECT_TRUE(status == 0 || status == 1 || status == 127) << limit << ": " << status;  // 127: not even started
      if (status != 1) continue;
      EXPECT_EQ(err(), "tessaline4: " + std::string(name) + ": out of memory\n") << limit;
      ++shortages;
    }
    EXPECT_GE(shortages, 3) << name;
  }
}

TEST_F(CliFiles, StandardOutputTakesResultOrReport) {
  ASSERT_EQ(shell(merge("-o - --output-format i420 --report r.json")), 0) << err();
  EXPECT_EQ(out(), result_);
  expectIn(work("r.json"), "\"output\": \"standard output\"");
  ASSERT_EQ(shell(merge("-o o.data --output-format i420 --report - | grep -c trackFailure")), 0) << err();
  EXPECT_EQ(out(), "2\n");
  EXPECT_EQ(work("o.data"), result_);
  EXPECT_EQ(files(), (std::set<std::string>{"a.nv21", "o.data", "r.json"}));
  ASSERT_EQ(shell("$T -V"), 0);
  const std::string versions = out();
  EXPECT_EQ(versions.rfind("tessaline4 4.", 0), 0u) << versions;
  expectIn(versions, "\nZelvan Tessaline Ver.");
}

TEST_F(CliFiles, MessagesDoNotSteerTheTerminal) {
  for (const auto& [name, shown] : {std::pair{"g\\n\\x1b[31m\\x7f", "g\\n\\x1b[31m\\x7f: "},
                                    {"\\xc2\\x9b\\xff\\xc3", "\\xc2\\x9b\\xff\\xc3: "},
                                    {"\\xc3\\xa9\\xe2\\x82\\xac", "\xc3\xa9\xe2\x82\xac: "}}) {
    expectError("$T merge $'" + std::string(name) + "' a.nv21 -o o.png", shown);
    expectError("$T merge a.nv21 b.nv21 -o $'" + std::string(name) + "'", shown);
  }
}

TEST_F(CliFiles, NumbersThatAreNoneAreRefusedByEveryOption) {
  for (const std::string number : {"nan", "-infinity"}) {
    for (const char* option :
         {"--gain", "--quality", "--threads", "--processor-mask", "--remove-spike", "--obj-blur-raw", "--luma-nr-raw",
          "--chroma-nr-raw", "--sharpness-sigmas 1", "--luma-nr-table 1,2", "--chroma-nr-table 1,2"}) {
      const char separator = std::string(option).find(',') == std::string::npos ? ' ' : ',';
      expectError(merge("-o o.png " + std::string(option) + separator + number), "--");
    }
    for (const char* option :
         {"--seed", "--shot-noise", "--read-noise", "--shift", "--rotation", "--zoom", "--blur-length"}) {
      expectError("$T simulate --built-in --size 64x48 -o s " + std::string(option) + " " + number, option);
    }
  }
  for (const char* number : {"-NaN", "inf", "1e999", "1e39"}) {
    expectError(merge("-o o.png --luma-nr-table 1," + std::string(number)), number);
  }
  EXPECT_EQ(files(), (std::set<std::string>{"a.nv21"}));
}

TEST_F(CliFiles, SimulateRemovesItsOwnFramesOnly) {
  const std::string again = "$T simulate --built-in --size 640x480 -o s --frame-format nv21 --frames ";
  ASSERT_EQ(shell(again + "4 --averages --layers 1 --blur-base --blurred-frame 0 --foreign-frame 1"), 0) << err();
  for (const char* name : {"sharp00.png", "mask00.png", "average03.png"}) {
    EXPECT_TRUE(fs::exists(path(std::string("work/s/") + name))) << name;
  }
  ASSERT_EQ(shell("echo mine >s/frame03.nv21; echo mine >s/mine.png; sed -i 's/frame02.nv21/mine.png/' s/truth.json"),
            0);
  ASSERT_EQ(shell(again + "2"), 0) << err();
  EXPECT_FALSE(fs::exists(path("work/s/frame02.nv21")) || fs::exists(path("work/s/clean03.png")));
  EXPECT_EQ(work("s/frame03.nv21") + work("s/mine.png"), "mine\nmine\n");
  expectIn(err(), "s/frame03.nv21: left alone");
  EXPECT_EQ(files("s"), (std::set<std::string>{".simulated", "clean00.png", "clean01.png", "frame00.nv21",
                                               "frame01.nv21", "frame03.nv21", "mine.png", "truth.json"}));
  // A file is in the way only of a burst that would write it.
  ASSERT_EQ(shell("$T simulate --built-in --size 64x48 -o n -n; rm -r n; mkdir n; echo mine >n/sharp00.png"), 0);
  expectError("$T simulate --built-in --size 64x48 -o n -n --blur-base", "File exists");
  EXPECT_EQ(shell("$T simulate --built-in --size 64x48 -o n -n"), 0) << err();
}

}  // namespace
}  // namespace tool
