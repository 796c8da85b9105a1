#include "dom/xml_writer.h"

#include <libxml/HTMLtree.h>
#include <libxml/parserInternals.h>

#include <cstring>

#include "dom/xml_escape.h"

namespace tk::dom {
namespace {

using namespace escape;

const char* Text(const xmlChar* text) { return reinterpret_cast<const char*>(text); }

class Writer {
 public:
  Writer(std::string& out, AboveBmp form)
      : m_out(out), m_pairs(form == AboveBmp::kSurrogatePairs) {}

  bool subtree(const xmlNode* top, const std::vector<xmlNsPtr>& extra);
  // The tree holds what only the engine writes as it should.
  bool leftToEngine() const { return m_leftToEngine; }

 private:
  // Text that needs no escape, in the form asked for.
  void put(const char* text, size_t size) {
    if (m_pairs && HasFourByteLead(text, size)) {
      AppendSurrogateForm(std::string_view(text, size), m_out);
    } else {
      m_out.append(text, size);
    }
  }
  void put(const xmlChar* text) { put(Text(text), std::strlen(Text(text))); }
  // A name: short, measured and checked in one pass.
  void putName(const xmlChar* name) {
    size_t size = 0;
    unsigned char any = 0;  // from 0xF0 up when a byte is
    for (; name[size] != 0; ++size) any |= name[size];
    if (m_pairs && any >= 0xF0) {
      AppendSurrogateForm(std::string_view(Text(name), size), m_out);
    } else {
      m_out.append(Text(name), size);
    }
  }
  void escaped(const xmlChar* text, unsigned char kind);
  void attributeValue(const xmlAttr* attr);
  void attribute(const xmlAttr* attr);
  void declaration(const xmlNs* ns);
  void qualifiedName(const xmlNode* node);
  void startTag(const xmlNode* element, const std::vector<xmlNsPtr>* extra);
  void cdata(const xmlChar* text);

  std::string& m_out;
  const bool m_pairs;  // characters above U+FFFF as surrogate pairs
  bool m_leftToEngine = false;
};


void Writer::escaped(const xmlChar* text, unsigned char kind) {
  AppendEscaped(std::string_view(Text(text)), kind, m_pairs, m_out);
}

void Writer::attributeValue(const xmlAttr* attr) {
  for (const xmlNode* child = attr->children; child != nullptr; child = child->next) {
    if (child->type == XML_ENTITY_REF_NODE) {
      m_out += '&';
      putName(child->name);
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
    putName(attr->ns->prefix);
    m_out += ':';
  }
  putName(attr->name);
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
    putName(ns->prefix);
  } else {
    m_out += " xmlns";
  }
  m_out += '=';
  const char* href = Text(ns->href);
  if (std::strchr(href, '"') == nullptr) {
    m_out += '"';
    put(ns->href);
    m_out += '"';
  } else if (std::strchr(href, '\'') == nullptr) {
    m_out += '\'';
    put(ns->href);
    m_out += '\'';
  } else {
    m_out += '"';
    for (const char* quote = std::strchr(href, '"'); quote != nullptr;
         href = quote + 1, quote = std::strchr(href, '"')) {
      put(href, static_cast<size_t>(quote - href));
      m_out += "&quot;";
    }
    put(href, std::strlen(href));
    m_out += '"';
  }
}

void Writer::qualifiedName(const xmlNode* node) {
  if (node->ns != nullptr && node->ns->prefix != nullptr) {
    putName(node->ns->prefix);
    m_out += ':';
  }
  putName(node->name);
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
      put(start, static_cast<size_t>(end - start));
      m_out += "]]>";
      start = end;
    }
    ++end;
  }
  if (start != end) {
    m_out += "<![CDATA[";
    put(start, static_cast<size_t>(end - start));
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
          put(node->content);  // a transformation asked for it unescaped
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
        put(node->content);
        m_out += "-->";
        break;
      case XML_PI_NODE:
        m_out += "<?";
        putName(node->name);
        if (node->content != nullptr) {
          m_out += ' ';
          put(node->content);
        }
        m_out += "?>";
        break;
      case XML_ENTITY_REF_NODE:
        m_out += '&';
        putName(node->name);
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

void AppendSurrogateForm(std::string_view utf8, std::string& out) {
  const auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
  const auto* const end = p + utf8.size();
  while (true) {
    const size_t run = PlainRun<kFourByteLead>(p, static_cast<size_t>(end - p));
    out.append(reinterpret_cast<const char*>(p), run);
    p += run;
    if (p == end) return;
    p += AppendFourByte(p, static_cast<size_t>(end - p), out);
  }
}

bool WriteXml(const xmlNode* top, const std::vector<xmlNsPtr>& extra, AboveBmp form,
              std::string& out) {
  if (WrittenAsXhtml(top)) return false;
  const size_t before = out.size();
  Writer writer(out, form);
  if (writer.subtree(top, extra) && !writer.leftToEngine()) return true;
  out.resize(before);
  return false;
}

}  // namespace tk::dom
