#include "elements/path.h"

#include <cstring>
#include <string>

#include "document/codepage.h"
#include "document/textconv.h"

namespace tk {
namespace {

// The name test with the code page question already answered, so that a walk
// asks it once and not once per child.
bool NameMatches(dom::NodePtr child, std::string_view component, bool defaultIsUtf8) {
  if (child.nodeType() != dom::kElement) return false;
  if (defaultIsUtf8) return child.nameEquals(component);
  std::string scratch;
  const std::string name = child.nodeName();
  return DomToAnsi(name, scratch) == component;
}

// The first element child of parent named component, or null. The common
// case, names compared as the tree holds them, stays in one tight scan.
dom::NodePtr FindChild(dom::NodePtr parent, std::string_view component, bool defaultIsUtf8) {
  if (defaultIsUtf8) return parent.childElement(component);
  for (dom::NodePtr child = parent.firstChild(); child; child = child.nextSibling()) {
    if (NameMatches(child, component, false)) return child;
  }
  return dom::NodePtr();
}

}  // namespace

std::unique_ptr<char[]> NormalizePath(const char* path) {
  if (path == nullptr || path[0] == '\0') return nullptr;
  const size_t length = std::strlen(path);
  const bool addSlash = path[length - 1] != '/';
  std::unique_ptr<char[]> copy(new char[length + (addSlash ? 2 : 1)]);
  std::memcpy(copy.get(), path, length);
  size_t end = length;
  if (addSlash) copy[end++] = '/';
  copy[end] = '\0';
  return copy;
}

bool ElementNameMatches(dom::NodePtr child, std::string_view component) {
  return NameMatches(child, component, cp::DefaultIsUtf8());
}

dom::NodePtr WalkPath(dom::NodePtr start, const char* path) {
  if (path == nullptr || path[0] == '\0') return start;
  const bool defaultIsUtf8 = cp::DefaultIsUtf8();
  dom::NodePtr current = start;
  const char* cursor = path;
  while (*cursor != '\0') {
    const char* end = cursor;
    while (*end != '\0' && *end != '/') ++end;
    const std::string_view component(cursor, static_cast<size_t>(end - cursor));
    // An empty component names nothing, and one past the limit is refused
    // rather than truncated.
    if (component.empty() || component.size() > kMaxComponent) return dom::NodePtr();
    current = FindChild(current, component, defaultIsUtf8);
    if (!current) return dom::NodePtr();
    cursor = *end == '/' ? end + 1 : end;
  }
  return current;
}

dom::Node WalkPath(const dom::Node& start, const char* path) {
  if (path == nullptr || path[0] == '\0') return start;
  // The walk holds no references: nothing changes the tree while it runs.
  // Only the element found is counted.
  return WalkPath(start.ptr(), path).ref();
}

}  // namespace tk
