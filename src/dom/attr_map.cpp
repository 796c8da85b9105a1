// The live attribute map of an element: namespace declarations first (seen
// as attributes "xmlns" / "xmlns:p" whose value is the URI), then the
// attributes in document order and then in the order they were added.
#include <new>

#include "dom/internal.h"

namespace tk::dom {

namespace {

xmlNodePtr AsNode(xmlAttrPtr attr) { return reinterpret_cast<xmlNodePtr>(attr); }

// For a name "xmlns" or "xmlns:p", sets prefix (empty for the default
// declaration) and answers true.
bool IsDeclarationName(std::string_view name, std::string_view& prefix) {
  if (name == "xmlns") {
    prefix = {};
    return true;
  }
  if (name.size() > 6 && name.substr(0, 6) == "xmlns:") {
    prefix = name.substr(6);
    return true;
  }
  return false;
}

xmlNsPtr FindDeclaration(xmlNodePtr element, std::string_view prefix) {
  for (xmlNsPtr ns = element->nsDef; ns != nullptr; ns = ns->next) {
    const std::string_view own = ns->prefix != nullptr ? C(ns->prefix) : "";
    if (own == prefix) return ns;
  }
  return nullptr;
}

int SetDeclaration(xmlNodePtr element, std::string_view prefix, const std::string& href,
                   Node& out) {
  if (!prefix.empty() && href.empty()) return kInvalidArg;  // a prefix can't be undeclared
  if (prefix == "xml" || prefix == "xmlns") return kInvalidArg;
  if (!IsWritableNamespaceUri(href)) return kInvalidArg;
  if (xmlNsPtr ns = FindDeclaration(element, prefix)) {
    if (!xmlStrEqual(ns->href, X(href.c_str()))) {
      if (NamespaceInUse(element, ns)) return kFail;
      xmlChar* copy = EngineString(href);
      xmlFree(const_cast<xmlChar*>(ns->href));
      ns->href = copy;
    }
    out = NodeAccess::Make(element, ns);
    return kOk;
  }
  std::string prefixText(prefix);
  xmlNsPtr ns = xmlNewNs(element, X(href.c_str()), prefix.empty() ? nullptr : X(prefixText.c_str()));
  if (ns == nullptr) throw std::bad_alloc();
  if (ns->href == nullptr || (!prefix.empty() && ns->prefix == nullptr)) {
    // The engine linked a declaration whose text it could not copy.
    xmlNsPtr* link = &element->nsDef;
    while (*link != ns) link = &(*link)->next;
    *link = ns->next;
    ns->next = nullptr;
    xmlFreeNs(ns);
    throw std::bad_alloc();
  }
  out = NodeAccess::Make(element, ns);
  return kOk;
}

}  // namespace

int AttrMap::get_length(int32_t& length) const {
  length = 0;
  xmlNodePtr element = NodeAccess::Raw(m_element);
  if (element == nullptr) return kInvalidArg;
  for (xmlNsPtr ns = element->nsDef; ns != nullptr; ns = ns->next) ++length;
  for (xmlAttrPtr attr = element->properties; attr != nullptr; attr = attr->next) ++length;
  return kOk;
}

int AttrMap::get_item(int32_t index, Node& out) const {
  out.reset();
  xmlNodePtr element = NodeAccess::Raw(m_element);
  if (element == nullptr) return kInvalidArg;
  if (index < 0) return kFalse;
  for (xmlNsPtr ns = element->nsDef; ns != nullptr; ns = ns->next) {
    if (index-- == 0) {
      out = NodeAccess::Make(element, ns);
      return kOk;
    }
  }
  for (xmlAttrPtr attr = element->properties; attr != nullptr; attr = attr->next) {
    if (index-- == 0) {
      out = NodeAccess::Make(AsNode(attr));
      return kOk;
    }
  }
  return kFalse;
}

int AttrMap::getNamedItem(std::string_view qname, Node& out) const {
  out.reset();
  xmlNodePtr element = NodeAccess::Raw(m_element);
  if (element == nullptr) return kInvalidArg;
  for (xmlNsPtr ns = element->nsDef; ns != nullptr; ns = ns->next) {
    if (NameEquals(element, ns, qname)) {
      out = NodeAccess::Make(element, ns);
      return kOk;
    }
  }
  for (xmlAttrPtr attr = element->properties; attr != nullptr; attr = attr->next) {
    if (NameEquals(AsNode(attr), nullptr, qname)) {
      out = NodeAccess::Make(AsNode(attr));
      return kOk;
    }
  }
  return kFalse;
}

int AttrMap::setNamedItem(const Node& attrNode, Node& out) {
  // out may be the very object attrNode is: it is written last.
  const Node pin(attrNode);
  auto fail = [&out](int status) {
    out.reset();
    return status;
  };
  xmlNodePtr element = NodeAccess::Raw(m_element);
  xmlNodePtr node = NodeAccess::Raw(pin);
  if (element == nullptr || node == nullptr) return fail(kInvalidArg);
  if (NodeAccess::Ns(pin) == nullptr && node->type != XML_ATTRIBUTE_NODE) return fail(kFail);

  QuietEngine quiet;
  std::string name;
  pin.get_nodeName(name);
  std::string_view prefix;
  if (IsDeclarationName(name, prefix)) {
    std::string href;
    pin.get_nodeValue(href);
    const int status = SetDeclaration(element, prefix, href, out);
    if (status < 0) out.reset();
    return status;
  }

  auto* attr = reinterpret_cast<xmlAttrPtr>(node);
  if (attr->parent == element) {
    out = pin;
    return kOk;
  }
  if (attr->parent != nullptr) return fail(kFail);  // it belongs to another element

  DocBlock* from = BlockOf(attr->doc);
  DocBlock* to = BlockOf(element->doc);
  if (from != to) {
    if (xmlDOMWrapAdoptNode(nullptr, attr->doc, node, element->doc, element, 0) != 0) {
      return fail(kFail);
    }
    TransferSubtree(node, from, to);
  }

  xmlAttrPtr old = element->properties;
  while (old != nullptr && !NameEquals(AsNode(old), nullptr, name)) old = old->next;
  attr->parent = element;
  if (old != nullptr) {
    // The new attribute takes the old one's place.
    attr->prev = old->prev;
    attr->next = old->next;
    if (old->prev != nullptr) old->prev->next = attr;
    else element->properties = attr;
    if (old->next != nullptr) old->next->prev = attr;
    old->parent = nullptr;
    old->prev = old->next = nullptr;
    Unlinked(AsNode(old), element);
  } else {
    attr->next = nullptr;
    attr->prev = nullptr;
    if (element->properties == nullptr) {
      element->properties = attr;
    } else {
      xmlAttrPtr last = element->properties;
      while (last->next != nullptr) last = last->next;
      last->next = attr;
      attr->prev = last;
    }
  }
  Linked(node);
  out = pin;
  if (old != nullptr) FreeIfUnpinned(AsNode(old));
  if (from != to) FreeDocumentIfUnused(from);
  return kOk;
}

int AttrMap::removeNamedItem(std::string_view qname, Node& out) {
  out.reset();
  xmlNodePtr element = NodeAccess::Raw(m_element);
  if (element == nullptr) return kInvalidArg;
  for (xmlNsPtr* link = &element->nsDef; *link != nullptr; link = &(*link)->next) {
    xmlNsPtr ns = *link;
    if (!NameEquals(element, ns, qname)) continue;
    if (NamespaceInUse(element, ns)) return kFail;
    *link = ns->next;
    out = NodeAccess::Make(element, ns);  // before the release, which frees what nothing names
    ReleaseNs(element, ns);
    return kOk;
  }
  for (xmlAttrPtr attr = element->properties; attr != nullptr; attr = attr->next) {
    if (!NameEquals(AsNode(attr), nullptr, qname)) continue;
    xmlUnlinkNode(AsNode(attr));
    Unlinked(AsNode(attr), element);
    out = NodeAccess::Make(AsNode(attr));
    return kOk;
  }
  return kFalse;
}

}  // namespace tk::dom
