// Reference counting of nodes and documents.
//
// Each node keeps in its _private field the number of counted references to
// it and the number of its children (attributes included) whose subtree holds
// a reference: its "pinned children". A node's subtree is pinned while either
// is non-zero. Only a change between pinned and unpinned travels to the
// parent, and it stops at the first ancestor whose own state stays as it was
// and at the document node, so a release costs O(1) unless it unpins a whole
// chain. Each document keeps a control block (DocBlock) in its own _private
// field that sums the references to all nodes whose doc it is, plus the
// Document objects holding it. A subtree that no document holds (removed,
// or never inserted) is freed when its top stops being pinned; a document is
// freed when neither a holder nor a reference remains, so the names and
// dictionary a surviving node uses are never freed under it.
//
// A namespace declaration seen as an attribute is named by its element and
// itself; it counts the Nodes naming it in its own _private field. One taken
// off its element is freed as soon as none does, so that declaring and
// removing a prefix over and over leaves nothing behind.
#include <new>

#include "dom/internal.h"

namespace tk::dom {
namespace {

// The low half of the word counts references, the high half pinned children.
static_assert(sizeof(uintptr_t) >= 8, "the pin word packs two 32-bit counts");
constexpr uintptr_t kOwnMask = 0xFFFFFFFFu;
constexpr uintptr_t kChildUnit = uintptr_t{1} << 32;

uintptr_t WordOf(const xmlNode* node) { return reinterpret_cast<uintptr_t>(node->_private); }
void SetWord(xmlNodePtr node, uintptr_t word) { node->_private = reinterpret_cast<void*>(word); }
uintptr_t CountOf(const xmlNode* node) { return WordOf(node) & kOwnMask; }

// Calls visit on every node of a subtree (the node, its attributes and its
// children, depth first) until visit returns true; returns that answer.
template <typename Visit>
bool AnyInSubtree(xmlNodePtr top, Visit visit) {
  xmlNodePtr node = top;
  while (node != nullptr) {
    if (visit(node)) return true;
    if (node->type == XML_ELEMENT_NODE) {
      for (xmlAttrPtr attr = node->properties; attr != nullptr; attr = attr->next) {
        if (visit(reinterpret_cast<xmlNodePtr>(attr))) return true;
      }
    }
    if (node->type == XML_ELEMENT_NODE && node->children != nullptr) {
      node = node->children;
      continue;
    }
    while (node != top && node->next == nullptr) node = node->parent;
    if (node == top) break;
    node = node->next;
  }
  return false;
}

bool IsWithin(const xmlNode* node, const xmlNode* top) {
  for (; node != nullptr; node = node->parent) {
    if (node == top) return true;
  }
  return false;
}

void UnlinkCell(DocBlock* block, WeakCell* cell) {
  if (cell->prev != nullptr) cell->prev->next = cell->next;
  else block->cells = cell->next;
  if (cell->next != nullptr) cell->next->prev = cell->prev;
  cell->prev = cell->next = nullptr;
  cell->block = nullptr;
}

void LinkCell(DocBlock* block, WeakCell* cell) {
  cell->block = block;
  cell->prev = nullptr;
  cell->next = block->cells;
  if (block->cells != nullptr) block->cells->prev = cell;
  block->cells = cell;
}

// A namespace declaration's _private word counts the Nodes that name it, in
// steps of kNsUnit; the low bit marks one taken off its element, which goes
// when the last of those Nodes does. No other list keeps it.
constexpr uintptr_t kNsReleased = 1;
constexpr uintptr_t kNsUnit = 2;

uintptr_t NsWordOf(const xmlNs* ns) { return reinterpret_cast<uintptr_t>(ns->_private); }
void SetNsWord(xmlNsPtr ns, uintptr_t word) { ns->_private = reinterpret_cast<void*>(word); }

// Frees a declaration no element holds; weak cells naming it are cleared.
void FreeNs(DocBlock* block, xmlNsPtr ns) {
  for (WeakCell* cell = block->cells; cell != nullptr;) {
    WeakCell* next = cell->next;
    if (cell->ns == ns) {
      UnlinkCell(block, cell);
      cell->node = nullptr;
      cell->ns = nullptr;
    }
    cell = next;
  }
  xmlFreeNs(ns);
}

void FreeSubtree(DocBlock* block, xmlNodePtr top) {
  for (WeakCell* cell = block->cells; cell != nullptr;) {
    WeakCell* next = cell->next;
    if (IsWithin(cell->node, top)) {
      UnlinkCell(block, cell);
      cell->node = nullptr;
      cell->ns = nullptr;
    }
    cell = next;
  }
  // An attribute's subtree holds no node a child list can name.
  if (top->type != XML_ATTRIBUTE_NODE) ShapeChanged(block);
  if (top->type == XML_ATTRIBUTE_NODE) {
    xmlFreeProp(reinterpret_cast<xmlAttrPtr>(top));
  } else {
    xmlFreeNode(top);
  }
}

// A child of parent became pinned: the change travels up while it changes
// an ancestor's state.
void ChildPinned(xmlNodePtr parent) {
  for (xmlNodePtr node = parent; node != nullptr && !IsDocumentNode(node); node = node->parent) {
    const uintptr_t word = WordOf(node);
    SetWord(node, word + kChildUnit);
    if (word != 0) return;  // it was pinned already: nothing changes above
  }
}

// A child of parent stopped being pinned; a top of no document that ends up
// unpinned is freed with its subtree.
void ChildUnpinned(xmlNodePtr parent) {
  for (xmlNodePtr node = parent; node != nullptr && !IsDocumentNode(node); node = node->parent) {
    const uintptr_t word = WordOf(node) - kChildUnit;
    SetWord(node, word);
    if (word != 0) return;  // still pinned: nothing changes above
    if (node->parent == nullptr) {
      FreeSubtree(BlockOf(node->doc), node);
      return;
    }
  }
}

}  // namespace

DocBlock* BlockOf(xmlDocPtr doc) {
  auto* block = static_cast<DocBlock*>(doc->_private);
  if (block == nullptr) {
    static std::atomic<uint64_t> s_lastId{0};
    block = new DocBlock;
    block->doc = doc;
    block->id = s_lastId.fetch_add(1, std::memory_order_relaxed) + 1;
    doc->_private = block;
  }
  return block;
}

void AdoptDocument(xmlDocPtr doc) {
  // Serialisation writes characters outside ASCII as they are (also in
  // attribute values) only when the document names an encoding.
  if (doc->encoding == nullptr || !xmlStrEqual(doc->encoding, X("UTF-8"))) {
    xmlChar* utf8 = xmlStrdup(X("UTF-8"));
    if (utf8 == nullptr) throw std::bad_alloc();
    if (doc->encoding != nullptr) xmlFree(const_cast<xmlChar*>(doc->encoding));
    doc->encoding = utf8;
  }
  BlockOf(doc);  // last: when it throws, there is no block to undo
}

void RefNode(xmlNodePtr node) {
  DocBlock* block = BlockOf(node->doc != nullptr ? node->doc : reinterpret_cast<xmlDocPtr>(node));
  ++block->refs;
  if (IsDocumentNode(node)) return;
  const uintptr_t word = WordOf(node);
  SetWord(node, word + 1);
  if (word == 0 && node->parent != nullptr) ChildPinned(node->parent);
}

void UnrefNode(xmlNodePtr node) {
  if (IsDocumentNode(node)) {
    DocBlock* block = BlockOf(reinterpret_cast<xmlDocPtr>(node));
    --block->refs;
    FreeDocumentIfUnused(block);
    return;
  }
  DocBlock* block = BlockOf(node->doc);
  const uintptr_t word = WordOf(node) - 1;
  SetWord(node, word);
  --block->refs;
  if (word == 0) {
    if (node->parent != nullptr) ChildUnpinned(node->parent);
    else FreeSubtree(block, node);
  }
  FreeDocumentIfUnused(block);
}

void HoldDocument(xmlDocPtr doc) { ++BlockOf(doc)->holders; }

void ReleaseDocument(xmlDocPtr doc) {
  DocBlock* block = BlockOf(doc);
  --block->holders;
  FreeDocumentIfUnused(block);
}

bool InDocumentTree(xmlNodePtr node) {
  while (node->parent != nullptr) node = node->parent;
  return IsDocumentNode(node);
}

void FreeIfUnpinned(xmlNodePtr top) {
  if (IsDocumentNode(top) || top->parent != nullptr || WordOf(top) != 0) return;
  FreeSubtree(BlockOf(top->doc), top);
}

void Linked(xmlNodePtr node) {
  if (node->parent != nullptr && !IsDocumentNode(node) && WordOf(node) != 0) {
    ChildPinned(node->parent);
  }
}

void Unlinked(xmlNodePtr node, xmlNodePtr oldParent) {
  if (oldParent != nullptr && !IsDocumentNode(node) && WordOf(node) != 0) ChildUnpinned(oldParent);
}

void TransferSubtree(xmlNodePtr top, DocBlock* from, DocBlock* to) {
  if (from == to) return;
  AnyInSubtree(top, [&](xmlNodePtr n) {
    const long count = static_cast<long>(CountOf(n));  // own references only
    from->refs -= count;
    to->refs += count;
    return false;
  });
  for (WeakCell* cell = from->cells; cell != nullptr;) {
    WeakCell* next = cell->next;
    if (IsWithin(cell->node, top)) {
      UnlinkCell(from, cell);
      LinkCell(to, cell);
    }
    cell = next;
  }
}

void FreeDocumentIfUnused(DocBlock* block) {
  if (block->refs != 0 || block->holders != 0) return;
  for (WeakCell* cell = block->cells; cell != nullptr;) {
    WeakCell* next = cell->next;
    cell->node = nullptr;
    cell->ns = nullptr;
    cell->prev = cell->next = nullptr;
    cell->block = nullptr;
    cell = next;
  }
  xmlDocPtr doc = block->doc;
  doc->_private = nullptr;
  delete block;
  xmlFreeDoc(doc);
}

void RefNs(xmlNsPtr ns) { SetNsWord(ns, NsWordOf(ns) + kNsUnit); }

void UnrefNs(xmlNodePtr element, xmlNsPtr ns) {
  const uintptr_t word = NsWordOf(ns) - kNsUnit;
  SetNsWord(ns, word);
  if (word == kNsReleased) FreeNs(BlockOf(element->doc), ns);
}

void ReleaseNs(xmlNodePtr element, xmlNsPtr ns) {
  ns->next = nullptr;
  if (NsWordOf(ns) == 0) {
    FreeNs(BlockOf(element->doc), ns);
  } else {
    SetNsWord(ns, NsWordOf(ns) | kNsReleased);
  }
}

void LinkWeakCell(WeakCell* cell, xmlNodePtr node, xmlNsPtr ns) {
  cell->node = node;
  cell->ns = ns;
  xmlDocPtr doc = node->doc != nullptr ? node->doc : reinterpret_cast<xmlDocPtr>(node);
  LinkCell(BlockOf(doc), cell);
}

void UnlinkWeakCell(WeakCell* cell) {
  if (cell->block != nullptr) UnlinkCell(cell->block, cell);
  cell->node = nullptr;
  cell->ns = nullptr;
}

}  // namespace tk::dom
