#include "utf8_text.h"

#include <iconv.h>
#include <langinfo.h>

#include <cerrno>
#include <cstring>

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

// The scalar value of the UTF-8 sequence at text[pos], moving pos past it;
// -1 for a byte that starts no valid sequence (overlong forms and
// surrogates included).
long NextCharacter(const std::string& text, size_t& pos) {
  const auto lead = static_cast<unsigned char>(text[pos++]);
  if (lead < 0x80) return lead;
  // Continuation bytes, the lead byte's bits, and the least value that needs
  // that many bytes.
  size_t more = 3;
  uint32_t character = lead & 0x07u;
  uint32_t least = 0x10000;
  if (lead >= 0xC2 && lead <= 0xDF) {
    more = 1;
    character = lead & 0x1Fu;
    least = 0x80;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    more = 2;
    character = lead & 0x0Fu;
    least = 0x800;
  } else if (lead < 0xF0 || lead > 0xF4) {
    return -1;
  }
  for (; more > 0; --more) {
    if (pos >= text.size() || (static_cast<unsigned char>(text[pos]) & 0xC0) != 0x80) return -1;
    character = (character << 6) | (static_cast<unsigned char>(text[pos++]) & 0x3Fu);
  }
  if (character < least || character > 0x10FFFF || (character >= 0xD800 && character <= 0xDFFF)) {
    return -1;
  }
  return character;
}

bool IsValidUtf8(const std::string& text) {
  for (size_t pos = 0; pos < text.size();) {
    if (NextCharacter(text, pos) < 0) return false;
  }
  return true;
}

// The same names of UTF-8 and ASCII as the library's: case, '-', '_' and
// '.' aside.
bool CountsAsUtf8(const std::string& codeset) {
  std::string folded;
  for (const char c : codeset) {
    if (c == '-' || c == '_' || c == '.') continue;
    folded += (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c;
  }
  return folded.empty() || folded == "UTF8" || folded == "ANSIX341968" || folded == "ASCII" ||
         folded == "USASCII";
}

}  // namespace

std::string LocaleCharacterSet() {
  const char* codeset = nl_langinfo(CODESET);
  return codeset == nullptr ? "" : codeset;
}

bool LocaleToUtf8(const std::string& text, std::string& utf8) {
  const std::string codeset = LocaleCharacterSet();
  if (CountsAsUtf8(codeset)) {
    utf8 = text;
    return IsValidUtf8(text);
  }
  const iconv_t convert = iconv_open("UTF-8", codeset.c_str());
  if (convert == reinterpret_cast<iconv_t>(-1)) return false;
  utf8.assign(text.size() * 4 + 4, '\0');
  char* in = const_cast<char*>(text.data());
  size_t inLeft = text.size();
  char* out = utf8.data();
  size_t outLeft = utf8.size();
  const bool converted =
      iconv(convert, &in, &inLeft, &out, &outLeft) != static_cast<size_t>(-1) &&
      iconv(convert, nullptr, nullptr, &out, &outLeft) != static_cast<size_t>(-1);
  iconv_close(convert);
  utf8.resize(utf8.size() - outLeft);
  return converted && IsValidUtf8(utf8);
}

long FirstNonXmlCharacter(const std::string& utf8) {
  for (size_t pos = 0; pos < utf8.size();) {
    const long character = NextCharacter(utf8, pos);
    const bool control =
        character >= 0 && character < 0x20 && character != 0x09 && character != 0x0A &&
        character != 0x0D;
    if (control || character == 0xFFFE || character == 0xFFFF) {
      return character;
    }
  }
  return -1;
}

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
