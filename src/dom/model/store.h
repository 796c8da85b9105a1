// The library's own document model: the nodes of one document as compact
// records in one array, names interned once per document, text in chunks
// owned by the document. No allocation per node.
//
// A record is 32 bytes whatever its kind. Links are indexes into the array
// (0 is "none"), so a document holds up to 2^32 - 1 nodes. The children of a
// node are a list through `next`; the first child's `prev` is the last child,
// so appending costs the same at any length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "dom/dom.h"

namespace tk::dom::model {

using NodeRef = uint32_t;  // a record of the store; 0 is none
using NameRef = uint32_t;  // a name of the store's table; 0 is none

// What a record is: one of the DOM's node types (kElement, kText, ...), or a
// namespace declaration, kept among the attributes.
using Kind = uint8_t;
inline constexpr Kind kDeclaration = 18;

// Text the record points at: where it lies and how long it is.
struct Slice {
  const char* data;
  uint32_t size;
  std::string_view view() const { return {data, size}; }
};

struct Record {
  Kind kind = kNone;
  uint8_t flags = 0;  // kUnescaped for text a transformation asked to keep as it is
  uint16_t spare = 0;
  NodeRef parent = 0;
  NodeRef prev = 0;  // of the first child: the last child
  NodeRef next = 0;
  union {
    struct {
      NodeRef first;    // first child
      NameRef local;    // the name after the prefix (the whole name when unbound)
      NodeRef ns;       // the declaration the prefix is bound to, or 0
      NodeRef attributes;  // declarations first, then attributes, through `next`
    } element;
    struct {
      const char* data;  // text, CDATA, comment; data of a processing instruction
      uint32_t size;
      NameRef target;  // a processing instruction's target
    } leaf;
    struct {
      const char* data;  // the value
      uint32_t size;
      NameRef local;
    } attribute;  // its declaration is in `prev`
    struct {
      NameRef prefix;  // 0 for the default namespace
      NameRef href;
    } declaration;
  } u{};
};
static_assert(sizeof(Record) == 32, "records stay 32 bytes");

inline std::string_view LeafText(const Record& r) { return {r.u.leaf.data, r.u.leaf.size}; }
inline std::string_view Value(const Record& r) { return {r.u.attribute.data, r.u.attribute.size}; }

constexpr uint8_t kUnescaped = 1;  // text written as it is, unescaped
constexpr uint8_t kNoData = 2;     // a comment or instruction without text (not empty text)

class Store {
 public:
  Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  // The document node, the parent of everything at the top.
  static constexpr NodeRef kDocumentRecord = 1;

  Record& at(NodeRef ref) { return m_blocks[ref >> kBlockShift][ref & kBlockMask]; }
  const Record& at(NodeRef ref) const { return m_blocks[ref >> kBlockShift][ref & kBlockMask]; }

  // A new record of the kind, in no list yet.
  NodeRef make(Kind kind);
  // Appends child at the end of parent's children.
  void appendChild(NodeRef parent, NodeRef child);
  // Appends an attribute or declaration at the end of the element's list.
  void appendAttribute(NodeRef element, NodeRef attribute);

  // The name's one copy in the table (the same ref for the same bytes).
  NameRef intern(std::string_view name);
  std::string_view name(NameRef ref) const { return m_names[ref]; }
  // A copy of text in the store's chunks, followed by a NUL.
  Slice keep(std::string_view text);
  // Text that arrives in pieces, kept as it comes: the pieces are written
  // where the text will stay (moved once to a larger chunk when they outgrow
  // the room left). No other text may be kept until it is closed.
  void openText();
  void addText(std::string_view piece);
  size_t openTextSize() const { return m_openSize; }
  Slice closeText();

  // Bytes the store holds: records, names, text chunks.
  size_t bytes() const;

 private:
  void newChunk(size_t size);
  // Records live in blocks that never move, so a growing document copies
  // none of them.
  static constexpr unsigned kBlockShift = 12;
  static constexpr size_t kBlockSize = size_t{1} << kBlockShift;
  static constexpr NodeRef kBlockMask = (NodeRef{1} << kBlockShift) - 1;
  static constexpr size_t kFirstRecords = 64;
  size_t m_firstCapacity = 0;  // of the first block, which grows up to kBlockSize
  std::vector<std::unique_ptr<Record[]>> m_blocks;
  size_t m_count = 0;  // records made, [0] included
  std::vector<std::string_view> m_names;  // [0] is the empty name
  std::unordered_map<std::string_view, NameRef> m_nameIndex;
  std::vector<std::unique_ptr<char[]>> m_chunks;
  std::vector<size_t> m_chunkSizes;
  char* m_free = nullptr;  // the unused tail of the newest regular chunk
  size_t m_freeSize = 0;
  size_t m_openSize = 0;  // bytes of the open text, at m_free
  size_t m_textBytes = 0;
};

}  // namespace tk::dom::model
