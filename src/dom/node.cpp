// Node and NodePtr: identity, names, children, values.
#include <cstring>
#include <new>

#include "dom/internal.h"

namespace tk::dom {

// ---- names and types -----------------------------------------------------------

int TypeOf(const xmlNode* node, const xmlNs* ns) {
  if (node == nullptr) return kNone;
  if (ns != nullptr) return kAttribute;
  switch (node->type) {
    case XML_ELEMENT_NODE: return kElement;
    case XML_ATTRIBUTE_NODE: return kAttribute;
    case XML_TEXT_NODE: return kText;
    case XML_CDATA_SECTION_NODE: return kCData;
    case XML_ENTITY_REF_NODE: return 5;
    case XML_PI_NODE: return kProcessingInstruction;
    case XML_COMMENT_NODE: return kComment;
    case XML_DOCUMENT_NODE:
    case XML_HTML_DOCUMENT_NODE: return kDocumentNode;
    case XML_DTD_NODE: return 10;
    default: return kNone;
  }
}

namespace {

const char* FixedName(const xmlNode* node) {
  switch (node->type) {
    case XML_TEXT_NODE: return "#text";
    case XML_CDATA_SECTION_NODE: return "#cdata-section";
    case XML_COMMENT_NODE: return "#comment";
    case XML_DOCUMENT_NODE:
    case XML_HTML_DOCUMENT_NODE: return "#document";
    default: return nullptr;
  }
}

// The prefix of an element or attribute name, when it has a namespace with one.
const xmlChar* PrefixOf(const xmlNode* node) {
  if (node->type == XML_ELEMENT_NODE || node->type == XML_ATTRIBUTE_NODE) {
    if (node->ns != nullptr) return node->ns->prefix;
  }
  return nullptr;
}

// Matches the NUL-terminated text against the front of [want, end) in one
// pass, stopping at the first byte that differs; returns where the match
// ends, or null when it fails.
inline const char* MatchFront(const char* text, const char* want, const char* end) {
  for (; *text != '\0'; ++text, ++want) {
    if (want == end || *want != *text) return nullptr;
  }
  return want;
}

// The qualified name of an element or attribute compared where it lies: the
// prefix (when its namespace has one), a colon, then the local name.
inline bool QualifiedNameIs(const xmlNode* node, std::string_view name) {
  const char* want = name.data();
  const char* const end = want + name.size();
  if (const xmlChar* prefix = PrefixOf(node)) {
    want = MatchFront(C(prefix), want, end);
    if (want == nullptr || want == end || *want++ != ':') return false;
  }
  return node->name != nullptr && MatchFront(C(node->name), want, end) == end;
}

}  // namespace

void AppendName(const xmlNode* node, const xmlNs* ns, std::string& out) {
  if (ns != nullptr) {
    out += "xmlns";
    if (ns->prefix != nullptr) {
      out += ':';
      out += C(ns->prefix);
    }
    return;
  }
  if (const char* fixed = FixedName(node)) {
    out += fixed;
    return;
  }
  if (const xmlChar* prefix = PrefixOf(node)) {
    out += C(prefix);
    out += ':';
  }
  if (node->name != nullptr) out += C(node->name);
}

bool NameEquals(const xmlNode* node, const xmlNs* ns, std::string_view name) {
  if (node == nullptr) return false;
  const char* const end = name.data() + name.size();
  if (ns != nullptr) {
    const char* want = MatchFront("xmlns", name.data(), end);
    if (want == nullptr) return false;
    if (ns->prefix == nullptr) return want == end;
    if (want == end || *want++ != ':') return false;
    return MatchFront(C(ns->prefix), want, end) == end;
  }
  // Elements, the common case of a path walk, go straight to their name.
  if (node->type != XML_ELEMENT_NODE) {
    if (const char* fixed = FixedName(node)) return MatchFront(fixed, name.data(), end) == end;
  }
  return QualifiedNameIs(node, name);
}

// ---- NodePtr ---------------------------------------------------------------------

int NodePtr::nodeType() const { return TypeOf(m_node, nullptr); }
bool NodePtr::nameEquals(std::string_view name) const {
  return NameEquals(m_node, nullptr, name);
}
std::string NodePtr::nodeName() const {
  std::string out;
  if (m_node != nullptr) AppendName(m_node, nullptr, out);
  return out;
}
NodePtr NodePtr::nextSibling() const {
  return NodePtr(m_node != nullptr ? NextVisible(m_node) : nullptr);
}
NodePtr NodePtr::firstChild() const {
  return NodePtr(m_node != nullptr ? FirstChild(m_node) : nullptr);
}

NodePtr NodePtr::childElement(std::string_view qname) const {
  if (m_node == nullptr || qname.empty() || !HasChildList(m_node)) return NodePtr();
  // Only elements can match, and they are always visible, so the raw sibling
  // chain serves.
  const char first = qname.front();
  if (qname.find(':') == std::string_view::npos) {
    // Without a colon only an element without a prefix can match, so the
    // local name decides before the namespace is looked at.
    const char* const end = qname.data() + qname.size();
    for (xmlNodePtr child = m_node->children; child != nullptr; child = child->next) {
      if (child->type != XML_ELEMENT_NODE || child->name == nullptr ||
          static_cast<char>(child->name[0]) != first) {
        continue;
      }
      if (MatchFront(C(child->name), qname.data(), end) == end &&
          (child->ns == nullptr || child->ns->prefix == nullptr)) {
        return NodePtr(child);
      }
    }
    return NodePtr();
  }
  // The first byte turns most siblings away before the whole name is compared.
  for (xmlNodePtr child = m_node->children; child != nullptr; child = child->next) {
    if (child->type != XML_ELEMENT_NODE) continue;
    const xmlChar* lead = child->ns != nullptr && child->ns->prefix != nullptr
                              ? child->ns->prefix
                              : child->name;
    if (lead == nullptr || static_cast<char>(lead[0]) != first) continue;
    if (QualifiedNameIs(child, qname)) return NodePtr(child);
  }
  return NodePtr();
}

std::string_view NodePtr::valueView() const {
  if (m_node == nullptr) return {};
  switch (m_node->type) {
    case XML_TEXT_NODE:
    case XML_CDATA_SECTION_NODE:
    case XML_COMMENT_NODE:
    case XML_PI_NODE:
      return m_node->content != nullptr ? std::string_view(C(m_node->content))
                                        : std::string_view();
    default:
      return {};
  }
}

Node NodePtr::ref() const { return NodeAccess::Make(m_node); }

void NodePtr::prefetch() const {
  if (m_node == nullptr) return;
  // A reference reads the count at the start of the node and its document
  // and parent further on; the node spans two or three cache lines.
  const char* bytes = reinterpret_cast<const char*>(m_node);
  __builtin_prefetch(bytes);
  __builtin_prefetch(bytes + 64);
  __builtin_prefetch(bytes + sizeof(xmlNode) - 1);
}

// ---- Node: identity ----------------------------------------------------------------

Node::Node(const Node& other) noexcept : m_node(other.m_node), m_ns(other.m_ns) {
  if (m_node != nullptr) RefNode(m_node);
  if (m_ns != nullptr) RefNs(m_ns);
}
Node::Node(Node&& other) noexcept : m_node(other.m_node), m_ns(other.m_ns) {
  other.m_node = nullptr;
  other.m_ns = nullptr;
}
Node& Node::operator=(const Node& other) noexcept {
  if (this != &other) {
    Node copy(other);
    *this = std::move(copy);
  }
  return *this;
}
Node& Node::operator=(Node&& other) noexcept {
  if (this != &other) {
    reset();
    m_node = other.m_node;
    m_ns = other.m_ns;
    other.m_node = nullptr;
    other.m_ns = nullptr;
  }
  return *this;
}
Node::~Node() { reset(); }
void Node::reset() noexcept {
  xmlNodePtr node = m_node;
  xmlNsPtr ns = m_ns;
  m_node = nullptr;
  m_ns = nullptr;
  if (ns != nullptr) UnrefNs(node, ns);  // first: the element is still held
  if (node != nullptr) UnrefNode(node);
}
bool Node::isSameNode(const Node& other) const noexcept {
  return m_node == other.m_node && m_ns == other.m_ns;
}
NodePtr Node::ptr() const noexcept { return NodePtr(m_ns == nullptr ? m_node : nullptr); }
TreeMark Node::treeMark() const {
  if (m_node == nullptr) return TreeMark{};
  const DocBlock* block = BlockOfNode(m_node);
  return TreeMark{block->id, block->shape};
}

int Node::nodeType() const { return TypeOf(m_node, m_ns); }

int Node::get_nodeName(std::string& out) const {
  out.clear();
  if (m_node == nullptr) return kInvalidArg;
  AppendName(m_node, m_ns, out);
  return kOk;
}

bool Node::nameEquals(std::string_view name) const { return NameEquals(m_node, m_ns, name); }

// ---- Node: children ---------------------------------------------------------------

int Node::hasChildNodes(bool& has) const {
  has = false;
  if (m_node == nullptr) return kInvalidArg;
  has = m_ns == nullptr && FirstChild(m_node) != nullptr;
  return has ? kOk : kFalse;
}

int Node::get_childNodes(NodeList& out) const {
  out.m_parent.reset();
  if (m_node == nullptr) return kInvalidArg;
  out.m_parent = *this;
  return kOk;
}

NodePtr Node::firstChild() const {
  return NodePtr(m_node != nullptr && m_ns == nullptr ? FirstChild(m_node) : nullptr);
}

int Node::get_parentNode(Node& out) const {
  // out may be this very node: it is written last.
  xmlNodePtr parent = nullptr;
  int status = kFalse;
  if (m_node == nullptr) {
    status = kInvalidArg;
  } else if (m_ns == nullptr && m_node->type != XML_ATTRIBUTE_NODE && m_node->parent != nullptr) {
    parent = m_node->parent;
    status = kOk;
  }
  out = NodeAccess::Make(parent);
  return status;
}

// ---- Node: values -----------------------------------------------------------------

int Node::get_nodeValue(std::string& out) const {
  out.clear();
  if (m_node == nullptr) return kInvalidArg;
  if (m_ns != nullptr) {
    if (m_ns->href != nullptr) out = C(m_ns->href);
    return kOk;
  }
  switch (m_node->type) {
    case XML_TEXT_NODE:
    case XML_CDATA_SECTION_NODE:
    case XML_COMMENT_NODE:
    case XML_PI_NODE:
      if (m_node->content != nullptr) out = C(m_node->content);
      return kOk;
    case XML_ATTRIBUTE_NODE: {
      xmlNodePtr child = m_node->children;
      if (child != nullptr && child->next == nullptr && child->type == XML_TEXT_NODE) {
        if (child->content != nullptr) out = C(child->content);
        return kOk;
      }
      QuietEngine quiet;
      xmlChar* value = xmlNodeGetContent(m_node);
      if (value != nullptr) {
        out = C(value);
        xmlFree(value);
      } else if (child != nullptr) {
        throw std::bad_alloc();
      }
      return kOk;
    }
    default:
      return kFalse;
  }
}

namespace {

// Gives a text or CDATA node new text. The old text may be the node's own
// copy, a string of the document's dictionary, or kept inside the node
// itself; only the first is freed.
void ReplaceContent(xmlNodePtr node, std::string_view utf8) {
  xmlChar* copy = EngineString(utf8);
  xmlChar* old = node->content;
  const bool owned = old != nullptr && old != reinterpret_cast<xmlChar*>(&node->properties) &&
                     !(node->doc != nullptr && node->doc->dict != nullptr &&
                       xmlDictOwns(node->doc->dict, old) == 1);
  node->content = copy;
  node->properties = nullptr;
  if (owned) xmlFree(old);
}

}  // namespace

bool NamespaceInUse(xmlNodePtr element, xmlNsPtr ns) {
  xmlNodePtr node = element;
  while (node != nullptr) {
    if (node->type == XML_ELEMENT_NODE) {
      if (node->ns == ns) return true;
      for (xmlAttrPtr attr = node->properties; attr != nullptr; attr = attr->next) {
        if (attr->ns == ns) return true;
      }
      if (node->children != nullptr) {
        node = node->children;
        continue;
      }
    }
    while (node != element && node->next == nullptr) node = node->parent;
    if (node == element) break;
    node = node->next;
  }
  return false;
}

int Node::put_nodeValue(std::string_view utf8) {
  if (m_node == nullptr) return kInvalidArg;
  if (!IsXmlText(utf8) || utf8.find('\0') != std::string_view::npos) return kInvalidArg;
  if (m_ns == nullptr &&
      (m_node->type == XML_TEXT_NODE || m_node->type == XML_CDATA_SECTION_NODE)) {
    ReplaceContent(m_node, utf8);
    return kOk;
  }
  QuietEngine quiet;
  if (m_ns != nullptr) {
    if (utf8.empty() && m_ns->prefix != nullptr) return kInvalidArg;
    if (NamespaceInUse(m_node, m_ns)) return kFail;  // would move named nodes to another namespace
    xmlChar* href = EngineString(utf8);
    xmlFree(const_cast<xmlChar*>(m_ns->href));
    m_ns->href = href;
    return kOk;
  }
  switch (m_node->type) {
    case XML_COMMENT_NODE:
      if (utf8.find("--") != std::string_view::npos ||
          (!utf8.empty() && utf8.back() == '-')) {
        return kInvalidArg;
      }
      break;
    case XML_PI_NODE:
      if (utf8.find("?>") != std::string_view::npos) return kInvalidArg;
      break;
    case XML_TEXT_NODE:
    case XML_CDATA_SECTION_NODE:
    case XML_ATTRIBUTE_NODE:
      break;
    default:
      return kFail;
  }
  if (m_node->type == XML_ATTRIBUTE_NODE) {
    xmlChar* value = EngineString(utf8);
    // The attribute's text children are replaced; nothing outside holds them.
    xmlNodePtr text = xmlNewDocText(m_node->doc, value);
    xmlFree(value);
    if (text == nullptr) throw std::bad_alloc();
    xmlNodePtr old = m_node->children;
    text->parent = m_node;
    m_node->children = m_node->last = text;
    if (old != nullptr) xmlFreeNodeList(old);
    return kOk;
  }
  xmlNodeSetContentLen(m_node, X(utf8.data()), static_cast<int>(utf8.size()));
  if (!utf8.empty() && m_node->content == nullptr) throw std::bad_alloc();
  return kOk;
}


// ---- Node: attributes -------------------------------------------------------------

int Node::get_attributes(AttrMap& out) const {
  out.m_element.reset();
  if (m_node == nullptr) return kInvalidArg;
  if (m_ns != nullptr || m_node->type != XML_ELEMENT_NODE) return kFalse;
  out.m_element = *this;
  return kOk;
}

}  // namespace tk::dom
