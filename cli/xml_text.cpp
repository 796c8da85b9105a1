#include "xml_text.h"

#include <charconv>
#include <cstdint>

#include "utf8_text.h"

namespace tkcli {
namespace {

// The character of one reference between & and ; (without them), or 0.
uint32_t Referenced(std::string_view name) {
  if (name == "lt") return '<';
  if (name == "gt") return '>';
  if (name == "amp") return '&';
  if (name == "quot") return '"';
  if (name == "apos") return '\'';
  if (name.size() < 2 || name[0] != '#') return 0;
  const bool hex = name[1] == 'x';
  const char* digits = name.data() + (hex ? 2 : 1);
  const char* end = name.data() + name.size();
  uint32_t character = 0;
  const auto parsed = std::from_chars(digits, end, character, hex ? 16 : 10);
  if (parsed.ec != std::errc() || parsed.ptr != end || character > 0x10FFFF) return 0;
  return character;
}

// Skips from a markup start at pos to just past the terminator; npos if none.
size_t Past(std::string_view xml, size_t pos, std::string_view terminator) {
  const size_t end = xml.find(terminator, pos);
  return end == std::string_view::npos ? end : end + terminator.size();
}


}  // namespace

// Skips a tag from its '<' to just past its '>', minding quoted values.
size_t PastTag(std::string_view xml, size_t pos) {
  char quote = 0;
  for (; pos < xml.size(); ++pos) {
    const char c = xml[pos];
    if (quote != 0) {
      if (c == quote) quote = 0;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '>') {
      return pos + 1;
    }
  }
  return std::string_view::npos;
}

// An attribute value between quotes of the given kind; white space other
// than the space is written as references, which keep it through the
// normalisation of attribute values.
std::string EscapeAttribute(std::string_view value, char quote) {
  std::string out;
  for (const char c : value) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '\t': out += "&#9;"; break;
      case '\n': out += "&#10;"; break;
      case '\r': out += "&#13;"; break;
      case '"': out += quote == '"' ? "&quot;" : "\""; break;
      case '\'': out += quote == '\'' ? "&apos;" : "'"; break;
      default: out += c;
    }
  }
  return out;
}

std::string DecodeCharacterData(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  size_t done = 0;
  for (size_t amp = text.find('&'); amp != std::string_view::npos; amp = text.find('&', done)) {
    const size_t semicolon = text.find(';', amp);
    const uint32_t character = semicolon == std::string_view::npos
                                   ? 0
                                   : Referenced(text.substr(amp + 1, semicolon - amp - 1));
    if (character == 0) {
      out.append(text, done, amp + 1 - done);
      done = amp + 1;
      continue;
    }
    out.append(text, done, amp - done);
    AppendUtf8(out, character);
    done = semicolon + 1;
  }
  out.append(text, done);
  return out;
}

std::string_view WithoutDeclaration(std::string_view xml) {
  if (xml.substr(0, 5) != "<?xml") return xml;
  const size_t end = xml.find("?>");
  if (end == std::string_view::npos) return xml;
  size_t begin = end + 2;
  while (begin < xml.size() && (xml[begin] == '\r' || xml[begin] == '\n')) ++begin;
  return xml.substr(begin);
}

size_t ElementEnd(std::string_view xml, size_t begin) {
  size_t depth = 0;
  size_t pos = begin;
  while (pos != std::string_view::npos && pos < xml.size()) {
    if (xml[pos] != '<') {
      pos = xml.find('<', pos);
    } else if (xml.compare(pos, 4, "<!--") == 0) {
      pos = Past(xml, pos + 4, "-->");
    } else if (xml.compare(pos, 9, "<![CDATA[") == 0) {
      pos = Past(xml, pos + 9, "]]>");
    } else if (xml.compare(pos, 2, "<?") == 0) {
      pos = Past(xml, pos + 2, "?>");
    } else if (xml.compare(pos, 2, "</") == 0) {
      pos = PastTag(xml, pos);
      if (pos != std::string_view::npos && --depth == 0) return pos;
    } else {
      pos = PastTag(xml, pos);
      if (pos == std::string_view::npos) break;
      if (xml[pos - 2] != '/') {
        ++depth;
      } else if (depth == 0) {
        return pos;  // the element is one empty tag
      }
    }
  }
  return std::string_view::npos;
}

}  // namespace tkcli
