// The escapes both serialisers write, and the scan that finds the next byte
// needing one, sixteen bytes at a time.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace tk::dom::escape {

// Which bytes end a plain run: those that need an escape in text (1) and in
// attribute values (2), and the leads of 4-byte sequences (4), which the
// surrogate-pair form rewrites.
inline constexpr unsigned char kInText = 1;
inline constexpr unsigned char kInValue = 2;
inline constexpr unsigned char kFourByteLead = 4;

constexpr std::array<unsigned char, 256> MakeEscapes() {
  std::array<unsigned char, 256> table{};
  for (unsigned char c : {'&', '<', '>', '\r'}) table[c] |= kInText;
  for (unsigned char c : {'&', '<', '>', '"', '\t', '\n', '\r'}) table[c] |= kInValue;
  for (unsigned c = 0xF0; c <= 0xFF; ++c) table[c] |= kFourByteLead;
  return table;
}
inline constexpr std::array<unsigned char, 256> kEscapes = MakeEscapes();

inline const char* Escape(unsigned char c) {
  switch (c) {
    case '&': return "&amp;";
    case '<': return "&lt;";
    case '>': return "&gt;";
    case '"': return "&quot;";
    case '\t': return "&#9;";
    case '\n': return "&#10;";
    default: return "&#13;";
  }
}

// The length of the run at p (of n bytes) without a byte of the kinds.
// Sixteen bytes at a time, the vector test lets through a few bytes more
// than the table (all bytes up to CR for values), and the table decides.
template <unsigned char kinds>
size_t PlainRun(const unsigned char* p, size_t n) {
  size_t i = 0;
#if defined(__SSE2__)
  const __m128i amp = _mm_set1_epi8('&');
  const __m128i lt = _mm_set1_epi8('<');
  const __m128i gt = _mm_set1_epi8('>');
  const __m128i quot = _mm_set1_epi8('"');
  const __m128i cr = _mm_set1_epi8('\r');
  const __m128i leads = _mm_set1_epi8(static_cast<char>(0xF0));
  for (; i + 16 <= n; i += 16) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
    __m128i hit = _mm_setzero_si128();
    if constexpr ((kinds & (kInText | kInValue)) != 0) {
      hit = _mm_or_si128(_mm_cmpeq_epi8(x, amp),
                         _mm_or_si128(_mm_cmpeq_epi8(x, lt), _mm_cmpeq_epi8(x, gt)));
    }
    if constexpr ((kinds & kInText) != 0) hit = _mm_or_si128(hit, _mm_cmpeq_epi8(x, cr));
    if constexpr ((kinds & kInValue) != 0) {
      const __m128i low = _mm_cmpeq_epi8(_mm_max_epu8(x, cr), cr);  // bytes up to CR
      hit = _mm_or_si128(hit, _mm_or_si128(_mm_cmpeq_epi8(x, quot), low));
    }
    if constexpr ((kinds & kFourByteLead) != 0) {
      // A lead has its top four bits set.
      hit = _mm_or_si128(hit, _mm_cmpeq_epi8(_mm_and_si128(x, leads), leads));
    }
    for (unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(hit)); mask != 0;
         mask &= mask - 1) {
      const size_t at = i + static_cast<size_t>(__builtin_ctz(mask));
      if ((kEscapes[p[at]] & kinds) != 0) return at;
    }
  }
#endif
  while (i < n && (kEscapes[p[i]] & kinds) == 0) ++i;
  return i;
}

// The code point of the well-formed 4-byte sequence at p (n bytes left), or 0.
inline unsigned FourByteCode(const unsigned char* p, size_t n) {
  if (n < 4 || (p[1] & 0xC0) != 0x80 || (p[2] & 0xC0) != 0x80 || (p[3] & 0xC0) != 0x80) return 0;
  const unsigned code = ((p[0] & 0x07u) << 18) | ((p[1] & 0x3Fu) << 12) |
                        ((p[2] & 0x3Fu) << 6) | (p[3] & 0x3Fu);
  return p[0] <= 0xF4 && code >= 0x10000 && code <= 0x10FFFF ? code : 0;
}

inline bool HasFourByteLead(const char* text, size_t size) {
  return PlainRun<kFourByteLead>(reinterpret_cast<const unsigned char*>(text), size) < size;
}

inline void AppendUnit(unsigned unit, std::string& out) {
  const char bytes[3] = {static_cast<char>(0xE0 | (unit >> 12)),
                         static_cast<char>(0x80 | ((unit >> 6) & 0x3F)),
                         static_cast<char>(0x80 | (unit & 0x3F))};
  out.append(bytes, 3);
}

// Appends the sequence at p, a byte from 0xF0 up: a character above U+FFFF
// as its surrogate pair, anything else byte by byte. The bytes taken.
inline size_t AppendFourByte(const unsigned char* p, size_t n, std::string& out) {
  const unsigned code = FourByteCode(p, n);
  if (code == 0) {
    out += static_cast<char>(*p);
    return 1;
  }
  AppendUnit(0xD800 + ((code - 0x10000) >> 10), out);
  AppendUnit(0xDC00 + ((code - 0x10000) & 0x3FF), out);
  return 4;
}

template <unsigned char kinds>
void AppendEscapedAs(const unsigned char* p, const unsigned char* end, std::string& out) {
  while (true) {
    const size_t run = PlainRun<kinds>(p, static_cast<size_t>(end - p));
    out.append(reinterpret_cast<const char*>(p), run);
    p += run;
    if (p == end) return;
    if (*p >= 0xF0) {
      p += AppendFourByte(p, static_cast<size_t>(end - p), out);
    } else {
      out += Escape(*p);
      ++p;
    }
  }
}

// Appends text with the escapes of its kind (kInText or kInValue), and with
// pairs, each character above U+FFFF as its surrogate pair.
inline void AppendEscaped(std::string_view text, unsigned char kind, bool pairs, std::string& out) {
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const auto* end = p + text.size();
  if (kind == kInText) {
    pairs ? AppendEscapedAs<kInText | kFourByteLead>(p, end, out)
          : AppendEscapedAs<kInText>(p, end, out);
  } else {
    pairs ? AppendEscapedAs<kInValue | kFourByteLead>(p, end, out)
          : AppendEscapedAs<kInValue>(p, end, out);
  }
}

}  // namespace tk::dom::escape
