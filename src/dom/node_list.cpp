// The live child list. Each thread remembers the last position it reached
// in one list (and that list's length); the memory is valid only while the
// tree stamp has not moved, so any change or free anywhere discards it. An
// ascending walk over n children thus costs O(n) in all.
#include "dom/internal.h"

namespace tk::dom {
namespace {

struct ListCache {
  uint64_t stamp = 0;
  const xmlNode* parent = nullptr;
  int32_t index = -1;
  xmlNodePtr node = nullptr;
  uint64_t lengthStamp = 0;
  const xmlNode* lengthParent = nullptr;
  int32_t length = 0;
};
thread_local ListCache t_cache;

}  // namespace

int NodeList::get_length(int32_t& length) const {
  length = 0;
  xmlNodePtr parent = NodeAccess::Raw(m_parent);
  if (parent == nullptr) return kInvalidArg;
  if (NodeAccess::Ns(m_parent) != nullptr) return kOk;
  const uint64_t stamp = TreeStamp();
  ListCache& cache = t_cache;
  if (cache.lengthStamp == stamp && cache.lengthParent == parent) {
    length = cache.length;
    return kOk;
  }
  int32_t count = 0;
  for (xmlNodePtr child = FirstChild(parent); child != nullptr; child = NextVisible(child)) {
    ++count;
  }
  cache.lengthStamp = stamp;
  cache.lengthParent = parent;
  cache.length = count;
  length = count;
  return kOk;
}

int NodeList::get_item(int32_t index, Node& out) const {
  out.reset();
  xmlNodePtr parent = NodeAccess::Raw(m_parent);
  if (parent == nullptr) return kInvalidArg;
  if (index < 0 || NodeAccess::Ns(m_parent) != nullptr) return kFalse;
  const uint64_t stamp = TreeStamp();
  ListCache& cache = t_cache;
  int32_t at = 0;
  xmlNodePtr node = nullptr;
  if (cache.stamp == stamp && cache.parent == parent && cache.index >= 0 && cache.index <= index) {
    at = cache.index;
    node = cache.node;
  } else {
    node = FirstChild(parent);
  }
  while (node != nullptr && at < index) {
    node = NextVisible(node);
    ++at;
  }
  if (node == nullptr) return kFalse;
  cache.stamp = stamp;
  cache.parent = parent;
  cache.index = index;
  cache.node = node;
  out = NodeAccess::Make(node);
  // Lists are mostly walked in ascending order: the next child starts
  // loading now rather than when it is asked for.
  if (node->next != nullptr) NodePtr(node->next).prefetch();
  return kOk;
}

}  // namespace tk::dom
