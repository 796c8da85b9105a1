// What text and names the tree accepts: only what a parser reads back.
#include <cstring>
#include <new>

#include "dom/internal.h"

namespace tk::dom {

bool IsWritableNamespaceUri(std::string_view uri) {
  return uri.find_first_of("&<\t\n\r") == std::string_view::npos;
}

bool IsXmlText(std::string_view utf8) {
  if (utf8.size() > static_cast<size_t>(INT32_MAX)) return false;  // more than the engine takes
  const auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
  const unsigned char* end = p + utf8.size();
  while (p < end) {
    const unsigned char c = *p;
    if (c < 0x80) {
      if (c < 0x20 && c != 0x09 && c != 0x0A && c != 0x0D) return false;
      ++p;
      continue;
    }
    auto cont = [&](ptrdiff_t i) { return p + i < end && (p[i] & 0xC0) == 0x80; };
    if (c >= 0xC2 && c <= 0xDF) {
      if (!cont(1)) return false;
      p += 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      if (!cont(1) || !cont(2)) return false;
      const unsigned char c1 = p[1];
      if (c == 0xE0 && c1 < 0xA0) return false;  // overlong
      if (c == 0xED && c1 >= 0xA0) return false;  // surrogate halves
      if (c == 0xEF && c1 == 0xBF && (p[2] == 0xBE || p[2] == 0xBF)) return false;  // U+FFFE, U+FFFF
      p += 3;
    } else if (c >= 0xF0 && c <= 0xF4) {
      if (!cont(1) || !cont(2) || !cont(3)) return false;
      const unsigned char c1 = p[1];
      if (c == 0xF0 && c1 < 0x90) return false;  // overlong
      if (c == 0xF4 && c1 >= 0x90) return false;  // above U+10FFFF
      p += 4;
    } else {
      return false;
    }
  }
  return true;
}

bool IsQualifiedName(std::string_view name) {
  if (name.empty() || name.find('\0') != std::string_view::npos || !IsXmlText(name)) return false;
  std::string copy(name);
  return xmlValidateQName(X(copy.c_str()), 0) == 0;
}

xmlChar* EngineString(std::string_view text) {
  if (text.size() > static_cast<size_t>(INT32_MAX)) throw std::bad_alloc();
  // Copied here rather than by the engine, which would print when memory runs out.
  auto* copy = static_cast<xmlChar*>(xmlMalloc(text.size() + 1));
  if (copy == nullptr) throw std::bad_alloc();
  if (!text.empty()) std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = 0;
  return copy;
}

}  // namespace tk::dom
