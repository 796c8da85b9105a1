// Reading and writing one attribute's value, named by handle, path and
// attribute name. Text crosses as UTF-8 both ways. Note the encodings of the
// name: a read takes it in the default code page, a write in UTF-8.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "content/value_text.h"
#include "document/codepage.h"
#include "document/textconv.h"
#include "elements/path.h"
#include "frame/ctreekeeper.h"
#include "frame/debug_output.h"

namespace tk {
namespace {

constexpr unsigned kNumberSize = 4;

// All-digit text as an unsigned 32-bit number; too many for 32 bits gives
// 0xFFFFFFFF, as a saturating strtoul would.
uint32_t DecimalToNumber(std::string_view digits) {
  uint64_t number = 0;
  for (const char digit : digits) {
    number = number * 10 + static_cast<unsigned>(digit - '0');
    if (number > UINT32_MAX) return UINT32_MAX;
  }
  return static_cast<uint32_t>(number);
}

int ReadNumber(const std::string& domValue, unsigned* size, void* buffer) {
  // The capacity is checked first: a short buffer hears -105 whatever the
  // value holds.
  if (buffer == nullptr || *size < kNumberSize) {
    *size = kNumberSize;
    return -105;
  }
  std::string scratch;
  const std::string narrow(DomToAnsi(domValue, scratch));
  *size = kNumberSize;
  if (narrow.empty()) return -108;
  if (IsDecimalText(narrow.c_str()) == 0) return -104;  // buffer left as it was
  const uint32_t number = DecimalToNumber(narrow);
  std::memcpy(buffer, &number, sizeof number);
  return 0;
}

int ReadBinary(const std::string& domValue, unsigned* size, void* buffer) {
  std::string scratch;
  const std::string narrow(DomToAnsi(domValue, scratch));
  const size_t digits = narrow.size();
  const uint64_t needed = (digits >> 1) + (digits & 1);
  if (buffer == nullptr || needed > *size) {
    *size = static_cast<unsigned>(needed);
    return -105;
  }
  if (digits == 0) {
    *size = 0;
    return 0;
  }
  // A bad digit leaves the bytes decoded so far, a 0 where it stood, and -104.
  const int decoded = HexTextToBytes(static_cast<unsigned char*>(buffer), narrow.c_str());
  *size = static_cast<unsigned>(needed);
  return decoded != 0 ? 0 : -104;
}

// A text the conversion can't measure (0) reads as empty, which still takes
// a byte for its terminator.
int ReadText(const std::string& domValue, unsigned* size, void* buffer) {
  const int needed = cp::DomToNarrow(cp::kUtf8, 0, domValue, nullptr, 0);
  const unsigned neededSize = needed > 0 ? static_cast<unsigned>(needed) : 0;
  if (buffer == nullptr || *size < neededSize || *size == 0) {
    *size = neededSize;
    return -105;
  }
  char* text = static_cast<char*>(buffer);
  if (needed == 0) {
    text[0] = '\0';
    *size = 1;
    return 0;
  }
  cp::DomToNarrow(cp::kUtf8, 0, domValue, text, needed);
  *size = static_cast<unsigned>(needed);
  return 0;
}

}  // namespace

int CTreeKeeper::GetAttributeValue(unsigned handle, const char* path, const char* name, int type,
                                   unsigned* size, void* buffer) {
  LockGuard guard(m_lock);
  const dom::Node* start = m_table.live(handle);
  if (start == nullptr) return -6;
  const dom::Node node = WalkPath(*start, path);
  if (!node) {
    Report("GetAttributeValue: element path is invalid");
    return -102;
  }
  // The name is in the default code page here; a null name finds nothing.
  std::string domName;
  const bool haveName = AnsiToWideOrFault(name, domName);

  dom::AttrMap map;
  if (node.get_attributes(map) < 0 || !map) return -1;
  if (!haveName) return -1;
  dom::Node attr;
  if (map.getNamedItem(domName, attr) < 0 || !attr) return -1;
  std::string domValue;
  if (attr.get_nodeValue(domValue) < 0) return -1;
  if (size == nullptr) return -1;

  switch (type) {
    case TK_VALUE_NUMBER:
      return ReadNumber(domValue, size, buffer);
    case TK_VALUE_BINARY:
      return ReadBinary(domValue, size, buffer);
    default:
      return ReadText(domValue, size, buffer);
  }
}

int CTreeKeeper::setAttributeValue(unsigned handle, const char* path, const char* name, int type,
                                   unsigned size, const void* data) {
  LockGuard guard(m_lock);
  if (!m_table.inRange(handle)) return -6;
  const dom::Node& start = m_table.entry(handle);
  if (!start) {
    Report("setAttributeValue: element handle is invalid");
    return -6;
  }
  // A write never makes an element: the path has to name one already.
  const dom::Node node = WalkPath(start, path);
  if (!node) {
    Report("setAttributeValue: element path is invalid");
    return -102;
  }
  // Text is read up to its NUL; size counts only for byte strings.
  std::string valueText;
  if (BuildValueText(type, size, data, TextExtent::kUpToNul, valueText) != 0) return -1;

  // Both the name and the value are UTF-8 here.
  std::string domName;
  std::string domValue;
  if (name == nullptr || Utf8ToWide(name, domName) != 0) return -1;
  if (Utf8ToWide(valueText.c_str(), domValue) != 0) return -1;

  dom::AttrMap map;
  if (node.get_attributes(map) < 0 || !map) return -1;
  // Always a new attribute node: an attribute of the same name is replaced in
  // the map, never edited in place.
  dom::Node attr;
  if (m_document.createAttribute(domName, attr) < 0 || !attr) return -1;
  if (attr.put_nodeValue(domValue) < 0) return -1;
  dom::Node inMap;
  if (map.setNamedItem(attr, inMap) < 0 || !inMap) return -1;
  return 0;
}

int CTreeKeeper::GetAttributeText(unsigned handle, const char* path, const char* name,
                                  outputstr& out) {
  // No lock of its own: each of the two reads locks for itself, so the value
  // may change between them and the second read answers by the same rules.
  ITreeKeeper* self = static_cast<ITreeKeeper*>(this);
  unsigned size = 0;
  int result = self->GetAttributeValue(handle, path, name, TK_VALUE_TEXT, &size, nullptr);
  if (result != -105) return result;

  // Values up to 255 bytes (256 with the terminator) stay off the heap.
  char local[256];
  std::unique_ptr<char[]> heap;
  char* buffer = local;
  if (size > sizeof local) {
    heap.reset(new char[size]);
    buffer = heap.get();
  }
  result = self->GetAttributeValue(handle, path, name, TK_VALUE_TEXT, &size, buffer);
  if (result != 0) return result;
  out.clear();
  out.append(buffer);
  return 0;
}

}  // namespace tk
