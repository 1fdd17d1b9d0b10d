#include "output_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <optional>
#include <tuple>

#include "descriptor.h"
#include "file_io.h"
#include "picture.h"

namespace tool {
namespace {

constexpr int kMostLinks = 40;  // as many as the system follows
constexpr mode_t kAccessBits = 0777;
constexpr char kAccessList[] = "system.posix_acl_access";

[[noreturn]] void fail(const std::string& path, int code) {
  throw Error(outputName(path), std::string("cannot be written: ") + std::strerror(code));
}

// Where an output lies once its symbolic links are followed.
struct Target {
  Descriptor folder;  // not open for a device or a pipe
  std::string name;   // in folder
  bool exists = false;
  struct stat info = {};  // where it exists

  bool isSpecial() const { return exists && !S_ISREG(info.st_mode); }
};

Target resolve(const std::string& path) {
  Target target;
  // Links under /proc lead to pipes that only the system can find.
  if (stat(path.c_str(), &target.info) == 0 && !S_ISREG(target.info.st_mode)) {
    if (S_ISDIR(target.info.st_mode)) fail(path, EISDIR);
    target.exists = true;
    return target;
  }
  std::string rest = path;
  for (int links = 0; links <= kMostLinks; ++links) {
    const size_t slash = rest.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : rest.substr(0, slash + 1);
    const int from = target.folder.isOpen() ? target.folder.get() : AT_FDCWD;
    target.folder = Descriptor(openat(from, folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!target.folder.isOpen()) fail(path, errno);
    target.name = slash == std::string::npos ? rest : rest.substr(slash + 1);
    if (target.name.empty()) fail(path, path.empty() ? ENOENT : EISDIR);
    if (fstatat(target.folder.get(), target.name.c_str(), &target.info, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno != ENOENT) fail(path, errno);
      return target;
    }
    if (!S_ISLNK(target.info.st_mode)) {
      target.exists = true;
      return target;
    }
    char text[PATH_MAX];
    const ssize_t length = readlinkat(target.folder.get(), target.name.c_str(), text, sizeof(text));
    if (length < 0) fail(path, errno);
    rest.assign(text, static_cast<size_t>(length));
  }
  fail(path, ELOOP);
}

void check(const std::string& path, const Target& target, Existing existing) {
  const struct stat& file = target.info;
  if (target.isSpecial()) {
    if (access(path.c_str(), W_OK) != 0) fail(path, errno);
    return;
  }
  const int folder = target.folder.get();
  if (target.exists) {
    if (existing == Existing::kRefuse) fail(path, EEXIST);
    if ((file.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0) fail(path, EACCES);
    if (faccessat(folder, target.name.c_str(), W_OK, AT_EACCESS) != 0) fail(path, errno);
  }
  if (faccessat(folder, ".", W_OK | X_OK, AT_EACCESS) != 0) fail(path, errno);
  // In a folder like /tmp nobody takes away the name of another's file.
  struct stat parent;
  if (!target.exists || fstat(folder, &parent) != 0 || (parent.st_mode & S_ISVTX) == 0) return;
  const uid_t user = geteuid();
  if (user != 0 && user != parent.st_uid && user != file.st_uid) fail(path, EPERM);
}

void writeAll(const std::string& path, int descriptor, const Content& content) {
  content([&](ByteView bytes) {
    while (!bytes.empty()) {
      const ssize_t count = write(descriptor, bytes.data(), bytes.size());
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) fail(path, count == 0 ? EIO : errno);
      bytes = bytes.subspan(static_cast<size_t>(count));
    }
  });
}

// The access that the file to be replaced gives. A group that cannot be kept must not hand its rights to another.
void keepAccess(const std::string& path, const Target& target, int descriptor) {
  if (!target.exists) return;
  const struct stat& old = target.info;
  mode_t bits = old.st_mode & kAccessBits;
  struct stat made;
  if (fstat(descriptor, &made) != 0) fail(path, errno);
  if ((made.st_uid != old.st_uid || made.st_gid != old.st_gid) && fchown(descriptor, old.st_uid, old.st_gid) != 0 &&
      made.st_gid != old.st_gid && fchown(descriptor, static_cast<uid_t>(-1), old.st_gid) != 0) {
    bits &= ~static_cast<mode_t>(S_IRWXG) | (bits & S_IRWXO) << 3;
  }
  if (fchmod(descriptor, bits) != 0) fail(path, errno);
  const std::string there = "/proc/self/fd/" + std::to_string(target.folder.get()) + "/" + target.name;
  char list[4096];
  const ssize_t size = lgetxattr(there.c_str(), kAccessList, list, sizeof(list));
  if (size > 0 && fsetxattr(descriptor, kAccessList, list, static_cast<size_t>(size), 0) != 0) fail(path, errno);
}

// While it lives, signals that would end the process wait.
class SignalsWait {
 public:
  SignalsWait() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &before_);
  }
  ~SignalsWait() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalsWait(const SignalsWait&) = delete;
  SignalsWait& operator=(const SignalsWait&) = delete;

 private:
  sigset_t before_;
};

// A second name in the folder of the target, for the time until the file takes the target's.
class PassingName {
 public:
  // make: creates the name; returns whether it could, or else leaves the reason in errno.
  template <typename Make>
  PassingName(int folder, const Make& make) : folder_(folder) {
    for (int tries = 0; !made_ && tries < 100; ++tries) {
      unsigned number = 0;
      if (getrandom(&number, sizeof(number), 0) < 0) number = static_cast<unsigned>(getpid() + tries);
      std::snprintf(name_, sizeof(name_), ".tessaline4-%08x", number);
      made_ = make(name_);
      if (!made_ && errno != EEXIST) return;
    }
  }
  ~PassingName() {
    if (made_) unlinkat(folder_, name_, 0);
  }
  PassingName(const PassingName&) = delete;
  PassingName& operator=(const PassingName&) = delete;

  bool isMade() const { return made_; }
  // Gives the file its last name.
  bool become(const std::string& name, Existing existing) {
    if (existing == Existing::kReplace) {
      made_ = renameat(folder_, name_, folder_, name.c_str()) != 0;
      return !made_;
    }
    if (renameat2(folder_, name_, folder_, name.c_str(), RENAME_NOREPLACE) == 0) {
      made_ = false;
      return true;
    }
    // Where the file system cannot rename so, it can link.
    return errno == EINVAL && linkat(folder_, name_, folder_, name.c_str(), 0) == 0;
  }

 private:
  SignalsWait wait_;  // first in, last out
  int folder_;
  char name_[32];
  bool made_ = false;
};

// False when the file system cannot do it.
bool writeUnnamed(const std::string& path, const Target& target, const Content& content, Existing existing) {
  const int folder = target.folder.get();
  const Descriptor file(openat(folder, ".", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666));
  if (!file.isOpen()) return false;
  writeAll(path, file.get(), content);
  keepAccess(path, target, file.get());
  const std::string unnamed = "/proc/self/fd/" + std::to_string(file.get());
  const auto link = [&](const char* name) {
    return linkat(AT_FDCWD, unnamed.c_str(), folder, name, AT_SYMLINK_FOLLOW) == 0;
  };
  if (!target.exists) {
    if (link(target.name.c_str())) return true;
    if (errno != EEXIST) return false;
    if (existing == Existing::kRefuse) fail(path, EEXIST);
  }
  PassingName name(folder, link);
  if (!name.isMade()) return false;
  if (!name.become(target.name, existing)) fail(path, errno);
  return true;
}

void writeNamed(const std::string& path, const Target& target, const Content& content, Existing existing) {
  const int folder = target.folder.get();
  Descriptor file;
  PassingName name(folder, [&](const char* passing) {
    file = Descriptor(openat(folder, passing, O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666));
    return file.isOpen();
  });
  if (!name.isMade()) fail(path, errno);
  writeAll(path, file.get(), content);
  keepAccess(path, target, file.get());
  if (!file.close() || !name.become(target.name, existing)) fail(path, errno);
}

// Device, inode and, where there is no file yet, the name in the folder that these are of.
using Identity = std::tuple<dev_t, ino_t, std::string>;

std::optional<Identity> identityOf(const struct stat& info) {
  if (S_ISCHR(info.st_mode) || S_ISSOCK(info.st_mode)) return std::nullopt;
  return Identity(info.st_dev, info.st_ino, "");
}

std::optional<Identity> outputIdentity(const std::string& path) {
  struct stat info;
  if (path == "-") return fstat(STDOUT_FILENO, &info) == 0 ? identityOf(info) : std::nullopt;
  const Target target = resolve(path);
  if (target.exists) return identityOf(target.info);
  if (fstat(target.folder.get(), &info) != 0) fail(path, errno);
  return Identity(info.st_dev, info.st_ino, target.name);
}

}  // namespace

std::string outputName(const std::string& path) {
  return path == "-" ? "standard output" : path;
}

void checkFileWritable(const std::string& path, Existing existing) {
  if (path != "-") return check(path, resolve(path), existing);
  const int flags = fcntl(STDOUT_FILENO, F_GETFL);
  if (flags < 0 || (flags & O_ACCMODE) == O_RDONLY) fail(path, EBADF);
}

void checkDistinct(const std::vector<std::string>& outputs, const std::vector<std::string>& inputs) {
  struct Known {
    std::string name;
    Identity identity;
  };
  std::vector<Known> known;
  for (const std::string& path : inputs) {
    struct stat info;
    if ((path == "-" ? fstat(STDIN_FILENO, &info) : stat(path.c_str(), &info)) != 0) continue;  // reading will say why
    if (const auto identity = identityOf(info)) known.push_back({displayName(path), *identity});
  }
  for (const std::string& path : outputs) {
    const auto identity = outputIdentity(path);
    if (!identity) continue;
    for (const Known& other : known) {
      if (other.identity == *identity) throw Error(outputName(path), "is the same file as " + other.name);
    }
    known.push_back({outputName(path), *identity});
  }
}

void writeFile(const std::string& path, const Content& content, Existing existing) {
  if (path == "-") {
    std::fflush(stdout);
    return writeAll(path, STDOUT_FILENO, content);
  }
  const Target target = resolve(path);
  check(path, target, existing);
  if (target.isSpecial()) {
    Descriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
    if (!file.isOpen()) fail(path, errno);
    writeAll(path, file.get(), content);
    if (!file.close()) fail(path, errno);
  } else if (!writeUnnamed(path, target, content, existing)) {
    writeNamed(path, target, content, existing);
  }
}

void writeFile(const std::string& path, ByteView bytes, Existing existing) {
  writeFile(
      path, [bytes](const Sink& sink) { sink(bytes); }, existing);
}

}  // namespace tool
