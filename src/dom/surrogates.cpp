// Joining 3-byte surrogate pairs in UTF-8 input.
#include "dom/surrogates.h"

#include <cstring>
#include <string_view>

namespace tk::dom {
namespace {

using Byte = unsigned char;

bool IsHigh(const Byte* p) {
  return p[0] == 0xED && p[1] >= 0xA0 && p[1] <= 0xAF && (p[2] & 0xC0) == 0x80;
}
bool IsLow(const Byte* p) {
  return p[0] == 0xED && p[1] >= 0xB0 && p[1] <= 0xBF && (p[2] & 0xC0) == 0x80;
}

// Position of the next pair at or after from, or nullptr.
const Byte* FindPair(const Byte* from, const Byte* end) {
  while (end - from >= 6) {
    const void* hit = std::memchr(from, 0xED, static_cast<size_t>(end - from - 5));
    if (hit == nullptr) return nullptr;
    const Byte* p = static_cast<const Byte*>(hit);
    if (IsHigh(p) && IsLow(p + 3)) return p;
    from = p + 1;
  }
  return nullptr;
}

bool IsSpace(Byte c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'a' && x <= 'z') x = static_cast<char>(x - 'a' + 'A');
    if (y >= 'a' && y <= 'z') y = static_cast<char>(y - 'a' + 'A');
    if (x != y) return false;
  }
  return true;
}

// UTF-8 by its mark, or by a declaration that names UTF-8 or no encoding.
bool IsUtf8Input(const Byte* p, size_t length) {
  if (length >= 3 && p[0] == 0xEF && p[1] == 0xBB && p[2] == 0xBF) return true;
  if (length == 0 || !(p[0] == '<' || IsSpace(p[0]))) return false;
  if (length >= 2 && p[1] == 0) return false;  // UTF-16 or UCS-4 without a mark
  const std::string_view text(reinterpret_cast<const char*>(p), length < 512 ? length : 512);
  if (text.substr(0, 5) != "<?xml" || text.size() < 6 || !IsSpace(p[5])) return true;
  const size_t close = text.find("?>");
  const std::string_view decl = text.substr(0, close);
  const size_t key = decl.find("encoding");
  if (key == std::string_view::npos) return true;
  size_t i = key + 8;
  while (i < decl.size() && IsSpace(static_cast<Byte>(decl[i]))) ++i;
  if (i >= decl.size() || decl[i] != '=') return false;
  ++i;
  while (i < decl.size() && IsSpace(static_cast<Byte>(decl[i]))) ++i;
  if (i >= decl.size() || (decl[i] != '"' && decl[i] != '\'')) return false;
  const char quote = decl[i++];
  const size_t end = decl.find(quote, i);
  if (end == std::string_view::npos) return false;
  const std::string_view name = decl.substr(i, end - i);
  return EqualsNoCase(name, "UTF-8") || EqualsNoCase(name, "UTF8");
}

}  // namespace

bool NeedsSurrogateFix(const char* data, size_t length) {
  if (data == nullptr) return false;
  const auto* p = reinterpret_cast<const Byte*>(data);
  return FindPair(p, p + length) != nullptr && IsUtf8Input(p, length);
}

std::string JoinSurrogatePairs(const char* data, size_t length) {
  const auto* p = reinterpret_cast<const Byte*>(data);
  const Byte* end = p + length;
  std::string out;
  out.reserve(length);
  const Byte* pair;
  while ((pair = FindPair(p, end)) != nullptr) {
    out.append(reinterpret_cast<const char*>(p), static_cast<size_t>(pair - p));
    const unsigned high = 0xD000u | ((pair[1] & 0x3Fu) << 6) | (pair[2] & 0x3Fu);
    const unsigned low = 0xD000u | ((pair[4] & 0x3Fu) << 6) | (pair[5] & 0x3Fu);
    const unsigned cp = 0x10000u + ((high - 0xD800u) << 10) + (low - 0xDC00u);
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
    p = pair + 6;
  }
  out.append(reinterpret_cast<const char*>(p), static_cast<size_t>(end - p));
  return out;
}

}  // namespace tk::dom
