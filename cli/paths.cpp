#include "paths.h"

#include "errors.h"

namespace tkcli {
namespace {

// The library gathers a path component in a 64-byte buffer.
constexpr size_t kMaxComponent = 63;

// Components of path; a single "/" at the end is no component of its own.
std::vector<std::string> Split(const std::string& path) {
  std::vector<std::string> parts;
  size_t begin = 0;
  while (begin <= path.size()) {
    size_t end = path.find('/', begin);
    if (end == std::string::npos) end = path.size();
    if (!(end == path.size() && begin == end && !parts.empty())) {
      parts.push_back(path.substr(begin, end - begin));
    }
    begin = end + 1;
  }
  return parts;
}

std::string Join(const std::vector<std::string>& parts, size_t begin, size_t end) {
  std::string path;
  for (size_t i = begin; i < end; ++i) {
    if (i > begin) path += '/';
    path += parts[i];
  }
  return path;
}

// A path that elements are made for must name each of them.
void CheckNewPath(const std::string& path, const std::vector<std::string>& parts) {
  for (const std::string& part : parts) {
    if (part.empty()) throw CliError(kUsage, "'" + path + "': empty path component");
    if (part.size() > kMaxComponent) {
      throw CliError(kUsage, "'" + path + "': a path component is longer than " +
                                 std::to_string(kMaxComponent) + " bytes");
    }
  }
}

}  // namespace

HandleScope::~HandleScope() {
  for (auto it = m_handles.rbegin(); it != m_handles.rend(); ++it) {
    m_document->CloseElement(*it);
  }
}

unsigned HandleScope::Keep(unsigned handle) {
  if (handle > kRootHandle) m_handles.push_back(handle);
  return handle;
}

unsigned FindElement(HandleScope& scope, const std::string& path) {
  return scope.Keep(scope.document()->OpenElement(path.c_str()));
}

unsigned RequireElement(HandleScope& scope, const std::string& path) {
  const unsigned handle = FindElement(scope, path);
  if (handle == 0) {
    throw CliError(kNotThere, scope.document().name() + ": no element at '" + path + "'");
  }
  return handle;
}

unsigned EnsureElement(HandleScope& scope, const std::string& path) {
  const unsigned found = FindElement(scope, path);
  if (found != 0) return found;
  const std::vector<std::string> parts = Split(path);
  CheckNewPath(path, parts);
  // The deepest element of the path that exists; the library makes the
  // rest below it. (It always makes the last component new, so it must
  // only be given the part that is missing.)
  for (size_t depth = parts.size(); depth-- > 0;) {
    const unsigned parent = depth == 0 ? kRootHandle : FindElement(scope, Join(parts, 0, depth));
    if (parent == 0) continue;
    unsigned made = 0;
    const int result =
        scope.document()->CreateElement(parent, Join(parts, depth, parts.size()).c_str(), &made);
    if (result == 0) return scope.Keep(made);
    const std::string what = scope.document().name() + ": cannot create '" + path + "'";
    if (result == -1) throw CliError(kUsage, what + ": not a valid element name");
    throw CliError(kFailed, what + " (" + std::to_string(result) + ")");
  }
  throw CliError(kFailed, scope.document().name() + ": cannot create '" + path + "'");
}

void RemoveElement(HandleScope& scope, const std::string& path) {
  const Document& document = scope.document();
  if (RequireElement(scope, path) == kRootHandle) {
    throw CliError(kUsage, document.name() + ": the root element can't be removed");
  }
  // The library removes an element below a parent, never the parent's own.
  const std::vector<std::string> parts = Split(path);
  const unsigned parent =
      parts.size() == 1 ? kRootHandle : RequireElement(scope, Join(parts, 0, parts.size() - 1));
  const int result = document->DeleteElement(parent, parts.back().c_str());
  if (result == -102) throw CliError(kNotThere, document.name() + ": no element at '" + path + "'");
  if (result != 0) {
    throw CliError(kFailed, document.name() + ": cannot remove '" + path + "' (" +
                                std::to_string(result) + ")");
  }
}

}  // namespace tkcli
