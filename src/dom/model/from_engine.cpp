// Copying the engine's tree into a store: the reference the store's own
// builder and writer are checked against.
#include "dom/model/from_engine.h"

#include <libxml/HTMLtree.h>
#include <libxml/parserInternals.h>

#include <memory>
#include <unordered_map>

#include "dom/internal.h"
#include "dom/model/to_engine.h"
#include "dom/model/write.h"
#include "dom/xml_writer.h"

namespace tk::dom::model {
namespace {

std::string_view View(const xmlChar* text) {
  return text == nullptr ? std::string_view() : std::string_view(C(text));
}

class Copier {
 public:
  explicit Copier(Store& store) : m_store(store) {}

  // Copies node and its subtree under parent; false for what the model
  // does not hold.
  bool subtree(const xmlNode* top, NodeRef parent) {
    const xmlNode* node = top;
    NodeRef into = parent;
    while (true) {
      const NodeRef made = one(node, into);
      if (made == 0) return false;
      if (node->type == XML_ELEMENT_NODE && node->children != nullptr) {
        node = node->children;
        into = made;
        continue;
      }
      while (true) {
        if (node == top) return true;
        if (node->next != nullptr) {
          node = node->next;
          break;
        }
        node = node->parent;
        into = m_store.at(into).parent;
      }
    }
  }

 private:
  // The record for one node, appended to parent; 0 when the model can't hold it.
  NodeRef one(const xmlNode* node, NodeRef parent) {
    NodeRef ref = 0;
    switch (node->type) {
      case XML_ELEMENT_NODE:
        ref = element(node);
        break;
      case XML_TEXT_NODE:
        ref = leaf(kText, node->content);
        if (node->name == xmlStringTextNoenc) m_store.at(ref).flags |= kUnescaped;
        break;
      case XML_CDATA_SECTION_NODE:
        ref = leaf(kCData, node->content);
        break;
      case XML_COMMENT_NODE:
        ref = leaf(kComment, node->content);
        break;
      case XML_PI_NODE:
        ref = leaf(kProcessingInstruction, node->content);
        m_store.at(ref).u.leaf.target = m_store.intern(View(node->name));
        break;
      default:
        return 0;
    }
    if (ref != 0) m_store.appendChild(parent, ref);
    return ref;
  }

  NodeRef leaf(Kind kind, const xmlChar* text) {
    const NodeRef ref = m_store.make(kind);
    const Slice kept = m_store.keep(View(text));
    m_store.at(ref).u.leaf.data = kept.data;
    m_store.at(ref).u.leaf.size = kept.size;
    if (text == nullptr) m_store.at(ref).flags |= kNoData;
    return ref;
  }

  NodeRef element(const xmlNode* node) {
    const NodeRef ref = m_store.make(kElement);
    m_store.at(ref).u.element.local = m_store.intern(View(node->name));
    for (const xmlNs* ns = node->nsDef; ns != nullptr; ns = ns->next) {
      const NodeRef declaration = m_store.make(kDeclaration);
      Record& record = m_store.at(declaration);
      record.u.declaration.prefix = ns->prefix == nullptr ? 0 : m_store.intern(View(ns->prefix));
      record.u.declaration.href = m_store.intern(View(ns->href));
      m_store.appendAttribute(ref, declaration);
      m_declarations[ns] = declaration;
    }
    m_store.at(ref).u.element.ns = bound(node->ns);
    for (const xmlAttr* attr = node->properties; attr != nullptr; attr = attr->next) {
      if (!attribute(attr, ref)) return 0;
    }
    return ref;
  }

  bool attribute(const xmlAttr* attr, NodeRef element) {
    std::string value;
    for (const xmlNode* child = attr->children; child != nullptr; child = child->next) {
      if (child->type != XML_TEXT_NODE) return false;
      value += View(child->content);
    }
    const NodeRef declaration = bound(attr->ns);  // may grow the records
    const NodeRef ref = m_store.make(kAttribute);
    const NameRef local = m_store.intern(View(attr->name));
    const Slice kept = m_store.keep(value);
    Record& record = m_store.at(ref);
    record.u.attribute.local = local;
    record.u.attribute.data = kept.data;
    record.u.attribute.size = kept.size;
    record.prev = declaration;
    m_store.appendAttribute(element, ref);
    return true;
  }

  // The record of the declaration ns, made apart from any element when the
  // copy has not met it (it is declared above the copied tree).
  NodeRef bound(const xmlNs* ns) {
    if (ns == nullptr) return 0;
    const auto found = m_declarations.find(ns);
    if (found != m_declarations.end()) return found->second;
    const NodeRef declaration = m_store.make(kDeclaration);
    Record& record = m_store.at(declaration);
    record.u.declaration.prefix = ns->prefix == nullptr ? 0 : m_store.intern(View(ns->prefix));
    record.u.declaration.href = m_store.intern(View(ns->href));
    m_declarations[ns] = declaration;
    return declaration;
  }

  Store& m_store;
  std::unordered_map<const xmlNs*, NodeRef> m_declarations;
};

}  // namespace

bool CopyDocument(const xmlDoc* doc, Store& store) {
  // The engine writes the nodes of a document whose type names an XHTML DTD
  // by rules of its own, which the model does not follow (yet).
  const xmlDtd* dtd = doc->intSubset;
  if (dtd != nullptr && xmlIsXHTML(dtd->SystemID, dtd->ExternalID) > 0) return false;
  Copier copier(store);
  for (const xmlNode* child = FirstChild(reinterpret_cast<const xmlNode*>(doc));
       child != nullptr; child = NextVisible(child)) {
    if (!copier.subtree(child, Store::kDocumentRecord)) return false;
  }
  return true;
}

}  // namespace tk::dom::model

namespace tk::dom::testing {

int ModelXml(const Node& node, AboveBmp form, std::string& out) {
  const xmlNode* raw = NodeAccess::Raw(node);
  if (raw == nullptr || raw->doc == nullptr) return kInvalidArg;
  model::Store store;
  if (!model::CopyDocument(raw->doc, store)) return kFalse;
  out.clear();
  model::WriteXml(store, model::Store::kDocumentRecord, form, out);
  return kOk;
}

int RoundTripXml(const Node& node, std::string& out) {
  const xmlNode* raw = NodeAccess::Raw(node);
  if (raw == nullptr || raw->doc == nullptr) return kInvalidArg;
  model::Store store;
  if (!model::CopyDocument(raw->doc, store)) return kFalse;
  const std::unique_ptr<xmlDoc, void (*)(xmlDocPtr)> doc(model::ToEngineDocument(store),
                                                         xmlFreeDoc);
  if (!doc) return kFail;
  out.clear();
  for (xmlNodePtr child = FirstChild(reinterpret_cast<xmlNodePtr>(doc.get())); child != nullptr;
       child = NextVisible(child)) {
    if (child != FirstChild(reinterpret_cast<xmlNodePtr>(doc.get()))) out += '\n';
    if (!WriteXml(child, {}, AboveBmp::kFourBytes, out)) return kFalse;
  }
  return kOk;
}

}  // namespace tk::dom::testing
