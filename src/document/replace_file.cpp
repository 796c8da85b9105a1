#include "document/replace_file.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

namespace tk {
namespace {

// The directory part of path: empty, or ending in '/'.
std::string DirectoryOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

// The file that fileName stands for: symbolic links are followed one by one,
// since the last may name a file that isn't there yet. False for a loop, a
// link that can't be read, and the links of /proc, which stand for open
// descriptors rather than for the names they read as.
bool FollowLinks(const char* fileName, std::string& path) {
  path = fileName;
  std::vector<char> target(PATH_MAX);
  for (int hops = 0; hops < 40; ++hops) {
    const ssize_t length = readlink(path.c_str(), target.data(), target.size());
    if (length < 0) return errno == EINVAL || errno == ENOENT;  // no link: this is the file
    if (static_cast<size_t>(length) == target.size()) return false;
    const std::string directory = DirectoryOf(path);
    struct statfs where {};
    if (statfs(directory.empty() ? "." : directory.c_str(), &where) != 0 ||
        where.f_type == PROC_SUPER_MAGIC) {
      return false;
    }
    std::string next(target.data(), static_cast<size_t>(length));
    if (next[0] != '/') next.insert(0, directory);
    path = std::move(next);
  }
  return false;
}

// A name in directory (empty, or ending in '/') that is unlikely to be taken.
std::string NewName(const std::string& directory) {
  static std::atomic<uint64_t> counter{0};
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  uint64_t bits = (static_cast<uint64_t>(getpid()) << 32) ^ static_cast<uint64_t>(now.tv_nsec) ^
                  (counter.fetch_add(1) * 0x9E3779B97F4A7C15ull);
  static constexpr char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
  std::string name = directory + ".treekeeper-";
  for (int i = 0; i < 8; ++i, bits /= 36) name += kDigits[bits % 36];
  return name;
}

// Makes a new, empty file beside path. A replacement starts readable by its
// owner alone and gets the old file's mode later; a file of its own gets what
// a plain create gives (umask, default ACLs). -1 when none can be made.
int MakeFileBeside(const std::string& path, bool replacing, std::string& made) {
  const std::string directory = DirectoryOf(path);
  const mode_t mode = replacing ? S_IRUSR | S_IWUSR : 0666;
  for (int attempt = 0; attempt < 100; ++attempt) {
    made = NewName(directory);
    const int fd = open(made.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  return -1;
}

// The old file's owner, group and mode on the new one. Setting the owner is
// for a privileged process; the group alone may work where the owner doesn't.
// Owner first: a change of owner clears the set-user-ID bits.
void KeepAttributes(int fd, const struct stat& old) {
  if (fchown(fd, old.st_uid, old.st_gid) != 0 &&
      fchown(fd, static_cast<uid_t>(-1), old.st_gid) != 0) {
    // The new file stays the process's own, in its own group.
  }
  fchmod(fd, old.st_mode & 07777);
}

// Makes the rename itself last through a crash; a directory that can't be
// synced doesn't fail the write.
void SyncDirectoryOf(const std::string& path) {
  const std::string directory = DirectoryOf(path);
  const int fd = open(directory.empty() ? "." : directory.c_str(),
                      O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

}  // namespace

Replaced ReplaceFile(const char* fileName, const std::function<bool(std::FILE*)>& write) {
  struct stat old {};
  const bool replacing = stat(fileName, &old) == 0;
  if (!replacing && errno != ENOENT) return Replaced::kNoPlace;
  std::string path;
  if (!FollowLinks(fileName, path)) return Replaced::kNoPlace;
  if (replacing) {
    // Only a regular file can be replaced by another, and only where the
    // links, read as names, still lead to the file the system opens.
    struct stat named {};
    if (!S_ISREG(old.st_mode) || stat(path.c_str(), &named) != 0 ||
        named.st_dev != old.st_dev || named.st_ino != old.st_ino) {
      return Replaced::kNoPlace;
    }
    // A file the process may not write is not replaced behind its back.
    const int probe = open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (probe < 0) return Replaced::kNoPlace;
    close(probe);
  }

  std::string made;
  const int fd = MakeFileBeside(path, replacing, made);
  if (fd < 0) return Replaced::kNoPlace;
  if (replacing) KeepAttributes(fd, old);
  std::FILE* file = fdopen(fd, "wb");
  if (file == nullptr) {
    close(fd);
    unlink(made.c_str());
    return Replaced::kNoPlace;
  }

  bool written = write(file) && std::fflush(file) == 0 && fsync(fd) == 0;
  written = std::fclose(file) == 0 && written;
  if (!written) {
    unlink(made.c_str());
    return Replaced::kFailed;
  }
  if (rename(made.c_str(), path.c_str()) != 0) {
    // A directory may let the process make files, yet not replace another
    // owner's (the sticky bit): then the file is written where it stands.
    const bool refused = errno == EPERM || errno == EACCES;
    unlink(made.c_str());
    return refused ? Replaced::kNoPlace : Replaced::kFailed;
  }
  SyncDirectoryOf(path);
  return Replaced::kDone;
}

}  // namespace tk
