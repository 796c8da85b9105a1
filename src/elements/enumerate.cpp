// Counting and opening child elements, and reading an element's name.
//
// Enumeration keeps no cursor: every call names its position and scans the
// children afresh. A client that walks n same-named children therefore asks n
// times for the same scan; the instance's memo of the last scan's matches
// makes the repeated calls cheap while the child lists of the parent's
// document stay as they were, without changing any result.
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "document/codepage.h"
#include "document/textconv.h"
#include "elements/path.h"
#include "frame/ctreekeeper.h"
#include "frame/debug_output.h"

namespace tk {
namespace {

// Result of an EnumElement call before the outcome rules are applied.
struct ScanResult {
  uint32_t count = 0;
  dom::Node wanted;  // null when the position names no suitable child
};

// Counts the element children named name and picks the one at position index.
ScanResult ScanByName(SameNameMemo& memo, const dom::Node& parent, std::string_view name,
                      uint32_t index) {
  const std::vector<dom::NodePtr>& matches = memo.matches(parent, name);
  ScanResult result;
  result.count = static_cast<uint32_t>(matches.size());
  if (index < matches.size()) result.wanted = matches[index].ref();
  // Clients walk the matches in order; a match a few calls ahead starts
  // loading now, so a long walk doesn't wait for memory at every call.
  constexpr size_t kAhead = 2;
  if (index + kAhead < matches.size()) matches[index + kAhead].prefetch();
  return result;
}

// Takes the child at index among all child nodes, if it is an element. The
// count is the number of child nodes.
ScanResult ScanByIndex(const dom::NodeList& children, int32_t length, uint32_t index) {
  ScanResult result;
  result.count = static_cast<uint32_t>(length);
  if (index >= result.count) return result;
  dom::Node child;
  if (children.get_item(static_cast<int32_t>(index), child) < 0 || !child) return result;
  if (child.nodeType() == dom::kElement) result.wanted = std::move(child);
  return result;
}

}  // namespace

const std::vector<dom::NodePtr>& SameNameMemo::matches(const dom::Node& parent,
                                                       std::string_view name) {
  const bool defaultIsUtf8 = cp::DefaultIsUtf8();
  const dom::TreeMark mark = parent.treeMark();
  if (m_valid && m_mark == mark && m_parent == parent.ptr() &&
      m_defaultIsUtf8 == defaultIsUtf8 && m_name == name) {
    return m_matches;
  }
  m_valid = false;
  m_matches.clear();
  for (dom::NodePtr child = parent.firstChild(); child; child = child.nextSibling()) {
    if (ElementNameMatches(child, name)) m_matches.push_back(child);
  }
  m_parent = parent.ptr();
  m_name.assign(name);
  m_defaultIsUtf8 = defaultIsUtf8;
  m_mark = mark;
  m_valid = true;
  return m_matches;
}

int CTreeKeeper::EnumElement(unsigned handle, unsigned* outCount) {
  LockGuard guard(m_lock);
  if (!m_table.inRange(handle)) return -6;
  const dom::Node& node = m_table.entry(handle);
  if (!node) {
    Report("EnumElement: element handle is invalid");
    return -6;
  }
  bool hasChildren = false;
  if (node.hasChildNodes(hasChildren) < 0) return -107;
  if (!hasChildren) return -109;

  dom::NodeList children;
  int32_t length = 0;
  if (node.get_childNodes(children) < 0 || !children) return -1;
  if (children.get_length(length) < 0) return -1;
  if (outCount == nullptr) return -1;
  *outCount = static_cast<unsigned>(length);
  return 0;
}

int CTreeKeeper::EnumElement(unsigned handle, const char* path, const char* name,
                             unsigned* ioIndex, unsigned* outHandle) {
  LockGuard guard(m_lock);
  if (!m_table.inRange(handle)) return -6;
  const dom::Node& start = m_table.entry(handle);
  if (!start) {
    Report("EnumElement: element handle is invalid");
    return -6;
  }
  const dom::Node node = WalkPath(start, path);
  if (!node) {
    Report("EnumElement(with same name): element path is invalid");
    return -102;
  }
  bool hasChildren = false;
  if (node.hasChildNodes(hasChildren) < 0) return -107;
  if (!hasChildren) return -109;

  if (ioIndex == nullptr) return -1;

  // With a name the children are walked directly (or taken from the memo);
  // only the positional form needs the child list and its length.
  const uint32_t index = *ioIndex;
  ScanResult scan;
  if (name != nullptr) {
    scan = ScanByName(m_sameNames, node, name, index);
  } else {
    dom::NodeList children;
    int32_t length = 0;
    if (node.get_childNodes(children) < 0 || !children) return -1;
    if (children.get_length(length) < 0) return -1;
    scan = ScanByIndex(children, length, index);
  }
  if (outHandle == nullptr) {
    *ioIndex = scan.count;
    return 0;
  }
  // Greater, not greater-or-equal: the position just past the end is "not
  // found" (-1), anything beyond it is "past the count" (-110).
  if (index > scan.count) {
    *ioIndex = scan.count;
    return -110;
  }
  if (!scan.wanted) return -1;
  *outHandle = m_table.append(std::move(scan.wanted));
  *ioIndex = scan.count;
  return 0;
}

int CTreeKeeper::GetElementName(unsigned handle, char* buffer, unsigned* ioSize) {
  LockGuard guard(m_lock);
  const dom::Node* node = m_table.live(handle);
  if (node == nullptr) {
    Report("GetElementName: element handle is invalid");
    return -6;
  }
  std::string domName;
  if (node->get_nodeName(domName) < 0) return -1;
  std::string scratch;
  const std::string_view narrow = DomToAnsi(domName, scratch);
  if (ioSize == nullptr) return -1;

  const size_t length = narrow.size();
  if (buffer != nullptr && *ioSize > length) {
    std::memcpy(buffer, narrow.data(), length);
    buffer[length] = '\0';
    *ioSize = static_cast<unsigned>(length + 1);
    return 0;
  }
  *ioSize = static_cast<unsigned>(length + 1);
  return -105;
}

}  // namespace tk
