// The pass ahead of the engine that finds crowded start tags.
//
// It reads markup as the engine does (comments, CDATA sections, processing
// instructions and the document type declaration are skipped whole, quoted
// values are jumped over with memchr) and counts, per start tag, attributes
// and namespace declarations, and the declarations in scope. It does not
// judge well-formedness: whatever it can't make sense of, it passes over, and
// the engine refuses it later.
#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include "dom/load_bounds.h"

namespace tk::dom {
namespace {

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// Ends a name or an attribute name.
bool EndsName(char c) {
  return IsSpace(c) || c == '=' || c == '>' || c == '/' || c == '<' || c == '"' || c == '\'';
}

class Scanner {
 public:
  Scanner(std::string_view text, CrowdedTag& found) : m_text(text), m_found(found) {}

  bool Run() {
    size_t at = 0;
    while (at < m_text.size()) {
      const void* lt = std::memchr(m_text.data() + at, '<', m_text.size() - at);
      if (lt == nullptr) break;
      at = static_cast<size_t>(static_cast<const char*>(lt) - m_text.data());
      const char next = at + 1 < m_text.size() ? m_text[at + 1] : '\0';
      if (next == '/') {
        if (!m_scopes.empty()) {
          m_inScope -= m_scopes.back();
          m_scopes.pop_back();
        }
        at += 2;
      } else if (next == '?') {
        at = After(at + 2, "?>");
      } else if (next != '!') {
        if (StartTag(at)) return true;
      } else if (StartsWith(at, "<!--")) {
        at = After(at + 4, "-->");
      } else if (StartsWith(at, "<![CDATA[")) {
        at = After(at + 9, "]]>");
      } else if (StartsWith(at, "<!DOCTYPE")) {
        at = SkipDoctype(at + 9);
      } else {  // another "<!", the engine's to read or refuse
        at += 2;
      }
    }
    return false;
  }

 private:
  bool StartsWith(size_t at, std::string_view prefix) const {
    return m_text.compare(at, prefix.size(), prefix) == 0;
  }

  // The position after the next occurrence of end, or the end of the text.
  size_t After(size_t from, std::string_view end) const {
    const size_t found = m_text.find(end, from);
    return found == std::string_view::npos ? m_text.size() : found + end.size();
  }

  // Past a quoted value starting at the quote at `at`.
  size_t SkipQuoted(size_t at) const {
    const void* close = std::memchr(m_text.data() + at + 1, m_text[at], m_text.size() - at - 1);
    return close == nullptr ? m_text.size()
                            : static_cast<size_t>(static_cast<const char*>(close) - m_text.data()) + 1;
  }

  // Past the document type declaration, internal subset included.
  size_t SkipDoctype(size_t at) const {
    bool inSubset = false;
    while (at < m_text.size()) {
      const char c = m_text[at];
      if (c == '"' || c == '\'') {
        at = SkipQuoted(at);
      } else if (inSubset && StartsWith(at, "<!--")) {
        at = After(at + 4, "-->");
      } else if (inSubset && StartsWith(at, "<?")) {
        at = After(at + 2, "?>");
      } else if (c == '[') {
        inSubset = true;
        ++at;
      } else if (c == ']') {
        inSubset = false;
        ++at;
      } else if (c == '>' && !inSubset) {
        return at + 1;
      } else {
        ++at;
      }
    }
    return at;
  }

  size_t SkipSpace(size_t at) const {
    while (at < m_text.size() && IsSpace(m_text[at])) ++at;
    return at;
  }

  size_t SkipName(size_t at) const {
    while (at < m_text.size() && !EndsName(m_text[at])) ++at;
    return at;
  }

  // Counts the start tag at `at`; true when it crosses a bound. Moves `at`
  // past what it read.
  bool StartTag(size_t& at) {
    const size_t tag = at;
    const size_t nameEnd = SkipName(tag + 1);
    if (nameEnd == tag + 1) {  // "<" and no name: the engine's to refuse
      at = tag + 1;
      return false;
    }
    int attributes = 0;
    int declarations = 0;
    bool empty = false;
    size_t pos = nameEnd;
    for (;;) {
      pos = SkipSpace(pos);
      if (pos >= m_text.size() || m_text[pos] == '<') break;
      const char c = m_text[pos];
      if (c == '>') {
        ++pos;
        break;
      }
      if (c == '/') {
        empty = pos + 1 < m_text.size() && m_text[pos + 1] == '>';
        pos += empty ? 2 : 1;
        if (empty) break;
        continue;
      }
      if (c == '"' || c == '\'') {
        pos = SkipQuoted(pos);
        continue;
      }
      const size_t nameStart = pos;
      pos = SkipName(pos);
      if (pos == nameStart) {  // a lone "="
        ++pos;
        continue;
      }
      const std::string_view name = m_text.substr(nameStart, pos - nameStart);
      ++attributes;
      if (name[0] == 'x' && (name == "xmlns" || name.substr(0, 6) == "xmlns:")) ++declarations;
      pos = SkipSpace(pos);
      if (pos < m_text.size() && m_text[pos] == '=') {
        pos = SkipSpace(pos + 1);
        if (pos < m_text.size() && (m_text[pos] == '"' || m_text[pos] == '\'')) pos = SkipQuoted(pos);
      }
    }
    at = pos;
    const std::string_view element = m_text.substr(tag + 1, nameEnd - tag - 1);
    if (attributes > kMaxAttributesPerElement) {
      return Found(tag, "Element " + std::string(element) + " has more than " +
                            std::to_string(kMaxAttributesPerElement) +
                            " attributes and namespace declarations\n");
    }
    if (m_inScope + declarations > kMaxNamespacesInScope) {
      return Found(tag, "Element " + std::string(element) + " has more than " +
                            std::to_string(kMaxNamespacesInScope) +
                            " namespace declarations in scope\n");
    }
    if (!empty) {
      m_scopes.push_back(declarations);
      m_inScope += declarations;
    }
    return false;
  }

  bool Found(size_t offset, std::string reason) {
    const std::string_view before = m_text.substr(0, offset);
    const size_t lastBreak = before.rfind('\n');
    m_found.line = 1 + static_cast<int>(std::count(before.begin(), before.end(), '\n'));
    m_found.column = static_cast<int>(lastBreak == std::string_view::npos ? offset + 1 : offset - lastBreak);
    m_found.reason = std::move(reason);
    return true;
  }

  std::string_view m_text;
  CrowdedTag& m_found;
  std::vector<int> m_scopes;  // declarations of each open element
  int m_inScope = 0;
};

// Text whose markup is not ASCII bytes, read as ASCII: each code unit of
// UTF-16 or UCS-4 becomes one byte (anything above ASCII an 'x'), EBCDIC
// (code page 037) by a table of the characters markup uses. Positions map
// stay those of characters.
std::string AsAscii(const unsigned char* p, size_t length, size_t unit, bool bigEndian) {
  std::string out;
  out.reserve(length / unit);
  for (size_t i = 0; i + unit <= length; i += unit) {
    uint32_t value = 0;
    for (size_t b = 0; b < unit; ++b) {
      const size_t index = bigEndian ? i + b : i + unit - 1 - b;
      value = (value << 8) | p[index];
    }
    out.push_back(value < 0x80 ? static_cast<char>(value) : 'x');
  }
  return out;
}

std::string EbcdicAsAscii(const unsigned char* p, size_t length) {
  static const char* const kTable = [] {
    static char table[256];
    std::memset(table, 'x', sizeof table);
    const unsigned char ebcdic[] = {0x4C, 0x6E, 0x7E, 0x7F, 0x7D, 0x6F, 0x61, 0x60, 0x5A, 0xBA,
                                    0xBB, 0x40, 0x05, 0x25, 0x15, 0x0D, 0x7A, 0xA7, 0x94, 0x93,
                                    0x95, 0xA2, 0xC4, 0xD6, 0xC3, 0xE3, 0xE8, 0xD7, 0xC5, 0xC1,
                                    0xE3};
    const char ascii[] = {'<', '>', '=', '"', '\'', '?', '/', '-', '!', '[', ']', ' ', '\t', '\n',
                          '\n', '\r', ':', 'x', 'm', 'l', 'n', 's', 'D', 'O', 'C', 'T', 'Y', 'P',
                          'E', 'A', 'T'};
    for (size_t i = 0; i < sizeof ebcdic; ++i) table[ebcdic[i]] = ascii[i];
    return table;
  }();
  std::string out(length, 'x');
  for (size_t i = 0; i < length; ++i) out[i] = kTable[p[i]];
  return out;
}

}  // namespace

bool FindCrowdedTagUtf8(const char* data, size_t length, CrowdedTag& found) {
  return Scanner(std::string_view(data, length), found).Run();
}

bool FindCrowdedTag(const char* data, size_t length, CrowdedTag& found) {
  const auto* p = reinterpret_cast<const unsigned char*>(data);
  auto starts = [&](std::initializer_list<unsigned char> bytes) {
    if (length < bytes.size()) return false;
    return std::equal(bytes.begin(), bytes.end(), p);
  };
  size_t unit = 1;
  bool bigEndian = false;
  if (starts({0x00, 0x00, 0xFE, 0xFF}) || starts({0x00, 0x00, 0x00, 0x3C})) {
    unit = 4, bigEndian = true;
  } else if (starts({0xFF, 0xFE, 0x00, 0x00}) || starts({0x3C, 0x00, 0x00, 0x00})) {
    unit = 4;
  } else if (starts({0xFE, 0xFF}) || starts({0x00, 0x3C, 0x00})) {
    unit = 2, bigEndian = true;
  } else if (starts({0xFF, 0xFE}) || starts({0x3C, 0x00})) {
    unit = 2;
  } else if (starts({0x4C, 0x6F, 0xA7, 0x94})) {
    const std::string ascii = EbcdicAsAscii(p, length);
    return FindCrowdedTagUtf8(ascii.data(), ascii.size(), found);
  }
  if (unit == 1) return FindCrowdedTagUtf8(data, length, found);
  const std::string ascii = AsAscii(p, length, unit, bigEndian);
  return FindCrowdedTagUtf8(ascii.data(), ascii.size(), found);
}

}  // namespace tk::dom
