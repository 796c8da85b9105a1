#include "content/value_text.h"

#include <cstdint>
#include <cstring>

#include <treekeeper/treekeeper.h>

#include "document/textconv.h"

namespace tk {

int BuildValueText(int type, unsigned size, const void* data, TextExtent extent,
                   std::string& out) {
  out.clear();
  if (type == TK_VALUE_NUMBER) {
    if (data == nullptr) return -1;
    uint32_t number;
    std::memcpy(&number, data, sizeof number);
    out = std::to_string(number);
    return 0;
  }
  if (type == TK_VALUE_BINARY) {
    if (size == 0) return 0;
    if (data == nullptr) return -1;
    out.assign(static_cast<size_t>(size) * 2, '\0');
    BytesToHexText(out.data(), static_cast<const unsigned char*>(data), size);
    return 0;
  }
  const char* text = static_cast<const char*>(data);
  if (extent == TextExtent::kUpToNul) {
    if (text != nullptr) out.assign(text);
    return 0;
  }
  if (size == 0) return 0;
  if (text == nullptr) return -1;
  out.assign(text, strnlen(text, size));
  return 0;
}

}  // namespace tk
