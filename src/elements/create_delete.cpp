#include <string>
#include <string_view>

#include "document/create.h"
#include "document/textconv.h"
#include "elements/path.h"
#include "frame/ctreekeeper.h"
#include "frame/debug_output.h"

// Changing the shape of the tree: making elements along a path and removing
// one element with its subtree.
namespace tk {
namespace {

// The first element child of parent named `component`, or a null node.
dom::Node FindElementChild(const dom::Node& parent, std::string_view component) {
  for (dom::NodePtr child = parent.firstChild(); child; child = child.nextSibling()) {
    if (ElementNameMatches(child, component)) return child.ref();
  }
  return dom::Node();
}

// Elements from node up to the top of its tree, node included.
int LevelOf(const dom::Node& node) {
  int level = 0;
  for (dom::Node at = node; at && at.nodeType() == dom::kElement;) {
    ++level;
    dom::Node parent;
    if (at.get_parentNode(parent) < 0) break;
    at = std::move(parent);
  }
  return level;
}

// Makes an element named `component` (default code page) and appends it to
// parent. Returns 0 with inTree set; -1 when the name can't be made into an
// element; 1 when the append gave no node.
int AppendNewElement(dom::Document& document, dom::Node& parent, const std::string& component,
                     dom::Node& inTree) {
  std::string name;
  if (AnsiToWide(component.c_str(), name) < 0) return -1;
  const dom::Node made = CreateDOMNode(document, dom::kElement, name);
  if (!made) return -1;
  if (parent.appendChild(made, inTree) < 0 || !inTree) {
    inTree.reset();
    return 1;
  }
  return 0;
}

}  // namespace

int CTreeKeeper::CreateElement(unsigned handle, const char* path, unsigned* outHandle) {
  if (handle == 0xFFFFFFFFu) {
    // A request for the root: the path is the root's name, taken as it is.
    const int result = static_cast<ITreeKeeper*>(this)->CreateEmpty(path);
    if (result == 0 && outHandle != nullptr) *outHandle = ElementTable::kRootHandle;
    return result;
  }
  const std::unique_ptr<char[]> normalized = NormalizePath(path);
  if (!normalized) {
    Report("CreateElement: element path is invalid");
    return -102;
  }

  LockGuard guard(m_lock);
  const dom::Node* start = m_table.live(handle);
  if (start == nullptr) return -6;

  // Every component but the last is found or made; the last is always made.
  dom::Node current = *start;
  // No element goes deeper than an import reads back: below the last level
  // the append is refused, as the DOM refuses a child it can't hold.
  int level = LevelOf(current);
  bool lastFound = false;
  std::string component;
  std::string lastMatch;
  for (const char* scan = normalized.get(); *scan != '\0'; ++scan) {
    if (*scan != '/') {
      if (component.size() == kMaxComponent) return -1;  // no name is that long
      component.push_back(*scan);
      continue;
    }
    lastFound = false;
    bool has = false;
    if (current.hasChildNodes(has) < 0) return -1;
    if (has) {
      dom::Node match = FindElementChild(current, component);
      if (match) {
        current = std::move(match);
        ++level;
        lastFound = true;
        lastMatch = component;
        component.clear();
        continue;
      }
    }
    if (level >= dom::kMaxDepth) {
      current.reset();
      break;
    }
    dom::Node inTree;
    const int made = AppendNewElement(m_document, current, component, inTree);
    if (made < 0) return -1;
    current = std::move(inTree);
    ++level;
    component.clear();
    if (!current) break;  // the parent took no child (a text node, for one)
  }

  if (!current) {
    Report("CreateElement: element create failed");
    return -113;
  }
  if (lastFound) {
    // The last component named an element that was there already: it gets a
    // new sibling of the same name, at the end of the parent's children.
    dom::Node parent;
    if (current.get_parentNode(parent) < 0 || !parent) return -1;
    current.reset();
    if (AppendNewElement(m_document, parent, lastMatch, current) != 0) return -1;
  }
  const unsigned opened = m_table.append(std::move(current));
  if (outHandle != nullptr) *outHandle = opened;
  return 0;
}

int CTreeKeeper::DeleteElement(unsigned handle, const char* path) {
  LockGuard guard(m_lock);
  if (!m_table.inRange(handle)) return -102;
  const dom::Node* start = m_table.live(handle);
  if (start == nullptr) return -6;
  // An empty path would name the handle's own element, which is never removed.
  if (path == nullptr || path[0] == '\0') return -102;
  const dom::Node found = WalkPath(*start, path);
  if (!found) return -102;
  dom::Node parent;
  dom::Node removed;
  if (found.get_parentNode(parent) < 0 || !parent || parent.removeChild(found, removed) < 0 ||
      !removed) {
    return -1;
  }
  return 0;
}

}  // namespace tk
