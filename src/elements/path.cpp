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

// The first element child of parent named component, or a null node. Gives
// null when parent has no children or the question fails.
dom::Node FindChild(const dom::Node& parent, std::string_view component, bool defaultIsUtf8) {
  bool has = false;
  if (parent.hasChildNodes(has) < 0 || !has) return dom::Node();
  for (dom::NodePtr child = parent.firstChild(); child; child = child.nextSibling()) {
    if (NameMatches(child, component, defaultIsUtf8)) return child.ref();
  }
  return dom::Node();
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

dom::Node WalkPath(const dom::Node& start, const char* normalized) {
  if (normalized == nullptr || normalized[0] == '\0') return start;
  const bool defaultIsUtf8 = cp::DefaultIsUtf8();
  dom::Node current = start;
  const char* cursor = normalized;
  // Only a "/" ends a component; bytes behind the last one are not looked at.
  while (const char* slash = std::strchr(cursor, '/')) {
    const std::string_view component(cursor, static_cast<size_t>(slash - cursor));
    // An empty component names nothing, and one past the limit is refused
    // rather than truncated.
    if (component.empty() || component.size() > kMaxComponent) return dom::Node();
    dom::Node next = FindChild(current, component, defaultIsUtf8);
    if (!next) return dom::Node();
    current = std::move(next);
    cursor = slash + 1;
  }
  return current;
}

}  // namespace tk
