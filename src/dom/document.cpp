// Document objects: the node factory and the holder of one tree.
#include <atomic>
#include <new>

#include "dom/document_object.h"

namespace tk::dom {

xmlDocPtr NewEmptyDocument() {
  xmlDocPtr doc = xmlNewDoc(X("1.0"));
  if (doc == nullptr) throw std::bad_alloc();
  try {
    AdoptDocument(doc);
  } catch (...) {
    xmlFreeDoc(doc);
    throw;
  }
  return doc;
}

namespace {

// The engine's constructors give a node back even when the copy of its name
// or text failed; such a node is freed here and the failure thrown.
xmlNodePtr Checked(xmlNodePtr node, bool complete) {
  if (node == nullptr) throw std::bad_alloc();
  if (!complete) {
    if (node->type == XML_ATTRIBUTE_NODE) {
      xmlFreeProp(reinterpret_cast<xmlAttrPtr>(node));
    } else {
      xmlFreeNode(node);
    }
    throw std::bad_alloc();
  }
  return node;
}

}  // namespace

void Document::Object::Replace(xmlDocPtr next) {
  HoldDocument(next);
  xmlDocPtr old = doc;
  doc = next;
  if (old != nullptr) ReleaseDocument(old);
}

Document::Object::~Object() {
  if (doc != nullptr) ReleaseDocument(doc);
}

xmlDocPtr NodeAccess::DocOf(const Document& document) {
  return document.m_object != nullptr ? document.m_object->doc : nullptr;
}


Document::Document(const Document& other) noexcept : m_object(other.m_object) {
  if (m_object != nullptr) m_object->refs.fetch_add(1, std::memory_order_relaxed);
}
Document::Document(Document&& other) noexcept : m_object(other.m_object) {
  other.m_object = nullptr;
}
Document& Document::operator=(const Document& other) noexcept {
  if (this != &other) {
    Document copy(other);
    std::swap(m_object, copy.m_object);
  }
  return *this;
}
Document& Document::operator=(Document&& other) noexcept {
  if (this != &other) {
    reset();
    std::swap(m_object, other.m_object);
  }
  return *this;
}
Document::~Document() { reset(); }

void Document::reset() noexcept {
  Object* object = m_object;
  m_object = nullptr;
  if (object != nullptr && object->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    delete object;
  }
}

int Document::Create(Document& out) {
  if (TakeCreateFailure()) return kFail;
  EnsureEngine();
  QuietEngine quiet;
  auto* object = new Object;
  try {
    object->Replace(NewEmptyDocument());
  } catch (...) {
    delete object;
    throw;
  }
  out.reset();
  out.m_object = object;
  return kOk;
}

int Document::createNode(int type, std::string_view name, Node& out) {
  out.reset();
  if (m_object == nullptr) return kFail;
  if (type != kElement) return kInvalidArg;
  if (!IsQualifiedName(name)) return kInvalidArg;
  QuietEngine quiet;
  const std::string copy(name);
  xmlNodePtr node = xmlNewNode(nullptr, X(copy.c_str()));
  Checked(node, node == nullptr || node->name != nullptr);
  node->doc = m_object->doc;
  out = NodeAccess::Make(node);
  return kOk;
}

int Document::createAttribute(std::string_view name, Node& out) {
  out.reset();
  if (m_object == nullptr) return kFail;
  if (!IsQualifiedName(name)) return kInvalidArg;
  QuietEngine quiet;
  std::string copy(name);
  auto* attr = reinterpret_cast<xmlNodePtr>(xmlNewDocProp(m_object->doc, X(copy.c_str()), nullptr));
  Checked(attr, attr == nullptr || attr->name != nullptr);
  out = NodeAccess::Make(attr);
  return kOk;
}

int Document::createTextNode(std::string_view utf8, Node& out) {
  out.reset();
  if (m_object == nullptr) return kFail;
  if (!IsXmlText(utf8)) return kInvalidArg;
  QuietEngine quiet;
  xmlNodePtr node = xmlNewDocTextLen(m_object->doc, X(utf8.data() ? utf8.data() : ""),
                                     static_cast<int>(utf8.size()));
  Checked(node, node == nullptr || node->content != nullptr || utf8.empty());
  out = NodeAccess::Make(node);
  return kOk;
}

int Document::createCDATASection(std::string_view utf8, Node& out) {
  out.reset();
  if (m_object == nullptr) return kFail;
  if (!IsXmlText(utf8)) return kInvalidArg;
  QuietEngine quiet;
  xmlNodePtr node = xmlNewCDataBlock(m_object->doc, X(utf8.data() ? utf8.data() : ""),
                                     static_cast<int>(utf8.size()));
  Checked(node, node == nullptr || node->content != nullptr || utf8.empty());
  out = NodeAccess::Make(node);
  return kOk;
}

int Document::get_documentElement(Node& out) const {
  out.reset();
  if (m_object == nullptr) return kFail;
  xmlNodePtr root = xmlDocGetRootElement(m_object->doc);
  if (root == nullptr) return kFalse;
  out = NodeAccess::Make(root);
  return kOk;
}

int Document::get_parseError(ParseError& out) const {
  out = ParseError{};
  if (m_object == nullptr) return kFail;
  out = m_object->error;
  return kOk;
}

}  // namespace tk::dom
