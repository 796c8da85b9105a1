#include "utf8_text.h"

namespace tkcli {
namespace {

// The value of the surrogate half spelt as a 3-byte sequence at text[i], or 0.
uint32_t SurrogateAt(const std::string& text, size_t i) {
  if (i + 3 > text.size() || static_cast<unsigned char>(text[i]) != 0xED) return 0;
  const auto second = static_cast<unsigned char>(text[i + 1]);
  const auto third = static_cast<unsigned char>(text[i + 2]);
  if (second < 0xA0 || second > 0xBF || (third & 0xC0) != 0x80) return 0;
  return 0xD000u | ((second & 0x3Fu) << 6) | (third & 0x3Fu);
}

}  // namespace

void JoinSurrogatePairs(std::string& text) {
  size_t next = text.find('\xED');
  if (next == std::string::npos) return;
  std::string joined;
  joined.reserve(text.size());
  size_t done = 0;  // text before done has been copied or joined
  while (next != std::string::npos) {
    const uint32_t high = SurrogateAt(text, next);
    const uint32_t low = high >= 0xD800 && high <= 0xDBFF ? SurrogateAt(text, next + 3) : 0;
    if (low >= 0xDC00 && low <= 0xDFFF) {
      joined.append(text, done, next - done);
      AppendUtf8(joined, 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00));
      done = next + 6;
    }
    next = text.find('\xED', done > next ? done : next + 1);
  }
  joined.append(text, done, std::string::npos);
  text.swap(joined);
}

void AppendUtf8(std::string& out, uint32_t character) {
  if (character < 0x80) {
    out += static_cast<char>(character);
  } else if (character < 0x800) {
    out += static_cast<char>(0xC0 | (character >> 6));
    out += static_cast<char>(0x80 | (character & 0x3F));
  } else if (character < 0x10000) {
    out += static_cast<char>(0xE0 | (character >> 12));
    out += static_cast<char>(0x80 | ((character >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (character & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (character >> 18));
    out += static_cast<char>(0x80 | ((character >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((character >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (character & 0x3F));
  }
}

}  // namespace tkcli
