#include "dom/model/store.h"

#include <algorithm>
#include <cstring>

namespace tk::dom::model {
namespace {

// Text goes into chunks of this size; a text larger than a quarter of one
// gets a chunk of its own, so little of a chunk is ever left unused.
constexpr size_t kChunk = size_t{64} << 10;
constexpr size_t kFirstChunk = size_t{1} << 10;

}  // namespace

Store::Store() {
  make(kNone);  // [0] is no node
  make(kDocumentNode);
  m_names.emplace_back();
}

NodeRef Store::make(Kind kind) {
  if (m_count == m_firstCapacity && m_count < kBlockSize) {
    // The first block starts small and doubles, so that a small document
    // takes little; it is the only block that ever moves.
    const size_t capacity = m_firstCapacity == 0 ? kFirstRecords : 2 * m_firstCapacity;
    std::unique_ptr<Record[]> grown(new Record[capacity]);
    if (m_count != 0) std::copy(m_blocks[0].get(), m_blocks[0].get() + m_count, grown.get());
    if (m_blocks.empty()) {
      m_blocks.push_back(std::move(grown));
    } else {
      m_blocks[0] = std::move(grown);
    }
    m_firstCapacity = capacity;
  } else if ((m_count & kBlockMask) == 0 && m_count >= kBlockSize) {
    m_blocks.emplace_back(new Record[kBlockSize]);
  }
  const auto ref = static_cast<NodeRef>(m_count++);
  Record& record = at(ref);
  record = Record();
  record.kind = kind;
  return ref;
}

void Store::appendChild(NodeRef parent, NodeRef child) {
  Record& p = at(parent);
  Record& c = at(child);
  c.parent = parent;
  c.next = 0;
  if (p.u.element.first == 0) {
    p.u.element.first = child;
    c.prev = child;
    return;
  }
  Record& first = at(p.u.element.first);
  at(first.prev).next = child;
  c.prev = first.prev;
  first.prev = child;
}

void Store::appendAttribute(NodeRef element, NodeRef attribute) {
  Record& a = at(attribute);
  a.parent = element;
  a.next = 0;
  NodeRef* link = &at(element).u.element.attributes;
  while (*link != 0) link = &at(*link).next;
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
    if (need > m_freeSize) newChunk(need);
    place = m_free;
    m_free += need;
    m_freeSize -= need;
  }
  if (!text.empty()) std::memcpy(place, text.data(), text.size());
  place[text.size()] = '\0';
  m_textBytes += need;
  return Slice{place, static_cast<uint32_t>(text.size())};
}

void Store::newChunk(size_t size) {
  // Chunks start small and double up to their full size.
  const size_t regular = std::min(kChunk, kFirstChunk << std::min<size_t>(m_chunks.size(), 8));
  size = std::max(size, regular);
  m_chunks.emplace_back(new char[size]);
  m_chunkSizes.push_back(size);
  m_free = m_chunks.back().get();
  m_freeSize = size;
}

void Store::openText() { m_openSize = 0; }

void Store::addText(std::string_view piece) {
  const size_t need = m_openSize + piece.size() + 1;
  if (need > m_freeSize) {
    // Room for the text twice over, so that a long text moves only a few
    // times; the tail left behind takes later small texts.
    const char* const from = m_free;
    newChunk(2 * need);
    if (m_openSize != 0) std::memcpy(m_free, from, m_openSize);
  }
  std::memcpy(m_free + m_openSize, piece.data(), piece.size());
  m_openSize += piece.size();
}

Slice Store::closeText() {
  if (m_freeSize == 0) newChunk(1);
  m_free[m_openSize] = '\0';
  const Slice text{m_free, static_cast<uint32_t>(m_openSize)};
  m_free += m_openSize + 1;
  m_freeSize -= m_openSize + 1;
  m_textBytes += m_openSize + 1;
  m_openSize = 0;
  return text;
}

size_t Store::bytes() const {
  size_t chunks = 0;
  for (size_t size : m_chunkSizes) chunks += size;
  const size_t records =
      m_blocks.empty() ? 0 : m_firstCapacity + (m_blocks.size() - 1) * kBlockSize;
  return records * sizeof(Record) + chunks +
         m_names.capacity() * sizeof(std::string_view) +
         m_nameIndex.size() * (sizeof(std::string_view) + sizeof(NameRef) + 2 * sizeof(void*));
}

}  // namespace tk::dom::model
