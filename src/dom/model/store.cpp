#include "dom/model/store.h"

#include <cstring>

namespace tk::dom::model {
namespace {

// Text goes into chunks of this size; a text larger than a quarter of one
// gets a chunk of its own, so little of a chunk is ever left unused.
constexpr size_t kChunk = size_t{64} << 10;

}  // namespace

Store::Store() {
  m_records.resize(2);  // [0] is no node, [1] the document
  m_records[kDocumentRecord].kind = Kind::kDocument;
  m_names.emplace_back();
}

NodeRef Store::make(Kind kind) {
  m_records.emplace_back();
  m_records.back().kind = kind;
  return static_cast<NodeRef>(m_records.size() - 1);
}

NodeRef Store::lastChild(NodeRef parent) const {
  const NodeRef first = m_records[parent].u.element.first;
  return first == 0 ? 0 : m_records[first].prev;
}

void Store::appendChild(NodeRef parent, NodeRef child) {
  Record& p = m_records[parent];
  Record& c = m_records[child];
  c.parent = parent;
  c.next = 0;
  if (p.u.element.first == 0) {
    p.u.element.first = child;
    c.prev = child;
    return;
  }
  Record& first = m_records[p.u.element.first];
  m_records[first.prev].next = child;
  c.prev = first.prev;
  first.prev = child;
}

void Store::appendAttribute(NodeRef element, NodeRef attribute) {
  Record& a = m_records[attribute];
  a.parent = element;
  a.next = 0;
  NodeRef* link = &m_records[element].u.element.attributes;
  while (*link != 0) link = &m_records[*link].next;
  *link = attribute;
}

NameRef Store::intern(std::string_view name) {
  const auto found = m_nameIndex.find(name);
  if (found != m_nameIndex.end()) return found->second;
  const Slice copy = keep(name);
  const auto ref = static_cast<NameRef>(m_names.size());
  m_names.push_back(copy.view());
  m_nameIndex.emplace(copy.view(), ref);
  return ref;
}

Slice Store::keep(std::string_view text) {
  const size_t need = text.size() + 1;
  char* place;
  if (need > kChunk / 4) {
    m_chunks.emplace_back(new char[need]);
    m_chunkSizes.push_back(need);
    place = m_chunks.back().get();
  } else {
    if (need > m_freeSize) {
      m_chunks.emplace_back(new char[kChunk]);
      m_chunkSizes.push_back(kChunk);
      m_free = m_chunks.back().get();
      m_freeSize = kChunk;
    }
    place = m_free;
    m_free += need;
    m_freeSize -= need;
  }
  if (!text.empty()) std::memcpy(place, text.data(), text.size());
  place[text.size()] = '\0';
  m_textBytes += need;
  return Slice{place, static_cast<uint32_t>(text.size())};
}

size_t Store::bytes() const {
  size_t chunks = 0;
  for (size_t size : m_chunkSizes) chunks += size;
  return m_records.capacity() * sizeof(Record) + chunks +
         m_names.capacity() * sizeof(std::string_view) +
         m_nameIndex.size() * (sizeof(std::string_view) + sizeof(NameRef) + 2 * sizeof(void*));
}

}  // namespace tk::dom::model
