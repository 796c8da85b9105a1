#include "dom/model/sax_builder.h"

#include <libxml/parserInternals.h>

#include <cstring>

#include "dom/internal.h"
#include "dom/load_bounds.h"

namespace tk::dom::model {
namespace {

thread_local SaxBuilder* t_builder = nullptr;

// The stand-ins the parser is shown for a first or last child: it asks
// only whether that child is text.
xmlNode g_textChild = [] {
  xmlNode node{};
  node.type = XML_TEXT_NODE;
  return node;
}();
xmlNode g_otherChild = [] {
  xmlNode node{};
  node.type = XML_ELEMENT_NODE;
  return node;
}();

std::string_view View(const xmlChar* text) { return std::string_view(C(text)); }

}  // namespace

SaxBuilder& SaxBuilder::Of(void*) { return *t_builder; }

void SaxBuilder::install(xmlParserCtxtPtr ctxt) {
  m_ctxt = ctxt;
  t_builder = this;
  // The parser refuses to open more than this many elements.
  m_standIns.assign(static_cast<size_t>(xmlParserMaxDepth) + 2, xmlNode{});
  m_depth = 0;
  m_open.assign(1, Open{Store::kDocumentRecord, 0, 0});
  xmlSAXHandler* sax = ctxt->sax;
  sax->startElementNs = StartElement;
  sax->endElementNs = EndElement;
  sax->characters = Characters;
  sax->ignorableWhitespace = DroppedBlanks;
  sax->cdataBlock = CData;
  sax->comment = Comment;
  sax->processingInstruction = Instruction;
  sax->reference = Reference;
  sax->internalSubset = InternalSubset;
  sax->externalSubset = InternalSubset;
  sax->startDocument = StartDocument;
  sax->endDocument = EndDocument;
}

SaxBuilder::~SaxBuilder() {
  if (t_builder == this) t_builder = nullptr;
}

void SaxBuilder::finish() {
  flushText();
  closeChildren(m_open.front());
}

void SaxBuilder::appendChild(NodeRef ref) {
  Open& open = m_open.back();
  Record& child = m_store.at(ref);
  child.parent = open.element;
  if (open.lastChild == 0) {
    m_store.at(open.element).u.element.first = ref;
  } else {
    child.prev = open.lastChild;
    m_store.at(open.lastChild).next = ref;
  }
  open.lastChild = ref;
}

void SaxBuilder::closeChildren(const Open& open) {
  if (open.lastChild == 0) return;
  m_store.at(m_store.at(open.element).u.element.first).prev = open.lastChild;
}

void SaxBuilder::giveUp() {
  m_leftToEngine = true;
  xmlStopParser(m_ctxt);
}

void SaxBuilder::StartElement(void* context, const xmlChar* localname, const xmlChar* prefix,
                              const xmlChar* uri, int namespaceCount, const xmlChar** namespaces,
                              int attributeCount, int defaultedCount,
                              const xmlChar** attributes) {
  SaxBuilder& self = Of(context);
  if (!ElementWithinBounds(self.m_ctxt, localname, prefix, namespaceCount, namespaces,
                           attributeCount, defaultedCount, attributes)) {
    return;
  }
  // Defaults come only from a document type, which the builder never sees.
  self.startElement(localname, prefix, uri, namespaceCount, namespaces,
                    attributeCount - defaultedCount, attributes);
}

void SaxBuilder::EndElement(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
  Of(context).endElement();
}

void SaxBuilder::Characters(void* context, const xmlChar* text, int length) {
  Of(context).text(kText, text, length);
}

void SaxBuilder::DroppedBlanks(void*, const xmlChar*, int) {}

void SaxBuilder::CData(void* context, const xmlChar* text, int length) {
  Of(context).text(kCData, text, length);
}

void SaxBuilder::Comment(void* context, const xmlChar* text) {
  SaxBuilder& self = Of(context);
  self.flushText();  // nothing else is kept while text is open
  const NodeRef ref = self.m_store.make(kComment);
  const Slice kept = self.m_store.keep(View(text));
  self.m_store.at(ref).u.leaf.data = kept.data;
  self.m_store.at(ref).u.leaf.size = kept.size;
  self.leaf(kComment, ref);
}

void SaxBuilder::Instruction(void* context, const xmlChar* target, const xmlChar* data) {
  SaxBuilder& self = Of(context);
  self.flushText();
  const NodeRef ref = self.m_store.make(kProcessingInstruction);
  const NameRef name = self.nameOf(target);
  const Slice kept = self.m_store.keep(data == nullptr ? std::string_view() : View(data));
  Record& record = self.m_store.at(ref);
  record.u.leaf.target = name;
  record.u.leaf.data = kept.data;
  record.u.leaf.size = kept.size;
  if (data == nullptr) record.flags |= kNoData;
  self.leaf(kProcessingInstruction, ref);
}

// Only a reference to an entity nothing declared gets here, and the parse
// fails on it; the engine's tree path reports it.
void SaxBuilder::Reference(void* context, const xmlChar*) { Of(context).giveUp(); }

void SaxBuilder::InternalSubset(void* context, const xmlChar*, const xmlChar*, const xmlChar*) {
  Of(context).giveUp();
}

void SaxBuilder::StartDocument(void*) {}
void SaxBuilder::EndDocument(void*) {}

NameRef SaxBuilder::nameOf(const xmlChar* name) {
  // Names lie a few bytes apart in the dictionary: the address is mixed
  // before its top bits pick the slot.
  const uint64_t mixed = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(name)) *
                         0x9E3779B97F4A7C15ull;
  CachedName& slot = m_names[mixed >> 56];
  if (slot.address != name) {
    slot.address = name;
    slot.ref = m_store.intern(View(name));
  }
  return slot.ref;
}

void SaxBuilder::showChild(Kind kind) {
  xmlNode& standIn = m_standIns[m_depth - 1];
  xmlNode* child = kind == kText ? &g_textChild : &g_otherChild;
  if (standIn.children == nullptr) standIn.children = child;
  standIn.last = child;
}

void SaxBuilder::leaf(Kind kind, NodeRef ref) {
  flushText();
  appendChild(ref);
  if (m_depth != 0) showChild(kind);
}

void SaxBuilder::flushText() {
  if (m_pending == 0) return;
  const Slice kept = m_store.closeText();
  Record& record = m_store.at(m_pending);
  record.u.leaf.data = kept.data;
  record.u.leaf.size = kept.size;
  m_pending = 0;
}

void SaxBuilder::text(Kind kind, const xmlChar* text, int length) {
  if (m_depth == 0) return;  // the engine keeps no text outside the top element
  if (m_pending != 0 && m_store.at(m_pending).kind == kind) {
    // The engine refuses to grow one text node past its limit, as if memory
    // had run out; its own tree path says so.
    if (m_store.openTextSize() + static_cast<size_t>(length) > XML_MAX_TEXT_LENGTH &&
        (m_ctxt->options & XML_PARSE_HUGE) == 0) {
      giveUp();
      return;
    }
    m_store.addText(std::string_view(C(text), static_cast<size_t>(length)));
    return;
  }
  flushText();
  m_pending = m_store.make(kind);
  appendChild(m_pending);
  m_store.openText();
  m_store.addText(std::string_view(C(text), static_cast<size_t>(length)));
  showChild(kind);
}

NodeRef SaxBuilder::xmlDeclaration() {
  if (m_xml == 0) {
    m_xml = m_store.make(kDeclaration);
    const NameRef prefix = m_store.intern("xml");
    const NameRef href = m_store.intern(C(XML_XML_NAMESPACE));
    m_store.at(m_xml).u.declaration.prefix = prefix;
    m_store.at(m_xml).u.declaration.href = href;
  }
  return m_xml;
}

NodeRef SaxBuilder::lookup(NodeRef from, NameRef prefix) const {
  for (NodeRef element = from; element != 0 && m_store.at(element).kind == kElement;
       element = m_store.at(element).parent) {
    for (NodeRef a = m_store.at(element).u.element.attributes; a != 0; a = m_store.at(a).next) {
      const Record& record = m_store.at(a);
      if (record.kind != kDeclaration) break;  // declarations come first
      if (record.u.declaration.prefix == prefix) return a;
    }
  }
  return 0;
}

void SaxBuilder::startElement(const xmlChar* localname, const xmlChar* prefix, const xmlChar* uri,
                              int namespaceCount, const xmlChar** namespaces, int attributeCount,
                              const xmlChar** attributes) {
  flushText();
  if (m_depth == m_standIns.size()) {  // deeper than the parser goes
    giveUp();
    return;
  }
  // Only these fields of a stand-in are read; the rest stay zero.
  xmlNode& standIn = m_standIns[m_depth];
  standIn.type = XML_ELEMENT_NODE;
  standIn.name = localname;
  standIn.children = nullptr;
  standIn.last = nullptr;
  if (nodePush(m_ctxt, &standIn) < 0) return;  // too deep: the parse has stopped
  if (m_depth != 0) showChild(kElement);  // the parent's, one below
  ++m_depth;
  const NodeRef parent = m_open.back().element;

  const NodeRef element = m_store.make(kElement);
  NameRef local;
  if (prefix != nullptr && uri == nullptr) {  // an unbound prefix stays in the name
    std::string qualified(View(prefix));
    qualified += ':';
    qualified += View(localname);
    local = m_store.intern(qualified);
  } else {
    local = nameOf(localname);
  }
  m_store.at(element).u.element.local = local;
  appendChild(element);
  m_open.push_back(Open{element, 0, 0});

  const NameRef elementPrefix = prefix != nullptr && uri != nullptr ? nameOf(prefix) : 0;
  NodeRef ownBinding = 0;
  for (int i = 0; i < namespaceCount; ++i) {
    const xmlChar* declaredPrefix = namespaces[2 * i];
    const xmlChar* href = namespaces[2 * i + 1];
    const NodeRef declaration = m_store.make(kDeclaration);
    const NameRef prefixRef = declaredPrefix == nullptr ? 0 : nameOf(declaredPrefix);
    const NameRef hrefRef = m_store.intern(href == nullptr ? std::string_view() : View(href));
    Record& record = m_store.at(declaration);
    record.u.declaration.prefix = prefixRef;
    record.u.declaration.href = hrefRef;
    linkAttribute(declaration);
    if (uri != nullptr && declaredPrefix == prefix) ownBinding = declaration;
  }
  if (uri != nullptr) {
    NodeRef binding = ownBinding;
    if (binding == 0 && prefix != nullptr && std::strcmp(C(prefix), "xml") == 0) {
      binding = xmlDeclaration();
    }
    if (binding == 0) binding = lookup(parent, elementPrefix);
    if (binding == 0) {  // the engine would make a declaration of its own
      giveUp();
      return;
    }
    m_store.at(element).u.element.ns = binding;
  }

  for (int i = 0; i < attributeCount; ++i) {
    const xmlChar** a = attributes + 5 * i;
    NameRef name;
    NodeRef binding = 0;
    if (a[1] != nullptr && a[2] == nullptr) {
      std::string qualified(View(a[1]));
      qualified += ':';
      qualified += View(a[0]);
      name = m_store.intern(qualified);
    } else {
      name = nameOf(a[0]);
      if (a[1] != nullptr) {
        binding = std::strcmp(C(a[1]), "xml") == 0 ? xmlDeclaration()
                                                   : lookup(element, nameOf(a[1]));
        if (binding == 0) {
          giveUp();
          return;
        }
      }
    }
    const Slice value = m_store.keep(
        std::string_view(C(a[3]), static_cast<size_t>(a[4] - a[3])));
    const NodeRef attribute = m_store.make(kAttribute);
    Record& record = m_store.at(attribute);
    record.prev = binding;
    record.u.attribute.local = name;
    record.u.attribute.data = value.data;
    record.u.attribute.size = value.size;
    linkAttribute(attribute);
  }
}

void SaxBuilder::linkAttribute(NodeRef ref) {
  Open& open = m_open.back();
  m_store.at(ref).parent = open.element;
  if (open.lastAttribute == 0) {
    m_store.at(open.element).u.element.attributes = ref;
  } else {
    m_store.at(open.lastAttribute).next = ref;
  }
  open.lastAttribute = ref;
}

void SaxBuilder::endElement() {
  flushText();
  if (m_depth == 0) return;
  closeChildren(m_open.back());
  m_open.pop_back();
  --m_depth;
  nodePop(m_ctxt);
}

}  // namespace tk::dom::model
