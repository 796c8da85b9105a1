// The element table: the open handles of an instance. Handle = index + 100;
// index 0 is the root. Entries are only ever appended; a closed slot is a null
// entry. The length is mirrored in an atomic so GetHandleCount can read it
// without the instance lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "dom/dom.h"

namespace tk {

class ElementTable {
 public:
  static constexpr unsigned kRootHandle = 100;

  uint64_t length() const { return m_length.load(std::memory_order_relaxed); }
  bool empty() const { return m_entries.empty(); }

  // In range: handle - 100, in unsigned 32-bit arithmetic, below the length.
  bool inRange(unsigned handle) const {
    return static_cast<uint32_t>(handle - kRootHandle) < m_entries.size();
  }
  // The node of a live handle (in range and not closed), else null.
  const dom::Node* live(unsigned handle) const {
    if (!inRange(handle)) return nullptr;
    const dom::Node& entry = m_entries[handle - kRootHandle];
    return entry ? &entry : nullptr;
  }
  // Entry of an in-range handle; null node for a closed slot.
  const dom::Node& entry(unsigned handle) const { return m_entries[handle - kRootHandle]; }
  const dom::Node& first() const { return m_entries.front(); }

  // Appends the node and returns its new handle.
  unsigned append(dom::Node node) {
    m_entries.push_back(std::move(node));
    publish();
    return static_cast<unsigned>(m_entries.size() - 1) + kRootHandle;
  }
  // Closes an in-range handle: the last entry is removed, any other becomes a
  // closed slot. The reference it held is released.
  void close(unsigned handle) {
    const size_t index = handle - kRootHandle;
    if (index + 1 == m_entries.size()) {
      dom::Node released = std::move(m_entries.back());
      m_entries.pop_back();
      publish();
    } else {
      m_entries[index].reset();
    }
  }
  // Releases every entry from the last to the first and empties the table;
  // its storage stays for the next document.
  void releaseAll() {
    for (size_t i = m_entries.size(); i-- > 0;) m_entries[i].reset();
    m_entries.clear();
    publish();
  }
  // Removes trailing closed slots while two or more entries remain.
  void trimTrailingClosed() {
    while (m_entries.size() >= 2 && !m_entries.back()) m_entries.pop_back();
    publish();
  }

 private:
  void publish() { m_length.store(m_entries.size(), std::memory_order_relaxed); }

  std::vector<dom::Node> m_entries;
  std::atomic<uint64_t> m_length{0};
};

}  // namespace tk
