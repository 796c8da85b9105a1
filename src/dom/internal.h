// Internals shared by the DOM layer's implementation files. Only src/dom
// includes this header (and through it the engine's headers).
#pragma once

#include <libxml/globals.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "dom/dom.h"

namespace tk::dom {

// ---- engine set-up (init.cpp) ----------------------------------------------

// One-time, process-wide set-up of the engine; safe to call from any thread.
void EnsureEngine();
// Parse options every load uses.
int ParseOptions();
// While alive, external entities requested on this thread are refused.
class ParseScope {
 public:
  ParseScope();
  ~ParseScope();
  ParseScope(const ParseScope&) = delete;
  ParseScope& operator=(const ParseScope&) = delete;
};
// Keeps the engine from reporting on this thread while it lives. Parse and
// transformation errors have per-context hooks, but the engine writes a few
// reports past them: memory running out while nodes, buffers or contexts are
// made, and some faults of XPath evaluation (an unknown function, for one)
// go straight to the calling thread's generic or structured error handler.
// For the length of one of our calls those two handlers are made silent on
// this thread only and then given back as they were; no other thread and no
// other caller ever sees the change.
class QuietEngine {
 public:
  QuietEngine();
  ~QuietEngine();
  QuietEngine(const QuietEngine&) = delete;
  QuietEngine& operator=(const QuietEngine&) = delete;

 private:
  xmlGenericErrorFunc m_generic;
  void* m_genericContext;
  xmlStructuredErrorFunc m_structured;
  void* m_structuredContext;
};
// The value our parser contexts carry in their _private field.
void* ParserMark();
// The failure seam of Document::Create.
bool TakeCreateFailure();

// ---- lifetime (lifetime.cpp) -------------------------------------------------

// A weak cell: the node a WeakNode names, cleared when that node is freed.
struct WeakCell {
  xmlNodePtr node = nullptr;
  xmlNsPtr ns = nullptr;
  struct DocBlock* block = nullptr;
  WeakCell* prev = nullptr;
  WeakCell* next = nullptr;
};

// A known position in one child list, and the list's length once counted
// (-1 until then). Valid while its shape is the document's.
struct ChildHint {
  const xmlNode* parent = nullptr;
  uint64_t shape = 0;
  uint64_t used = 0;  // when it last served, for replacing the oldest
  int32_t index = -1;
  xmlNodePtr node = nullptr;
  int32_t length = -1;
};

// The control block of one engine document, kept in its _private field.
// refs counts every counted reference to a node whose doc is this document
// (and to the document node itself); holders counts the Document objects
// that hold it as their tree. The document goes when both are zero.
struct DocBlock {
  xmlDocPtr doc = nullptr;
  long refs = 0;
  long holders = 0;
  WeakCell* cells = nullptr;
  // id is unique in the process and never reused; shape moves whenever a
  // child list of the document changes or a node that can stand in one is
  // freed. Together they name one state of the document's child lists.
  uint64_t id = 0;
  uint64_t shape = 1;
  // Positions in the child lists walked last, for walks by index. Only
  // callers that hold the document (an instance under its lock) touch them.
  static constexpr int kHints = 8;
  ChildHint hints[kHints];
  uint64_t hintClock = 0;
  // The length of the last text written of the whole document (its element
  // or the document node): the next one is most likely about as long, so its
  // string is made that large at once instead of grown step by step.
  size_t lastWholeText = 0;
};

// Makes (or finds) the control block of a document.
DocBlock* BlockOf(xmlDocPtr doc);
// The control block of the document a node (or document node) belongs to.
inline DocBlock* BlockOfNode(const xmlNode* node) {
  return BlockOf(node->doc != nullptr ? node->doc
                                      : reinterpret_cast<xmlDocPtr>(const_cast<xmlNode*>(node)));
}
// A child list of the block's document changed, or one of its nodes is about
// to be freed: positions known in its lists no longer hold.
inline void ShapeChanged(DocBlock* block) { ++block->shape; }
// Sets up a new document for our use: control block and UTF-8 output.
void AdoptDocument(xmlDocPtr doc);

void RefNode(xmlNodePtr node);
void UnrefNode(xmlNodePtr node);
void HoldDocument(xmlDocPtr doc);
void ReleaseDocument(xmlDocPtr doc);

// True when the node hangs below a document node.
bool InDocumentTree(xmlNodePtr node);
// Frees a subtree that no document holds when no reference points into it.
void FreeIfUnpinned(xmlNodePtr top);
// Every structural change tells the bookkeeping: Linked after a node (or
// attribute) got its new parent, Unlinked after it left oldParent (null when
// it had none). Unlinked may free the tree it left when nothing pins that
// any more; the moved node itself is never freed by either.
void Linked(xmlNodePtr node);
void Unlinked(xmlNodePtr node, xmlNodePtr oldParent);
// Moves reference counts and weak cells of a subtree
// from one document's block to another's (the subtree has been adopted).
void TransferSubtree(xmlNodePtr top, DocBlock* from, DocBlock* to);
// Frees the document of a block if nothing holds it any more.
void FreeDocumentIfUnused(DocBlock* block);
// A Node naming a namespace declaration counts on the declaration too (the
// element it names is counted as a node).
void RefNs(xmlNsPtr ns);
void UnrefNs(xmlNodePtr element, xmlNsPtr ns);
// A declaration taken off element's list: freed at once when no Node names
// it, else when the last one goes.
void ReleaseNs(xmlNodePtr element, xmlNsPtr ns);
void LinkWeakCell(WeakCell* cell, xmlNodePtr node, xmlNsPtr ns);
void UnlinkWeakCell(WeakCell* cell);

// ---- node helpers ------------------------------------------------------------

// Children the DOM shows: elements, text, CDATA, comments, processing instructions.
inline bool IsVisible(const xmlNode* node) {
  switch (node->type) {
    case XML_ELEMENT_NODE:
    case XML_TEXT_NODE:
    case XML_CDATA_SECTION_NODE:
    case XML_PI_NODE:
    case XML_COMMENT_NODE:
    case XML_ENTITY_REF_NODE:
      return true;
    default:
      return false;
  }
}
inline bool IsDocumentNode(const xmlNode* node) {
  return node->type == XML_DOCUMENT_NODE || node->type == XML_HTML_DOCUMENT_NODE;
}
inline bool HasChildList(const xmlNode* node) {
  return node->type == XML_ELEMENT_NODE || node->type == XML_DOCUMENT_NODE ||
         node->type == XML_HTML_DOCUMENT_NODE;
}
inline xmlNodePtr FirstVisible(xmlNodePtr node) {
  while (node != nullptr && !IsVisible(node)) node = node->next;
  return node;
}
inline xmlNodePtr FirstChild(const xmlNode* parent) {
  return HasChildList(parent) ? FirstVisible(parent->children) : nullptr;
}
inline xmlNodePtr NextVisible(const xmlNode* node) { return FirstVisible(node->next); }

int TypeOf(const xmlNode* node, const xmlNs* ns);
// Appends the qualified name of a node to out.
void AppendName(const xmlNode* node, const xmlNs* ns, std::string& out);
bool NameEquals(const xmlNode* node, const xmlNs* ns, std::string_view name);
// True when the element or a node below it is in the namespace ns.
bool NamespaceInUse(xmlNodePtr element, xmlNsPtr ns);

// ---- text rules (text.cpp) ---------------------------------------------------

// True when the bytes are UTF-8 made only of characters XML 1.0 can hold.
bool IsXmlText(std::string_view utf8);
// The engine writes a namespace declaration's value as it stands, without
// escapes: true when such a value reads back the same.
bool IsWritableNamespaceUri(std::string_view uri);
// True for a name createNode / createAttribute take: an XML name, with at
// most one colon that splits it into two non-empty parts.
bool IsQualifiedName(std::string_view name);
inline const xmlChar* X(const char* text) { return reinterpret_cast<const xmlChar*>(text); }
inline const char* C(const xmlChar* text) { return reinterpret_cast<const char*>(text); }
// A NUL-terminated copy for the engine; throws std::bad_alloc when memory runs out.
xmlChar* EngineString(std::string_view text);

// ---- access to the private parts of the public classes ----------------------

struct NodeAccess {
  static Node Make(xmlNodePtr node, xmlNsPtr ns = nullptr) {
    Node out;
    if (node != nullptr) {
      RefNode(node);
      if (ns != nullptr) RefNs(ns);
      out.m_node = node;
      out.m_ns = ns;
    }
    return out;
  }
  static xmlNodePtr Raw(const Node& node) { return node.m_node; }
  static xmlNsPtr Ns(const Node& node) { return node.m_ns; }
  static xmlDocPtr DocOf(const Document& document);
  static Document::Object* ObjectOf(const Document& document) { return document.m_object; }
  static void SetObject(Document& document, Document::Object* object) {
    document.reset();
    document.m_object = object;
  }
  static WeakCell* Cell(const WeakNode& weak);
};

}  // namespace tk::dom
