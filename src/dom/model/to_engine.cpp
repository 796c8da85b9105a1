#include "dom/model/to_engine.h"

#include <libxml/parserInternals.h>

#include <memory>
#include <unordered_map>

#include "dom/internal.h"

namespace tk::dom::model {
namespace {

const xmlChar* X(std::string_view text) { return reinterpret_cast<const xmlChar*>(text.data()); }

class Converter {
 public:
  Converter(const Store& store, xmlDocPtr doc) : m_store(store), m_doc(doc) {}

  // Makes the engine's node for ref under parent; null when memory ran out.
  xmlNodePtr make(NodeRef ref, xmlNodePtr parent) {
    const Record& record = m_store.at(ref);
    xmlNodePtr node = nullptr;
    switch (record.kind) {
      case kElement:
        node = element(record);
        break;
      case kText:
        node = xmlNewDocTextLen(m_doc, X(LeafText(record)), static_cast<int>(record.u.leaf.size));
        if (node != nullptr && (record.flags & kUnescaped) != 0) node->name = xmlStringTextNoenc;
        break;
      case kCData:
        node = xmlNewCDataBlock(m_doc, X(LeafText(record)), static_cast<int>(record.u.leaf.size));
        break;
      case kComment:
        node = xmlNewDocComment(m_doc, X(LeafText(record)));
        break;
      case kProcessingInstruction:
        node = xmlNewDocPI(m_doc, X(m_store.name(record.u.leaf.target)),
                           (record.flags & kNoData) != 0 ? nullptr : X(LeafText(record)));
        break;
      default:
        return nullptr;
    }
    if (node == nullptr) return nullptr;
    // Appended by hand: the engine's append would merge neighbouring texts.
    node->parent = parent;
    node->doc = m_doc;
    if (parent->children == nullptr) {
      parent->children = node;
    } else {
      parent->last->next = node;
      node->prev = parent->last;
    }
    parent->last = node;
    if (record.kind == kElement) bind(record, node);
    return node;
  }

  bool subtree(NodeRef top, xmlNodePtr parent) {
    NodeRef ref = top;
    xmlNodePtr into = parent;
    while (true) {
      xmlNodePtr made = make(ref, into);
      if (made == nullptr) return false;
      const Record& record = m_store.at(ref);
      if (record.kind == kElement && record.u.element.first != 0) {
        ref = record.u.element.first;
        into = made;
        continue;
      }
      while (true) {
        if (ref == top) return true;
        if (m_store.at(ref).next != 0) {
          ref = m_store.at(ref).next;
          break;
        }
        ref = m_store.at(ref).parent;
        into = into->parent;
      }
    }
  }

 private:
  xmlNodePtr element(const Record& record) {
    xmlNodePtr node = xmlNewDocNode(m_doc, nullptr, X(m_store.name(record.u.element.local)), nullptr);
    if (node == nullptr) return nullptr;
    xmlNsPtr* tail = &node->nsDef;
    for (NodeRef a = record.u.element.attributes; a != 0; a = m_store.at(a).next) {
      const Record& declaration = m_store.at(a);
      if (declaration.kind != kDeclaration) break;
      xmlNsPtr ns = xmlNewNs(nullptr, X(m_store.name(declaration.u.declaration.href)),
                             declaration.u.declaration.prefix == 0
                                 ? nullptr
                                 : X(m_store.name(declaration.u.declaration.prefix)));
      if (ns == nullptr) {
        xmlFreeNode(node);
        return nullptr;
      }
      *tail = ns;
      tail = &ns->next;
      m_namespaces[a] = ns;
    }
    return node;
  }

  // The namespace of the declaration ref, once the node stands in the tree.
  xmlNsPtr ns(NodeRef ref, xmlNodePtr node) {
    if (ref == 0) return nullptr;
    const auto found = m_namespaces.find(ref);
    if (found != m_namespaces.end()) return found->second;
    // A declaration no element of the tree holds: the xml prefix's.
    return xmlSearchNs(m_doc, node, X(m_store.name(m_store.at(ref).u.declaration.prefix)));
  }

  // The element's and its attributes' namespaces, and the attributes.
  void bind(const Record& record, xmlNodePtr node) {
    node->ns = ns(record.u.element.ns, node);
    for (NodeRef a = record.u.element.attributes; a != 0; a = m_store.at(a).next) {
      const Record& attribute = m_store.at(a);
      if (attribute.kind != kAttribute) continue;
      xmlNewNsProp(node, ns(attribute.prev, node), X(m_store.name(attribute.u.attribute.local)),
                   X(Value(attribute)));
    }
  }

  const Store& m_store;
  xmlDocPtr m_doc;
  std::unordered_map<NodeRef, xmlNsPtr> m_namespaces;
};

}  // namespace

xmlDocPtr ToEngineDocument(const Store& store) {
  xmlDocPtr doc = xmlNewDoc(reinterpret_cast<const xmlChar*>("1.0"));
  if (doc == nullptr) return nullptr;
  doc->encoding = xmlStrdup(reinterpret_cast<const xmlChar*>("UTF-8"));
  Converter converter(store, doc);
  for (NodeRef child = store.at(Store::kDocumentRecord).u.element.first; child != 0;
       child = store.at(child).next) {
    if (!converter.subtree(child, reinterpret_cast<xmlNodePtr>(doc))) {
      xmlFreeDoc(doc);
      return nullptr;
    }
  }
  return doc;
}

}  // namespace tk::dom::model
