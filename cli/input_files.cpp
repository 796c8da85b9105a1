#include "input_files.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "errors.h"
#include "file_output.h"

namespace tkcli {
namespace {

[[noreturn]] void CannotRead(const std::string& file, int error) {
  throw CliError(kBadInput, InputName(file) + ": cannot read: " + std::strerror(error));
}

[[noreturn]] void TooLarge(const std::string& file) {
  throw CliError(kBadInput, InputName(file) + ": too large: a document may have at most " +
                                std::to_string(kMaxInputBytes) + " bytes (2 GiB)");
}

// Opens FILE by its bytes, whatever the locale makes of them, and checks
// what it is.
Descriptor OpenChecked(const std::string& file, struct stat& info) {
  Descriptor in(file == "-" ? fcntl(0, F_DUPFD_CLOEXEC, 3)
                            : open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (in.fd() < 0) CannotRead(file, errno);
  if (fstat(in.fd(), &info) != 0) CannotRead(file, errno);
  if (S_ISDIR(info.st_mode)) CannotRead(file, EISDIR);
  if (S_ISREG(info.st_mode) && static_cast<uint64_t>(info.st_size) > kMaxInputBytes) {
    TooLarge(file);
  }
  return in;
}

// Reads in to its end in chunks, handing each to take; stops with status 3
// once more than kMaxInputBytes have come.
template <typename Take>
void ReadBounded(const std::string& file, int in, Take take) {
  char chunk[65536];
  uint64_t total = 0;
  for (;;) {
    const ssize_t got = read(in, chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) CannotRead(file, errno);
    if (got == 0) return;
    total += static_cast<uint64_t>(got);
    if (total > kMaxInputBytes) TooLarge(file);
    take(std::string_view(chunk, static_cast<size_t>(got)));
  }
}

[[noreturn]] void CannotHold(const std::string& name) {
  throw CliError(kFailed, name + ": cannot hold the input in memory: " + std::strerror(errno));
}

Descriptor NewMemoryFile(const std::string& name) {
  Descriptor copy(memfd_create("treekeeper-input", MFD_CLOEXEC));
  if (copy.fd() < 0) CannotHold(name);
  return copy;
}

}  // namespace

Descriptor::~Descriptor() {
  if (m_fd >= 0) close(m_fd);
}

std::string InputName(const std::string& file) { return file == "-" ? "<stdin>" : file; }

std::string DescriptorPath(int fd) { return "/proc/self/fd/" + std::to_string(fd); }

Descriptor OpenInput(const std::string& file) {
  struct stat info;
  Descriptor in = OpenChecked(file, info);
  // Standard input is read from where it stands, which a reopening by name
  // would not do.
  if (S_ISREG(info.st_mode) && file != "-") return in;
  Descriptor copy = NewMemoryFile(InputName(file));
  ReadBounded(file, in.fd(), [&](std::string_view bytes) {
    if (!WriteAll(copy.fd(), bytes)) CannotHold(InputName(file));
  });
  return copy;
}

std::string ReadInput(const std::string& file) {
  struct stat info;
  const Descriptor in = OpenChecked(file, info);
  std::string bytes;
  ReadBounded(file, in.fd(), [&](std::string_view chunk) { bytes.append(chunk); });
  return bytes;
}

Descriptor MemoryFile(std::string_view bytes, const std::string& name) {
  Descriptor copy = NewMemoryFile(name);
  if (!WriteAll(copy.fd(), bytes)) CannotHold(name);
  return copy;
}

}  // namespace tkcli
