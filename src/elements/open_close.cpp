#include <cstdint>
#include <string>
#include <string_view>

#include "document/textconv.h"
#include "elements/path.h"
#include "frame/ctreekeeper.h"
#include "frame/debug_output.h"

namespace tk {
namespace {

// ASCII letters compare without regard to case; every other byte exactly.
bool EqualsIgnoringAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    unsigned char x = static_cast<unsigned char>(a[i]);
    unsigned char y = static_cast<unsigned char>(b[i]);
    if (x >= 'A' && x <= 'Z') x = static_cast<unsigned char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<unsigned char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

// The child node of parent at index, counting every node type. Null when
// parent has no children, the index is past the count or a DOM call fails.
dom::Node ChildAt(const dom::Node& parent, unsigned index) {
  bool has = false;
  if (parent.hasChildNodes(has) < 0 || !has) return dom::Node();
  dom::NodeList children;
  if (parent.get_childNodes(children) < 0) return dom::Node();
  int32_t length = 0;
  if (children.get_length(length) < 0 || length < 0) return dom::Node();
  if (index >= static_cast<uint32_t>(length)) return dom::Node();
  dom::Node child;
  if (children.get_item(static_cast<int32_t>(index), child) < 0) return dom::Node();
  return child;
}

}  // namespace

unsigned CTreeKeeper::OpenElement(const char* path) {
  LockGuard guard(m_lock);
  if (path == nullptr) return ElementTable::kRootHandle;
  if (m_table.empty() || !m_table.first()) {
    Report("OpenElemnt: root element is invalid");
    return 0;
  }
  // The root here is entry 0's node, which need not be the root pointer's.
  const dom::Node& root = m_table.first();
  std::string domName;
  if (root.get_nodeName(domName) < 0) return 0;
  std::string scratch;
  const std::string_view rootName = DomToAnsi(domName, scratch);

  // A first component that names the root itself is dropped, ASCII case aside.
  const std::string_view whole(path);
  const size_t slash = whole.find('/');
  const std::string_view first = whole.substr(0, slash);
  const char* rest = path;
  if (EqualsIgnoringAsciiCase(first, rootName)) {
    rest = slash == std::string_view::npos ? path + whole.size() : path + slash + 1;
  }

  dom::Node found = WalkPath(root, rest);
  if (!found) return 0;
  if (found.isSameNode(root)) return ElementTable::kRootHandle;
  return m_table.append(std::move(found));
}

unsigned CTreeKeeper::OpenElement(unsigned handle, unsigned index) {
  LockGuard guard(m_lock);
  const dom::Node* parent = m_table.live(handle);
  if (parent == nullptr) {
    Report("OpenElement: element handle is invalid");
    return 0;
  }
  dom::Node child = ChildAt(*parent, index);
  if (!child || child.nodeType() != dom::kElement) return 0;
  return m_table.append(std::move(child));
}

int CTreeKeeper::OpenElement(unsigned handle, unsigned index, unsigned* outHandle,
                             unsigned* outNodeType) {
  if (outHandle == nullptr || outNodeType == nullptr) return -1;
  LockGuard guard(m_lock);
  const dom::Node* parent = m_table.live(handle);
  if (parent == nullptr) {
    Report("OpenElement: element handle is invalid");
    return -1;
  }
  dom::Node child = ChildAt(*parent, index);
  if (!child) return -1;
  const int nodeType = child.nodeType();
  if (nodeType <= dom::kNone) return -1;
  const unsigned opened = m_table.append(std::move(child));
  *outHandle = opened;
  *outNodeType = static_cast<unsigned>(nodeType);
  return 0;
}

// Closing never touches the tree. The last entry leaves the table; any other
// becomes a closed slot so the handles above it keep their values.
int CTreeKeeper::CloseElement(unsigned handle) {
  LockGuard guard(m_lock);
  if (!m_table.inRange(handle)) return -1;
  if (handle == ElementTable::kRootHandle) return -1;
  m_table.close(handle);
  return 0;
}

}  // namespace tk
