#include "document/create.h"

#include <string>

#include "document/textconv.h"
#include "frame/ctreekeeper.h"
#include "frame/debug_output.h"

namespace tk {

dom::Node CreateDOMNode(dom::Document& document, int nodeType, std::string_view name) {
  dom::Node node;
  if (document.createNode(nodeType, name, node) < 0 || !node) {
    Report("CreateDOMNode failed");
    return dom::Node();
  }
  return node;
}

// The created root stays outside the DOM document: the document only makes
// the node, and the root lives as long as table entry 0 holds it.
int CTreeKeeper::CreateEmpty(const char* rootName) {
  if (rootName == nullptr) {
    Report("CreateEmpty NULL point");
    return -1;
  }
  LockGuard guard(m_lock);
  if (!m_table.empty()) {
    Report("CreateEmpty:  root element exist");
    return -112;
  }
  std::string name;
  if (AnsiToWide(rootName, name) != 0) return -1;
  dom::Node root = CreateDOMNode(m_document, dom::kElement, name);
  if (!root) return -1;
  m_root.assign(root);
  m_table.append(std::move(root));
  return 0;
}

}  // namespace tk
