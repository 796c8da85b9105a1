// Removing an attribute by name, and reading attributes by position.
//
// Positions follow the element's live attribute map, namespace declarations
// included. Nothing is remembered between calls: the client names the
// position each time, and a successful read hands back the attribute count
// in place of the position.
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "document/codepage.h"
#include "document/textconv.h"
#include "elements/path.h"
#include "frame/ctreekeeper.h"
#include "frame/debug_output.h"

namespace tk {
namespace {

// The common first part of both listing forms: finds the element, checks the
// position against the attribute count and fetches the attribute there.
// Returns 0 with attr and count set, or the operation's result; *ioIndex is
// written only where the position lies past the end.
int FindAttributeAt(const ElementTable& table, unsigned handle, const char* path,
                    unsigned* ioIndex, dom::Node& attr, uint32_t& count) {
  const dom::Node* start = table.live(handle);
  if (start == nullptr) {
    Report("EnumAttribute: element handle is invalid");
    return -6;
  }
  const dom::Node node = WalkPath(*start, path);
  if (!node) {
    Report("EnumAttribute: element path is invalid");
    return -102;
  }
  dom::AttrMap map;
  if (node.get_attributes(map) < 0 || !map) return -1;
  int32_t length = 0;
  if (map.get_length(length) < 0 || length < 0) return -1;
  if (ioIndex == nullptr) return -1;

  count = static_cast<uint32_t>(length);
  if (count == 0) {
    *ioIndex = 0;
    return -110;
  }
  if (*ioIndex >= count) {
    *ioIndex = count;
    return -110;
  }
  if (map.get_item(static_cast<int32_t>(*ioIndex), attr) < 0 || !attr) return -1;
  return 0;
}

}  // namespace

int CTreeKeeper::DeleteAttribute(unsigned handle, const char* path, const char* name) {
  LockGuard guard(m_lock);
  const dom::Node* start = m_table.live(handle);
  if (start == nullptr) {
    Report("DeleteAttribute: element handle is invalid");
    return -6;
  }
  // The name is checked before the path is followed, so a call with both
  // wrong is told about the name.
  if (name == nullptr) {
    Report("DeleteAttribute: attribute name is invalid");
    return -103;
  }
  const dom::Node node = WalkPath(*start, path);
  if (!node) {
    Report("DeleteAttribute: element path is invalid");
    return -102;
  }
  std::string domName;
  if (AnsiToWide(name, domName) != 0) return -1;

  dom::AttrMap map;
  if (node.get_attributes(map) < 0 || !map) return -1;
  dom::Node removed;
  if (map.removeNamedItem(domName, removed) < 0 || !removed) return -1;
  return 0;
}

int CTreeKeeper::EnumAttribute(unsigned handle, const char* path, unsigned* ioIndex, char* buffer,
                               unsigned* ioSize) {
  LockGuard guard(m_lock);
  dom::Node attr;
  uint32_t count = 0;
  const int found = FindAttributeAt(m_table, handle, path, ioIndex, attr, count);
  if (found != 0) return found;

  std::string domValue;
  if (attr.get_nodeValue(domValue) < 0) return -1;
  std::string scratch;
  const std::string_view narrow = DomToAnsi(domValue, scratch);
  const size_t length = narrow.size();

  *ioIndex = count;
  // On success the capacity the caller gave stays in *ioSize.
  if (buffer != nullptr && ioSize != nullptr && *ioSize > length) {
    narrow.copy(buffer, length);
    buffer[length] = '\0';
    return 0;
  }
  if (ioSize != nullptr) *ioSize = static_cast<unsigned>(length + 1);
  return -105;
}

int CTreeKeeper::EnumAttribute(unsigned handle, const char* path, unsigned* ioIndex,
                               outputstr& name, outputstr& value, unsigned codePage) {
  LockGuard guard(m_lock);
  dom::Node attr;
  uint32_t count = 0;
  const int found = FindAttributeAt(m_table, handle, path, ioIndex, attr, count);
  if (found != 0) return found;

  // The name always comes back in the default code page; only the value
  // follows codePage.
  std::string domName;
  if (attr.get_nodeName(domName) < 0) return -1;
  std::string scratch;
  const std::string narrowName(DomToAnsi(domName, scratch));
  name.clear();
  name.append(narrowName.c_str());

  std::string domValue;
  if (attr.get_nodeValue(domValue) < 0) return -1;
  const int needed = cp::DomToNarrow(codePage, 0, domValue, nullptr, 0);
  if (needed <= 0) {
    value.clear();
    return static_cast<int>(cp::GetLastError());
  }
  // A conversion block that can't be had is reported by result, like a
  // refused code page, rather than as a fault.
  const std::unique_ptr<char[]> block(new (std::nothrow) char[needed]);
  if (!block) {
    cp::SetLastError(cp::kErrorNotEnoughMemory);
    value.clear();
    return static_cast<int>(cp::GetLastError());
  }
  block[0] = '\0';
  cp::DomToNarrow(codePage, 0, domValue, block.get(), needed);
  value.clear();
  value.append(block.get());
  *ioIndex = count;
  return 0;
}

}  // namespace tk
