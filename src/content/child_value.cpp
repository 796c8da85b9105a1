#include "content/child_value.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <treekeeper/treekeeper.h>

#include "document/codepage.h"
#include "document/textconv.h"

namespace tk {
namespace {

// Every read below checks the room it needs against two capacities: *size,
// which an earlier text child of the same read may have changed, and
// `room`, what the caller's buffer really holds. The second never lets a
// later child write past the caller's buffer.

// A number is read from decimal digits only; a value beyond 32 bits
// saturates at 4294967295.
int ReadNumber(std::string_view value, unsigned* size, void* buffer, unsigned room) {
  if (buffer == nullptr || *size < 4 || room < 4) {
    *size = 4;
    return -105;
  }
  std::string scratch;
  const std::string digits(DomToAnsi(value, scratch));
  *size = 4;
  if (digits.empty()) return -107;
  if (IsDecimalText(digits.c_str()) != 0) {
    const unsigned long long parsed = std::strtoull(digits.c_str(), nullptr, 10);
    const uint32_t number = parsed > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(parsed);
    std::memcpy(buffer, &number, sizeof number);
  }
  return 0;
}

// A byte string is read from hex digits; a bad digit ends the decoding with a
// zero byte at its place, and the read still succeeds.
int ReadBinary(std::string_view value, unsigned* size, void* buffer, unsigned room) {
  std::string scratch;
  const std::string digits(DomToAnsi(value, scratch));
  const size_t length = digits.size();
  const uint64_t needed = (length >> 1) + (length & 1);
  const unsigned neededSize = needed > UINT32_MAX ? UINT32_MAX : static_cast<unsigned>(needed);
  if (buffer == nullptr || needed > *size || needed > room) {
    *size = neededSize;
    return -105;
  }
  if (length == 0) {
    *size = 0;
    return 0;
  }
  HexTextToBytes(static_cast<unsigned char*>(buffer), digits.c_str());
  *size = neededSize;
  return 0;
}

// Text follows the buffer protocol; a code page the conversion refuses
// measures 0 and gives an empty text. That still takes a byte, its
// terminator: a buffer without room for one hears -105 like a null one.
int ReadText(std::string_view value, unsigned* size, void* buffer, unsigned room,
             TextReadForm form) {
  const int needed = cp::DomToNarrow(form.codePage, form.flags, value, nullptr, 0);
  const unsigned neededSize = needed > 0 ? static_cast<unsigned>(needed) : 0;
  const unsigned written = needed > 0 ? neededSize : 1;
  if (buffer == nullptr || *size < written || room < written) {
    *size = neededSize;
    return -105;
  }
  char* out = static_cast<char*>(buffer);
  if (needed <= 0) {
    out[0] = '\0';
    *size = 1;
    return 0;
  }
  const unsigned limit = *size < room ? *size : room;
  const int capacity = limit > static_cast<unsigned>(INT_MAX) ? INT_MAX : static_cast<int>(limit);
  cp::DomToNarrow(form.codePage, form.flags, value, out, capacity);
  *size = neededSize;
  return 0;
}

}  // namespace

int ReadChildValue(dom::NodePtr element, int nodeType, int type, unsigned* size,
                   void* buffer, TextReadForm textForm) {
  // Reading changes no tree, so the children are looked at where they lie.
  dom::NodePtr child = element.firstChild();
  if (!child) return -107;
  int result = -1;
  const unsigned room = size != nullptr && buffer != nullptr ? *size : 0;
  for (; child; child = child.nextSibling()) {
    if (child.nodeType() != nodeType) continue;
    const std::string_view value = child.valueView();
    if (size == nullptr) {
      // Nowhere to report a size: the caller can't have a buffer of known room.
      result = -105;
    } else if (type == TK_VALUE_NUMBER) {
      result = ReadNumber(value, size, buffer, room);
    } else if (type == TK_VALUE_BINARY) {
      result = ReadBinary(value, size, buffer, room);
    } else {
      result = ReadText(value, size, buffer, room, textForm);
    }
  }
  return result;
}

int WriteChildValue(dom::Document& document, dom::NodePtr element, int nodeType,
                    const std::string& valueText) {
  if (!element) return -107;

  // The client's text is UTF-8; what isn't valid UTF-8 is replaced.
  std::string wide;
  if (Utf8ToWide(valueText.c_str(), wide) < 0) return -1;

  for (dom::NodePtr child = element.firstChild(); child; child = child.nextSibling()) {
    if (child.nodeType() != nodeType) continue;
    // The first child of the type takes the value; no second node is made,
    // so the document never holds the value twice.
    return child.ref().put_nodeValue(wide) < 0 ? -1 : 0;
  }

  dom::Node made;
  const int status = nodeType == dom::kCData ? document.createCDATASection(wide, made)
                                             : document.createTextNode(wide, made);
  if (status < 0 || !made) return -1;
  dom::Node inTree;
  dom::Node parent = element.ref();
  if (parent.appendChild(made, inTree) < 0 || !inTree) return -1;
  return 0;
}

}  // namespace tk
