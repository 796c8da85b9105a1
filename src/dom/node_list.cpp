// The live child list. The document of the list's parent keeps the last
// positions reached in a few of its lists, and each list's length once
// counted; they hold while none of that document's child lists has changed
// and none of its nodes has been freed (attribute and value changes leave
// them standing). An item is reached from the nearest of the first child, a
// known position and the last child, so a walk over n children in either
// direction costs O(n) in all, whatever happens in between to other
// documents, to attributes and values, or to a few other lists walked at the
// same time (nested walks included).
#include "dom/internal.h"

namespace tk::dom {
namespace {

xmlNodePtr LastVisible(xmlNodePtr node) {
  while (node != nullptr && !IsVisible(node)) node = node->prev;
  return node;
}

// The hint for parent's list: the one it already has, else the stalest one,
// made over for it.
ChildHint& HintFor(const xmlNode* parent) {
  DocBlock* block = BlockOfNode(parent);
  ChildHint* oldest = nullptr;
  uint64_t oldestUse = UINT64_MAX;
  for (ChildHint& hint : block->hints) {
    const bool valid = hint.shape == block->shape;
    if (valid && hint.parent == parent) {
      hint.used = ++block->hintClock;
      return hint;
    }
    const uint64_t use = valid ? hint.used : 0;
    if (use < oldestUse) {
      oldest = &hint;
      oldestUse = use;
    }
  }
  *oldest = ChildHint{};
  oldest->parent = parent;
  oldest->shape = block->shape;
  oldest->used = ++block->hintClock;
  return *oldest;
}

int32_t Distance(int32_t a, int32_t b) { return a < b ? b - a : a - b; }

}  // namespace

int NodeList::get_length(int32_t& length) const {
  length = 0;
  xmlNodePtr parent = NodeAccess::Raw(m_parent);
  if (parent == nullptr) return kInvalidArg;
  if (NodeAccess::Ns(m_parent) != nullptr || !HasChildList(parent)) return kOk;
  ChildHint& hint = HintFor(parent);
  if (hint.length < 0) {
    int32_t count = 0;
    for (xmlNodePtr child = FirstChild(parent); child != nullptr; child = NextVisible(child)) {
      ++count;
    }
    hint.length = count;
  }
  length = hint.length;
  return kOk;
}

int NodeList::get_item(int32_t index, Node& out) const {
  out.reset();
  xmlNodePtr parent = NodeAccess::Raw(m_parent);
  if (parent == nullptr) return kInvalidArg;
  if (index < 0 || NodeAccess::Ns(m_parent) != nullptr || !HasChildList(parent)) return kFalse;
  ChildHint& hint = HintFor(parent);
  if (hint.length >= 0 && index >= hint.length) return kFalse;
  int32_t at = 0;
  xmlNodePtr node = FirstChild(parent);
  if (hint.node != nullptr && Distance(hint.index, index) < index) {
    at = hint.index;
    node = hint.node;
  }
  if (hint.length > 0 && hint.length - 1 - index < Distance(at, index)) {
    at = hint.length - 1;
    node = LastVisible(parent->last);
  }
  while (node != nullptr && at < index) {
    node = NextVisible(node);
    ++at;
  }
  while (node != nullptr && at > index) {
    node = LastVisible(node->prev);
    --at;
  }
  if (node == nullptr) return kFalse;
  hint.index = index;
  hint.node = node;
  out = NodeAccess::Make(node);
  // Lists are mostly walked in ascending order: the next child starts
  // loading now rather than when it is asked for.
  if (node->next != nullptr) NodePtr(node->next).prefetch();
  return kOk;
}

}  // namespace tk::dom
