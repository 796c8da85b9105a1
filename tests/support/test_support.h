// Shared helpers of the unit tests.
#pragma once

#include <string>
#include <vector>

#include <treekeeper/treekeeper.h>

namespace tk::test {

// Collects every message sent to the debug callback while it lives.
class MessageLog {
 public:
  MessageLog();
  ~MessageLog();
  const std::vector<std::string>& messages() const;
  void clear();
  // The messages joined, for readable failures.
  std::string joined() const;
};

// An instance that is deleted at the end of the scope.
struct Instance {
  Instance();
  ~Instance();
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;
  ITreeKeeper* operator->() const { return tk; }
  ITreeKeeperXslt* xslt() const { return TkXslt(tk); }
  ITreeKeeper* tk;
};

// A fresh temporary directory, removed with its content at the end of the scope.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  std::string path(const std::string& name) const;
  const std::string& root() const { return m_root; }

 private:
  std::string m_root;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& bytes);
bool FileExists(const std::string& path);
// The bytes of the library's export declaration.
inline const char* kDeclaration = "<?xml version='1.0' encoding='UTF-8' ?>\n";

}  // namespace tk::test
