#include "file_output.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "errors.h"

namespace tkcli {
namespace {

[[noreturn]] void CannotWrite(const std::string& target, int error) {
  throw CliError(kCannotWrite, target + ": cannot write: " + std::strerror(error));
}

// The temporary file of a replacement in progress. A signal that ends the
// run removes it, so nothing but the untouched target stays behind.
char g_pendingPath[PATH_MAX + 32];
volatile sig_atomic_t g_pending = 0;

void RemovePendingAndExit(int signal) {
  if (g_pending) unlink(g_pendingPath);
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

class PendingTemporary {
 public:
  explicit PendingTemporary(const std::string& path) {
    std::snprintf(g_pendingPath, sizeof g_pendingPath, "%s", path.c_str());
    g_pending = 1;
    struct sigaction action = {};
    action.sa_handler = RemovePendingAndExit;
    sigemptyset(&action.sa_mask);
    for (size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &action, &m_old[i]);
  }
  ~PendingTemporary() {
    for (size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &m_old[i], nullptr);
    if (g_pending) unlink(g_pendingPath);
    g_pending = 0;
  }
  // The temporary now stands under the target's name.
  void Committed() { g_pending = 0; }

 private:
  static constexpr std::array<int, 3> kSignals = {SIGHUP, SIGINT, SIGTERM};
  struct sigaction m_old[3];
};

void WriteStandardOutput(std::string_view bytes) {
  if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size() ||
      std::fflush(stdout) != 0) {
    CannotWrite("<stdout>", errno);
  }
}

// Devices and pipes can't be replaced; they are written as they are.
void WriteInPlace(const std::string& target, std::string_view bytes) {
  const int fd = open(target.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
  if (fd < 0) CannotWrite(target, errno);
  const bool written = WriteAll(fd, bytes);
  const int error = errno;
  close(fd);
  if (!written) CannotWrite(target, error);
}

[[noreturn]] void CannotWriteIn(const std::string& target, const std::string& directory,
                                int error) {
  throw CliError(kCannotWrite, target + ": cannot write in the directory '" + directory +
                                   "': " + std::strerror(error));
}

// The file a write to target lands in: target itself, or the file its chain
// of symbolic links ends at, which need not exist yet.
std::string FollowLinks(const std::string& target) {
  std::string path = target;
  for (int hops = 0; hops < 40; ++hops) {
    struct stat info;
    if (lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) return path;
    std::string link(PATH_MAX, '\0');
    const ssize_t length = readlink(path.c_str(), link.data(), link.size());
    if (length < 0) CannotWrite(target, errno);
    link.resize(static_cast<size_t>(length));
    // A relative link is relative to the directory the link stands in.
    const size_t slash = path.rfind('/');
    if (!link.empty() && link[0] != '/' && slash != std::string::npos) {
      link = path.substr(0, slash + 1) + link;
    }
    path = link;
  }
  CannotWrite(target, ELOOP);
}

void ReplaceFile(const std::string& target, std::string_view bytes) {
  // Through a symbolic link, the file it names is the one replaced, or made
  // if it doesn't exist; the link stays.
  const std::string path = FollowLinks(target);
  struct stat info;
  const bool exists = stat(path.c_str(), &info) == 0;
  if (exists && S_ISDIR(info.st_mode)) CannotWrite(target, EISDIR);
  if (exists && !S_ISREG(info.st_mode)) {
    WriteInPlace(target, bytes);
    return;
  }

  const std::filesystem::path place(path);
  std::string directory = place.parent_path().string();
  if (directory.empty()) directory = ".";
  std::string temporary = directory + "/." + place.filename().string() + ".XXXXXX";
  const int fd = mkostemp(temporary.data(), O_CLOEXEC);
  if (fd < 0) CannotWriteIn(target, directory, errno);
  PendingTemporary pending(temporary);

  mode_t mode;
  if (exists) {
    mode = info.st_mode & 07777;
    // Owner and group stay where the process may set them: the owner only
    // with privilege, the group where the user belongs to it. Otherwise the
    // new file is the user's, as with any editor.
    if (fchown(fd, info.st_uid, info.st_gid) != 0) {
      [[maybe_unused]] const int grouped = fchown(fd, static_cast<uid_t>(-1), info.st_gid);
    }
  } else {
    const mode_t mask = umask(0);
    umask(mask);
    mode = 0666 & ~mask;
  }
  bool done = WriteAll(fd, bytes) && fsync(fd) == 0 && fchmod(fd, mode) == 0;
  int error = errno;
  if (close(fd) != 0 && done) {
    done = false;
    error = errno;
  }
  if (!done) CannotWrite(target, error);
  if (rename(temporary.c_str(), path.c_str()) != 0) CannotWriteIn(target, directory, errno);
  pending.Committed();
  // The rename itself is made durable with the directory.
  const int dir = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir >= 0) {
    fsync(dir);
    close(dir);
  }
}

}  // namespace

void WriteOutput(const std::string& target, std::string_view bytes) {
  if (target == "-") {
    WriteStandardOutput(bytes);
  } else {
    ReplaceFile(target, bytes);
  }
}

// Writes all of bytes to fd, going on after interrupted writes.
bool WriteAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t put = write(fd, bytes.data(), bytes.size());
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(put));
  }
  return true;
}

}  // namespace tkcli
