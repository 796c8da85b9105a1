// The bounds a parse keeps beside the engine, through its SAX hooks.
#include "dom/load_bounds.h"

#include <libxml/SAX2.h>
#include <libxml/dict.h>
#include <libxml/entities.h>
#include <libxml/parserInternals.h>

#include <algorithm>
#include <cstring>
#include <unordered_map>

namespace tk::dom {

struct LoadGuard::State {
  xmlParserCtxtPtr ctxt = nullptr;
  size_t budget = 0;    // characters entity expansion and defaults may add
  size_t produced = 0;  // characters they have added so far
  // Attribute defaults declared per element name.
  std::unordered_map<std::string, int> defaults;
  // Stands in for an internal entity whose replacement is one run of text,
  // handed to the engine as if predefined, so that its text is appended to
  // the text before it in place (the engine would copy it and then join the
  // two by measuring the whole text again, once per reference).
  xmlEntity plainText{};
  State* saved = nullptr;
};

namespace {

thread_local LoadGuard::State* t_guard = nullptr;

bool TooManyNames(xmlParserCtxtPtr ctxt) {
  if (ctxt->dict == nullptr || xmlDictSize(ctxt->dict) <= static_cast<int>(kMaxDistinctNames)) {
    return false;
  }
  StopParse(ctxt, "The document uses more than " + std::to_string(kMaxDistinctNames) +
                      " distinct names\n");
  return true;
}

// Adds what expansion produced; false (and the parse stopped) past the budget.
bool Produce(LoadGuard::State& state, size_t characters) {
  state.produced += characters;
  if (state.produced <= state.budget) return true;
  StopParse(state.ctxt, "Entity references and attribute defaults expand to more than " +
                            std::to_string(state.budget) + " characters\n");
  return false;
}

xmlEntityPtr GetEntityBounded(void* context, const xmlChar* name) {
  auto* ctxt = static_cast<xmlParserCtxtPtr>(context);
  xmlEntityPtr entity = xmlSAX2GetEntity(context, name);
  LoadGuard::State* state = t_guard;
  if (entity == nullptr || state == nullptr || state->ctxt != ctxt) return entity;
  const bool inContent = ctxt->instate == XML_PARSER_CONTENT;
  if (entity->etype == XML_EXTERNAL_GENERAL_PARSED_ENTITY && inContent) {
    StopParse(ctxt, std::string("Entity '") + C(name) +
                        "' is external; its text is never read, so the document is refused\n");
    return nullptr;
  }
  if (entity->etype != XML_INTERNAL_GENERAL_ENTITY) return entity;
  const xmlNode* only = entity->children;
  const bool plain = inContent && only != nullptr && only == entity->last &&
                     only->type == XML_TEXT_NODE && only->content != nullptr;
  const size_t length = plain ? std::strlen(C(only->content))
                              : static_cast<size_t>(entity->length > 0 ? entity->length : 0);
  if (!Produce(*state, length)) return nullptr;
  if (!plain) return entity;
  state->plainText = xmlEntity{};
  state->plainText.type = XML_ENTITY_DECL;
  state->plainText.name = entity->name;
  state->plainText.etype = XML_INTERNAL_PREDEFINED_ENTITY;
  state->plainText.content = only->content;
  state->plainText.length = static_cast<int>(length);
  return &state->plainText;
}

// An entity whose replacement text holds crowded start tags is refused where
// it is declared.
void EntityDeclBounded(void* context, const xmlChar* name, int type, const xmlChar* publicId,
                       const xmlChar* systemId, xmlChar* content) {
  auto* ctxt = static_cast<xmlParserCtxtPtr>(context);
  xmlSAX2EntityDecl(context, name, type, publicId, systemId, content);
  if (TooManyNames(ctxt)) return;
  CrowdedTag crowded;
  if (type == XML_INTERNAL_GENERAL_ENTITY && content != nullptr &&
      FindCrowdedTagUtf8(C(content), std::strlen(C(content)), crowded)) {
    StopParse(ctxt, std::string("In entity '") + C(name) + "': " + crowded.reason);
  }
}

void AttributeDeclBounded(void* context, const xmlChar* element, const xmlChar* fullname, int type,
                          int def, const xmlChar* defaultValue, xmlEnumerationPtr tree) {
  auto* ctxt = static_cast<xmlParserCtxtPtr>(context);
  xmlSAX2AttributeDecl(context, element, fullname, type, def, defaultValue, tree);
  LoadGuard::State* state = t_guard;
  if (state == nullptr || state->ctxt != ctxt || defaultValue == nullptr) return;
  if (++state->defaults[C(element)] > kMaxAttributesPerElement) {
    StopParse(ctxt, std::string("Element ") + C(element) + " has more than " +
                        std::to_string(kMaxAttributesPerElement) + " attribute defaults\n");
  }
}

// The engine's tree builder appends each attribute by walking the list of
// those before it. An element with many is built in runs instead: the first
// run on the element itself, each further run on a stand-in child of the
// same name (so that namespaces and IDs resolve as they would on the
// element), whose attributes are then moved to the end of the element's list.
constexpr int kAttributeRun = 32;

void StartElementInRuns(xmlParserCtxtPtr ctxt, const xmlChar* localname, const xmlChar* prefix,
                        const xmlChar* uri, int namespaceCount, const xmlChar** namespaces,
                        int attributeCount, int defaultedCount, const xmlChar** attributes) {
  // Defaults stay out of the tree unless the parse asked for them.
  if ((ctxt->loadsubset & XML_COMPLETE_ATTRS) == 0) attributeCount -= defaultedCount;
  const bool deepEnough = static_cast<unsigned>(ctxt->nodeNr) + 2 >= xmlParserMaxDepth;
  if (attributeCount <= kAttributeRun || deepEnough) {
    xmlSAX2StartElementNs(ctxt, localname, prefix, uri, namespaceCount, namespaces, attributeCount,
                          0, attributes);
    return;
  }
  xmlNodePtr const parent = ctxt->node;
  xmlSAX2StartElementNs(ctxt, localname, prefix, uri, namespaceCount, namespaces, kAttributeRun,
                        0, attributes);
  xmlNodePtr element = ctxt->node;
  if (element == nullptr || element == parent || ctxt->instate == XML_PARSER_EOF) return;
  xmlAttrPtr tail = element->properties;
  while (tail != nullptr && tail->next != nullptr) tail = tail->next;
  for (int start = kAttributeRun; start < attributeCount; start += kAttributeRun) {
    const int run = std::min(kAttributeRun, attributeCount - start);
    xmlSAX2StartElementNs(ctxt, localname, prefix, uri, 0, nullptr, run, 0, attributes + 5 * start);
    xmlNodePtr standIn = ctxt->node;
    if (standIn == element || ctxt->instate == XML_PARSER_EOF) return;  // the engine failed
    for (xmlAttrPtr attr = standIn->properties; attr != nullptr; attr = attr->next) {
      attr->parent = element;
      attr->prev = tail;
      if (tail == nullptr) {
        element->properties = attr;
      } else {
        tail->next = attr;
      }
      tail = attr;
    }
    standIn->properties = nullptr;
    xmlSAX2EndElementNs(ctxt, localname, prefix, uri);
    xmlUnlinkNode(standIn);
    xmlFreeNode(standIn);
  }
}

// The engine's element start, within the bounds.
void StartElementBounded(void* context, const xmlChar* localname, const xmlChar* prefix,
                         const xmlChar* uri, int namespaceCount, const xmlChar** namespaces,
                         int attributeCount, int defaultedCount, const xmlChar** attributes) {
  auto* ctxt = static_cast<xmlParserCtxtPtr>(context);
  if (!ElementWithinBounds(ctxt, localname, prefix, namespaceCount, namespaces, attributeCount,
                           defaultedCount, attributes)) {
    return;
  }
  StartElementInRuns(ctxt, localname, prefix, uri, namespaceCount, namespaces, attributeCount,
                     defaultedCount, attributes);
}

}  // namespace

bool ElementWithinBounds(xmlParserCtxtPtr ctxt, const xmlChar* localname, const xmlChar* prefix,
                         int namespaceCount, const xmlChar** namespaces, int attributeCount,
                         int defaultedCount, const xmlChar** attributes) {
  auto name = [&]() {
    std::string qname = prefix != nullptr ? std::string(C(prefix)) + ":" : std::string();
    return qname + C(localname);
  };
  for (int i = 0; i < namespaceCount; ++i) {
    const xmlChar* href = namespaces[2 * i + 1];
    if (href != nullptr && !IsWritableNamespaceUri(C(href))) {
      StopParse(ctxt, "Element " + name() + " declares a namespace name with '&', '<' or a line break\n");
      return false;
    }
  }
  if (TooManyNames(ctxt)) return false;
  LoadGuard::State* state = t_guard;
  if (state != nullptr && state->ctxt == ctxt && (defaultedCount > 0 || namespaceCount > 0)) {
    // A defaulted attribute costs its value and a node: count the node as
    // the length of a short value, so that empty defaults count too. Each
    // declaration is copied into the tree; the defaulted ones can't be told
    // apart here, so all are counted (those written in the document at most
    // once over again).
    constexpr size_t kNodeCost = 32;
    size_t added = 0;
    for (int i = attributeCount - defaultedCount; i < attributeCount; ++i) {
      added += static_cast<size_t>(attributes[5 * i + 4] - attributes[5 * i + 3]) + kNodeCost;
    }
    for (int i = 0; i < namespaceCount; ++i) {
      const xmlChar* href = namespaces[2 * i + 1];
      added += (href != nullptr ? std::strlen(C(href)) : 0) + kNodeCost;
    }
    if (!Produce(*state, added)) return false;
  }
  return true;
}

void StopParse(xmlParserCtxtPtr ctxt, std::string reason) {
  ParseError* first = FirstFatalError();
  if (first != nullptr && first->errorCode == 0) {
    first->errorCode = ParseErrorCode(XML_ERR_INTERNAL_ERROR);
    first->line = ctxt->input != nullptr ? ctxt->input->line : 0;
    first->linepos = ctxt->input != nullptr ? ctxt->input->col : 0;
    first->reason = std::move(reason);
  }
  ctxt->wellFormed = 0;
  xmlStopParser(ctxt);
}

LoadGuard::LoadGuard(xmlParserCtxtPtr ctxt, size_t inputLength) : m_state(new State) {
  m_state->ctxt = ctxt;
  m_state->budget = kExpansionPerInputByte * inputLength + kExpansionAllowance;
  m_state->saved = t_guard;
  t_guard = m_state;
  ctxt->sax->getEntity = GetEntityBounded;
  ctxt->sax->entityDecl = EntityDeclBounded;
  ctxt->sax->attributeDecl = AttributeDeclBounded;
  ctxt->sax->startElementNs = StartElementBounded;
}

LoadGuard::~LoadGuard() {
  t_guard = m_state->saved;
  delete m_state;
}

}  // namespace tk::dom
