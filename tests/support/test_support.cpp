#include "support/test_support.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

namespace tk::test {
namespace {
std::mutex g_mutex;
std::vector<std::string>* g_messages = nullptr;

void Collect(const char* text) {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (g_messages != nullptr) g_messages->push_back(text);
}
}  // namespace

MessageLog::MessageLog() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_messages = new std::vector<std::string>();
  TkSetDebugOutput(Collect);
}

MessageLog::~MessageLog() {
  TkSetDebugOutput(nullptr);
  std::lock_guard<std::mutex> lock(g_mutex);
  delete g_messages;
  g_messages = nullptr;
}

const std::vector<std::string>& MessageLog::messages() const { return *g_messages; }
void MessageLog::clear() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_messages->clear();
}
std::string MessageLog::joined() const {
  std::string all;
  for (const auto& m : *g_messages) all += m;
  return all;
}

Instance::Instance() : tk(TkCreateTreeKeeper(nullptr)) {
  if (tk == nullptr) std::abort();
}
Instance::~Instance() { TkDeleteTreeKeeper(tk); }

TempDir::TempDir() {
  char pattern[] = "/tmp/tk-test-XXXXXX";
  const char* made = mkdtemp(pattern);
  if (made == nullptr) std::abort();
  m_root = made;
}
TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::permissions(m_root, std::filesystem::perms::owner_all,
                               std::filesystem::perm_options::add, ignored);
  std::filesystem::remove_all(m_root, ignored);
}
std::string TempDir::path(const std::string& name) const { return m_root + "/" + name; }

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

void WriteFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << bytes;
}

bool FileExists(const std::string& path) { return std::filesystem::exists(path); }

}  // namespace tk::test
