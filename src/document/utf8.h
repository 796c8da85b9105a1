// Small UTF-8 scanning helpers shared by the conversions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tk::utf8 {

// U+FFFD, what a malformed sequence becomes.
constexpr char kReplacement[] = "\xEF\xBF\xBD";
constexpr size_t kReplacementSize = 3;

// One step over the text at p (n > 0 bytes left). A well-formed sequence gives
// its length and valid = true. A malformed one gives the length of its maximal
// subpart (the longest start of a well-formed sequence, at least one byte), so
// that each subpart is replaced by one U+FFFD. Overlong forms, encoded
// surrogates (ED A0..BF) and values above U+10FFFF are malformed.
struct Step {
  size_t length;
  bool valid;
};

inline Step Next(const unsigned char* p, size_t n) {
  const unsigned lead = p[0];
  if (lead < 0x80) return {1, true};
  size_t trail;
  unsigned low = 0x80;
  unsigned high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    trail = 1;
  } else if (lead == 0xE0) {
    trail = 2;
    low = 0xA0;
  } else if (lead == 0xED) {
    trail = 2;
    high = 0x9F;
  } else if (lead >= 0xE1 && lead <= 0xEF) {
    trail = 2;
  } else if (lead == 0xF0) {
    trail = 3;
    low = 0x90;
  } else if (lead >= 0xF1 && lead <= 0xF3) {
    trail = 3;
  } else if (lead == 0xF4) {
    trail = 3;
    high = 0x8F;
  } else {
    return {1, false};
  }
  for (size_t i = 1; i <= trail; ++i) {
    if (i >= n) return {i, false};
    const unsigned byte = p[i];
    if (byte < low || byte > high) return {i, false};
    low = 0x80;
    high = 0xBF;
  }
  return {trail + 1, true};
}

// Number of leading bytes of [p, p + n) below 0x80.
inline size_t AsciiPrefix(const unsigned char* p, size_t n) {
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    uint64_t word;
    std::memcpy(&word, p + i, 8);
    if ((word & 0x8080808080808080ull) != 0) break;
  }
  while (i < n && p[i] < 0x80) ++i;
  return i;
}

// Number of leading bytes of [p, p + n) that form well-formed UTF-8.
inline size_t ValidPrefix(const unsigned char* p, size_t n) {
  size_t i = 0;
  while (i < n) {
    i += AsciiPrefix(p + i, n - i);
    if (i == n) break;
    const Step step = Next(p + i, n - i);
    if (!step.valid) break;
    i += step.length;
  }
  return i;
}

}  // namespace tk::utf8
