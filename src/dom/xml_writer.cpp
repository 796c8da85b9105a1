#include "dom/xml_writer.h"

#include <libxml/HTMLtree.h>
#include <libxml/parserInternals.h>

#include <array>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace tk::dom {
namespace {

// Which bytes need an escape, in text (1) and in attribute values (2).
constexpr std::array<unsigned char, 256> MakeEscapes() {
  std::array<unsigned char, 256> table{};
  for (unsigned char c : {'&', '<', '>', '\r'}) table[c] |= 1;
  for (unsigned char c : {'&', '<', '>', '"', '\t', '\n', '\r'}) table[c] |= 2;
  return table;
}
constexpr std::array<unsigned char, 256> kEscapes = MakeEscapes();

const char* Escape(unsigned char c) {
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

// The length of the run at p (of n bytes) that needs no escape of the kind.
// Sixteen bytes at a time, the vector test lets through a few bytes more
// than the table (all bytes up to CR for values), and the table decides.
size_t PlainRun(const unsigned char* p, size_t n, unsigned char kind) {
  size_t i = 0;
#if defined(__SSE2__)
  const __m128i amp = _mm_set1_epi8('&');
  const __m128i lt = _mm_set1_epi8('<');
  const __m128i gt = _mm_set1_epi8('>');
  const __m128i quot = _mm_set1_epi8('"');
  const __m128i cr = _mm_set1_epi8('\r');
  for (; i + 16 <= n; i += 16) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + i));
    __m128i hit = _mm_or_si128(_mm_cmpeq_epi8(x, amp),
                               _mm_or_si128(_mm_cmpeq_epi8(x, lt), _mm_cmpeq_epi8(x, gt)));
    if (kind == 1) {
      hit = _mm_or_si128(hit, _mm_cmpeq_epi8(x, cr));
    } else {
      const __m128i low = _mm_cmpeq_epi8(_mm_max_epu8(x, cr), cr);  // bytes up to CR
      hit = _mm_or_si128(hit, _mm_or_si128(_mm_cmpeq_epi8(x, quot), low));
    }
    for (unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(hit)); mask != 0;
         mask &= mask - 1) {
      const size_t at = i + static_cast<size_t>(__builtin_ctz(mask));
      if ((kEscapes[p[at]] & kind) != 0) return at;
    }
  }
#endif
  while (i < n && (kEscapes[p[i]] & kind) == 0) ++i;
  return i;
}

const char* Text(const xmlChar* text) { return reinterpret_cast<const char*>(text); }

class Writer {
 public:
  explicit Writer(std::string& out) : m_out(out) {}

  bool subtree(const xmlNode* top, const std::vector<xmlNsPtr>& extra);
  // The tree holds what only the engine writes as it should.
  bool leftToEngine() const { return m_leftToEngine; }

 private:
  void escaped(const xmlChar* text, unsigned char kind);
  void attributeValue(const xmlAttr* attr);
  void attribute(const xmlAttr* attr);
  void declaration(const xmlNs* ns);
  void qualifiedName(const xmlNode* node);
  void startTag(const xmlNode* element, const std::vector<xmlNsPtr>* extra);
  void cdata(const xmlChar* text);

  std::string& m_out;
  bool m_leftToEngine = false;
};

void Writer::escaped(const xmlChar* text, unsigned char kind) {
  const unsigned char* p = text;
  const unsigned char* const end = p + std::strlen(reinterpret_cast<const char*>(text));
  while (true) {
    const size_t run = PlainRun(p, static_cast<size_t>(end - p), kind);
    m_out.append(reinterpret_cast<const char*>(p), run);
    p += run;
    if (p == end) return;
    m_out += Escape(*p);
    ++p;
  }
}

void Writer::attributeValue(const xmlAttr* attr) {
  for (const xmlNode* child = attr->children; child != nullptr; child = child->next) {
    if (child->type == XML_ENTITY_REF_NODE) {
      m_out += '&';
      m_out += Text(child->name);
      m_out += ';';
    } else if (child->type == XML_TEXT_NODE && child->content != nullptr) {
      escaped(child->content, 2);
    }
  }
}

void Writer::attribute(const xmlAttr* attr) {
  // In a document that names no encoding the engine writes characters
  // outside ASCII in values as references. Our documents always name one;
  // anything else is left to the engine.
  if (attr->doc == nullptr || attr->doc->encoding == nullptr) m_leftToEngine = true;
  m_out += ' ';
  if (attr->ns != nullptr && attr->ns->prefix != nullptr) {
    m_out += Text(attr->ns->prefix);
    m_out += ':';
  }
  m_out += Text(attr->name);
  m_out += "=\"";
  attributeValue(attr);
  m_out += '"';
}

// A declaration as the engine writes it: the xml prefix never, a value in
// double quotes unless it holds one (then in single quotes, or with &quot;
// when it holds both).
void Writer::declaration(const xmlNs* ns) {
  if (ns->type != XML_NAMESPACE_DECL || ns->href == nullptr) return;
  if (ns->prefix != nullptr && std::strcmp(Text(ns->prefix), "xml") == 0) return;
  if (ns->prefix != nullptr) {
    m_out += " xmlns:";
    m_out += Text(ns->prefix);
  } else {
    m_out += " xmlns";
  }
  m_out += '=';
  const char* href = Text(ns->href);
  if (std::strchr(href, '"') == nullptr) {
    m_out += '"';
    m_out += href;
    m_out += '"';
  } else if (std::strchr(href, '\'') == nullptr) {
    m_out += '\'';
    m_out += href;
    m_out += '\'';
  } else {
    m_out += '"';
    for (const char* p = href; *p != 0; ++p) {
      if (*p == '"') {
        m_out += "&quot;";
      } else {
        m_out += *p;
      }
    }
    m_out += '"';
  }
}

void Writer::qualifiedName(const xmlNode* node) {
  if (node->ns != nullptr && node->ns->prefix != nullptr) {
    m_out += Text(node->ns->prefix);
    m_out += ':';
  }
  m_out += Text(node->name);
}

void Writer::startTag(const xmlNode* element, const std::vector<xmlNsPtr>* extra) {
  m_out += '<';
  qualifiedName(element);
  if (extra != nullptr) {
    for (const xmlNs* ns : *extra) declaration(ns);
  }
  for (const xmlNs* ns = element->nsDef; ns != nullptr; ns = ns->next) declaration(ns);
  for (const xmlAttr* attr = element->properties; attr != nullptr; attr = attr->next) {
    attribute(attr);
  }
}

// "]]>" can't stand inside a section: the engine ends the section after
// "]]" and starts the next one with ">".
void Writer::cdata(const xmlChar* text) {
  if (text == nullptr || *text == 0) {
    m_out += "<![CDATA[]]>";
    return;
  }
  const char* start = Text(text);
  const char* end = start;
  while (*end != 0) {
    if (end[0] == ']' && end[1] == ']' && end[2] == '>') {
      end += 2;
      m_out += "<![CDATA[";
      m_out.append(start, static_cast<size_t>(end - start));
      m_out += "]]>";
      start = end;
    }
    ++end;
  }
  if (start != end) {
    m_out += "<![CDATA[";
    m_out.append(start, static_cast<size_t>(end - start));
    m_out += "]]>";
  }
}

bool Writer::subtree(const xmlNode* top, const std::vector<xmlNsPtr>& extra) {
  const xmlNode* node = top;
  while (true) {
    switch (node->type) {
      case XML_ELEMENT_NODE:
        startTag(node, node == top ? &extra : nullptr);
        if (node->children != nullptr) {
          m_out += '>';
          node = node->children;
          continue;
        }
        m_out += "/>";
        break;
      case XML_TEXT_NODE:
        if (node->content == nullptr) break;
        if (node->name == xmlStringTextNoenc) {
          m_out += Text(node->content);  // a transformation asked for it unescaped
        } else {
          escaped(node->content, 1);
        }
        break;
      case XML_CDATA_SECTION_NODE:
        cdata(node->content);
        break;
      case XML_COMMENT_NODE:
        if (node->content == nullptr) break;
        m_out += "<!--";
        m_out += Text(node->content);
        m_out += "-->";
        break;
      case XML_PI_NODE:
        m_out += "<?";
        m_out += Text(node->name);
        if (node->content != nullptr) {
          m_out += ' ';
          m_out += Text(node->content);
        }
        m_out += "?>";
        break;
      case XML_ENTITY_REF_NODE:
        m_out += '&';
        m_out += Text(node->name);
        m_out += ';';
        break;
      case XML_ATTRIBUTE_NODE:
        if (node != top) return false;
        attribute(reinterpret_cast<const xmlAttr*>(node));
        break;
      default:
        return false;
    }
    while (true) {
      if (node == top) return true;
      if (node->next != nullptr) {
        node = node->next;
        break;
      }
      node = node->parent;
      m_out += "</";
      qualifiedName(node);
      m_out += '>';
    }
  }
}

// The engine writes the nodes of a document whose type names an XHTML DTD
// by rules of its own.
bool WrittenAsXhtml(const xmlNode* node) {
  xmlDtdPtr dtd = node->doc != nullptr ? xmlGetIntSubset(node->doc) : nullptr;
  return dtd != nullptr && xmlIsXHTML(dtd->SystemID, dtd->ExternalID) > 0;
}

}  // namespace

bool WriteXml(const xmlNode* top, const std::vector<xmlNsPtr>& extra, std::string& out) {
  if (WrittenAsXhtml(top)) return false;
  const size_t before = out.size();
  Writer writer(out);
  if (writer.subtree(top, extra) && !writer.leftToEngine()) return true;
  out.resize(before);
  return false;
}

}  // namespace tk::dom
