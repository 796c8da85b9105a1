// Inputs as the tool reads them: opened by the bytes of their names, and
// never more of them than the library imports.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tkcli {

// The largest document the library imports: 2 GiB less one byte.
constexpr uint64_t kMaxInputBytes = 0x7FFFFFFF;

// A descriptor that closes itself.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : m_fd(fd) {}
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept : m_fd(other.m_fd) { other.m_fd = -1; }
  Descriptor& operator=(Descriptor&&) = delete;
  int fd() const { return m_fd; }

 private:
  int m_fd;
};

// How messages name an input: the file name, or "<stdin>" for "-".
std::string InputName(const std::string& file);

// FILE (standard input for "-") as a regular file the library can open by
// the name DescriptorPath gives: a regular file as it is, anything else (a
// pipe, a device, standard input) copied into memory first. Status 3 if it
// can't be read, is a directory, or is larger than kMaxInputBytes; the size
// of a regular file is checked before anything is read.
Descriptor OpenInput(const std::string& file);

// Reads FILE whole, with the same checks.
std::string ReadInput(const std::string& file);

// An in-memory file holding bytes; name is for messages.
Descriptor MemoryFile(std::string_view bytes, const std::string& name);

// The name under which the library can open a descriptor of this process.
std::string DescriptorPath(int fd);

}  // namespace tkcli
