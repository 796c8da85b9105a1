// get_xml: a node and its subtree as UTF-8 XML text, written by our own
// serialiser into one string, which the caller may read in place. The
// engine's serialiser writes what ours leaves to it; in builds made to check
// ours (TREEKEEPER_ORACLE), it writes everything a second time and any
// difference stops the process.
#include <libxml/xmlIO.h>
#include <libxml/xmlsave.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <string_view>
#include <unordered_set>
#include <utility>
#include <vector>

#include "dom/internal.h"
#include "dom/xml_writer.h"

namespace tk::dom {
namespace {

struct OutputCloser {
  void operator()(xmlOutputBufferPtr buffer) const { xmlOutputBufferClose(buffer); }
};
using Output = std::unique_ptr<xmlOutputBuffer, OutputCloser>;

// A set of namespace prefixes compared by their text; the absent prefix (of
// a default namespace) is one more member.
class PrefixSet {
 public:
  // True when the prefix was not in the set yet.
  bool insert(const xmlChar* prefix) {
    if (prefix == nullptr) return !std::exchange(m_absent, true);
    return m_named.insert(C(prefix)).second;
  }
  // Every prefix an element declares.
  void insertDeclared(const xmlNode* element) {
    for (const xmlNs* own = element->nsDef; own != nullptr; own = own->next) insert(own->prefix);
  }

 private:
  std::unordered_set<std::string_view> m_named;  // views of the declarations' own text
  bool m_absent = false;
};

bool IsXmlNamespace(const xmlNs* ns) {
  return ns->prefix != nullptr && xmlStrEqual(ns->prefix, X("xml"));
}

// True when the document keeps declarations for branches taken out of their
// tree (references into them can't be resolved from ancestors).
bool HasKeptDeclarations(const xmlNode* element) {
  const xmlDoc* doc = element->doc;
  return doc != nullptr && doc->oldNs != nullptr && doc->oldNs->next != nullptr;
}

// Visits every element below top (top included), depth first, until visit
// returns false.
template <typename Visit>
void EachElement(xmlNodePtr top, Visit visit) {
  xmlNodePtr node = top;
  while (node != nullptr) {
    if (node->type == XML_ELEMENT_NODE) {
      if (!visit(node)) return;
      if (node->children != nullptr) {
        node = node->children;
        continue;
      }
    }
    while (node != top && node->next == nullptr) node = node->parent;
    if (node == top) break;
    node = node->next;
  }
}

// The namespaces used in the subtree and declared outside it, one per
// prefix (the first met) and none for a prefix top declares itself, found by
// one walk over the whole subtree.
std::vector<xmlNsPtr> MissingDeclarations(xmlNodePtr top) {
  std::unordered_set<const xmlNs*> declared;
  PrefixSet settled;  // the prefixes top declares and those already missing
  settled.insertDeclared(top);
  std::vector<xmlNsPtr> missing;
  auto use = [&](xmlNsPtr ns) {
    if (ns == nullptr || IsXmlNamespace(ns) || declared.count(ns) != 0) return;
    if (settled.insert(ns->prefix)) missing.push_back(ns);
  };
  EachElement(top, [&](xmlNodePtr node) {
    for (xmlNsPtr ns = node->nsDef; ns != nullptr; ns = ns->next) declared.insert(ns);
    use(node->ns);
    for (xmlAttrPtr attr = node->properties; attr != nullptr; attr = attr->next) use(attr->ns);
    return true;
  });
  return missing;
}

// The declarations of the element's ancestors that its subtree uses. The
// nearest declaration of each prefix is a candidate; the walk that looks for
// uses stops once all candidates are used, and after a bounded number of
// elements the candidates not yet seen are declared anyway, so that a large
// subtree costs little more than its serialisation.
std::vector<xmlNsPtr> UsedAncestorDeclarations(xmlNodePtr element) {
  std::vector<xmlNsPtr> candidates;
  PrefixSet settled;  // the prefixes the element declares and those of nearer candidates
  settled.insertDeclared(element);
  for (xmlNodePtr up = element->parent; up != nullptr && up->type == XML_ELEMENT_NODE;
       up = up->parent) {
    for (xmlNsPtr ns = up->nsDef; ns != nullptr; ns = ns->next) {
      if (!IsXmlNamespace(ns) && settled.insert(ns->prefix)) candidates.push_back(ns);
    }
  }
  std::vector<xmlNsPtr> used;
  if (candidates.empty()) return used;
  std::unordered_set<const xmlNs*> unused(candidates.begin(), candidates.end());
  constexpr int kWalkBudget = 1024;
  int budget = kWalkBudget;
  auto use = [&](xmlNsPtr ns) {
    if (ns != nullptr && unused.erase(ns) != 0) used.push_back(ns);
  };
  EachElement(element, [&](xmlNodePtr node) {
    use(node->ns);
    for (xmlAttrPtr attr = node->properties; attr != nullptr; attr = attr->next) use(attr->ns);
    return !unused.empty() && --budget > 0;
  });
  if (budget <= 0) {
    for (xmlNsPtr ns : candidates) {
      if (unused.count(ns) != 0) used.push_back(ns);
    }
  }
  return used;
}

// Puts copies of declarations in front of an element's own for the time of
// one serialisation.
class TemporaryDeclarations {
 public:
  TemporaryDeclarations(xmlNodePtr element, const std::vector<xmlNsPtr>& missing)
      : m_element(element), m_saved(element->nsDef), m_copies(missing.size()) {
    if (missing.empty()) return;
    for (size_t i = 0; i < missing.size(); ++i) {
      xmlNs& copy = m_copies[i];
      std::memset(&copy, 0, sizeof copy);
      copy.type = XML_NAMESPACE_DECL;
      copy.href = missing[i]->href;
      copy.prefix = missing[i]->prefix;
      copy.next = i + 1 < missing.size() ? &m_copies[i + 1] : m_saved;
    }
    element->nsDef = &m_copies[0];
  }
  ~TemporaryDeclarations() { m_element->nsDef = m_saved; }
  TemporaryDeclarations(const TemporaryDeclarations&) = delete;
  TemporaryDeclarations& operator=(const TemporaryDeclarations&) = delete;

 private:
  xmlNodePtr m_element;
  xmlNsPtr m_saved;
  std::vector<xmlNs> m_copies;
};

void AppendEscapedAttribute(const xmlChar* text, std::string& out) {
  for (const xmlChar* p = text; p != nullptr && *p != 0; ++p) {
    switch (*p) {
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '&': out += "&amp;"; break;
      case '"': out += "&quot;"; break;
      case '\n': out += "&#10;"; break;
      case '\r': out += "&#13;"; break;
      case '\t': out += "&#9;"; break;
      default: out += static_cast<char>(*p);
    }
  }
}

// The declarations a subtree needs written on its top element: those it
// uses from outside it.
std::vector<xmlNsPtr> ExtraDeclarations(xmlNodePtr node) {
  if (node->type != XML_ELEMENT_NODE) return {};
  if (HasKeptDeclarations(node) && !InDocumentTree(node)) return MissingDeclarations(node);
  if (node->parent != nullptr && node->parent->type == XML_ELEMENT_NODE) {
    return UsedAncestorDeclarations(node);
  }
  return {};
}

void EngineDump(xmlOutputBufferPtr buffer, xmlNodePtr node) {
  const std::vector<xmlNsPtr> missing = ExtraDeclarations(node);
  if (!missing.empty()) {
    TemporaryDeclarations extra(node, missing);
    xmlNodeDumpOutput(buffer, node->doc, node, 0, 0, "UTF-8");
    return;
  }
  xmlNodeDumpOutput(buffer, node->doc, node, 0, 0, "UTF-8");
}

// The engine's text of node into out's buffer; kFail when it reports a fault.
int EngineXml(xmlNodePtr node, void*& buffer, std::string_view& view) {
  QuietEngine quiet;
  Output output(xmlAllocOutputBuffer(nullptr));
  if (!output) throw std::bad_alloc();
  if (IsDocumentNode(node)) {
    bool first = true;
    for (xmlNodePtr child = FirstChild(node); child != nullptr; child = NextVisible(child)) {
      if (!first) xmlOutputBufferWrite(output.get(), 1, "\n");
      first = false;
      EngineDump(output.get(), child);
    }
  } else {
    EngineDump(output.get(), node);
  }
  if (output->error == XML_ERR_NO_MEMORY) throw std::bad_alloc();
  if (output->error != 0) return kFail;
  const char* text = C(xmlOutputBufferGetContent(output.get()));
  size_t size = xmlOutputBufferGetSize(output.get());
  if (text == nullptr) {
    text = "";
    size = 0;
  }
  view = std::string_view(text, size);
  buffer = output.release();
  return kOk;
}

// Our text of node, appended to text; false when the engine must write it.
bool OwnXml(xmlNodePtr node, AboveBmp form, std::string& text) {
  if (!IsDocumentNode(node)) return WriteXml(node, ExtraDeclarations(node), form, text);
  bool first = true;
  for (xmlNodePtr child = FirstChild(node); child != nullptr; child = NextVisible(child)) {
    if (!first) text += '\n';
    first = false;
    if (!WriteXml(child, ExtraDeclarations(child), form, text)) return false;
  }
  return true;
}

#ifdef TREEKEEPER_ORACLE
// The engine's text in the form asked for, or nothing when the engine
// reported a fault.
std::optional<std::string> EngineText(xmlNodePtr node, AboveBmp form) {
  void* buffer = nullptr;
  std::string_view engine;
  if (EngineXml(node, buffer, engine) != kOk) return std::nullopt;
  const Output owned(static_cast<xmlOutputBufferPtr>(buffer));  // also when the copy throws
  if (form == AboveBmp::kFourBytes) return std::string(engine);
  // The plainest conversion there is, written apart from the serialiser's:
  // the engine's text is well-formed UTF-8.
  std::string pairs;
  for (size_t i = 0; i < engine.size(); ++i) {
    const auto byte = [&](size_t k) { return static_cast<unsigned>(engine[i + k]) & 0xFFu; };
    if (byte(0) < 0xF0) {
      pairs += engine[i];
      continue;
    }
    const unsigned code = ((byte(0) & 7) << 18 | (byte(1) & 63) << 12 | (byte(2) & 63) << 6 |
                           (byte(3) & 63)) - 0x10000;
    for (const unsigned unit : {0xD800 + (code >> 10), 0xDC00 + (code & 0x3FF)}) {
      pairs += static_cast<char>(0xE0 | unit >> 12);
      pairs += static_cast<char>(0x80 | (unit >> 6 & 63));
      pairs += static_cast<char>(0x80 | (unit & 63));
    }
    i += 3;
  }
  return pairs;
}

// The engine loses text without a word when an allocation fails inside its
// buffers, so a difference counts only when a second run of the engine
// writes the same as the first.
void CheckAgainstEngine(xmlNodePtr node, AboveBmp form, std::string_view own) {
  const std::optional<std::string> engine = EngineText(node, form);
  if (!engine || *engine == own) return;
  const std::optional<std::string> again = EngineText(node, form);
  if (!again || *again != *engine) return;
  std::fprintf(stderr, "serialiser differs from the engine\nours:   %.*s\nengine: %s\n",
               static_cast<int>(own.size()), own.data(), engine->c_str());
  std::abort();
}
#endif

}  // namespace

XmlText::~XmlText() { reset(); }

void XmlText::reset() {
  if (m_buffer != nullptr) xmlOutputBufferClose(static_cast<xmlOutputBufferPtr>(m_buffer));
  m_buffer = nullptr;
  m_own.clear();
  m_view = {};
}

int Node::get_xml(std::string& out) const {
  XmlText text;
  const int status = get_xml(text);
  out.assign(text.view());
  return status;
}

int Node::get_xml(XmlText& out, AboveBmp form) const {
  out.reset();
  if (m_node == nullptr) return kInvalidArg;
  if (m_ns != nullptr) {
    std::string text;
    AppendName(m_node, m_ns, text);
    text += "=\"";
    AppendEscapedAttribute(m_ns->href, text);
    text += '"';
    if (form == AboveBmp::kSurrogatePairs) {
      AppendSurrogateForm(text, out.m_own);
    } else {
      out.m_own = std::move(text);
    }
    out.m_view = out.m_own;
    return kOk;
  }
  std::string_view text;
  DocBlock* whole = nullptr;
  if (IsDocumentNode(m_node) || (m_node->parent != nullptr && IsDocumentNode(m_node->parent))) {
    whole = BlockOfNode(m_node);
    out.m_own.reserve(whole->lastWholeText + whole->lastWholeText / 8);
  }
  if (OwnXml(m_node, form, out.m_own)) {
    text = out.m_own;
    if (whole != nullptr) whole->lastWholeText = text.size();
#ifdef TREEKEEPER_ORACLE
    CheckAgainstEngine(m_node, form, text);
#endif
  } else {
    out.m_own.clear();
    const int status = EngineXml(m_node, out.m_buffer, text);
    if (status != kOk) return status;
    if (form == AboveBmp::kSurrogatePairs) {
      AppendSurrogateForm(text, out.m_own);
      xmlOutputBufferClose(static_cast<xmlOutputBufferPtr>(std::exchange(out.m_buffer, nullptr)));
      text = out.m_own;
    }
  }
  if (m_node->type == XML_ATTRIBUTE_NODE && !text.empty() && text[0] == ' ') {
    text.remove_prefix(1);  // an attribute is written with its separating blank
  }
  out.m_view = text;
  return kOk;
}

namespace testing {
int EngineXml(const Node& node, std::string& out) {
  xmlNodePtr raw = NodeAccess::Raw(node);
  if (raw == nullptr || NodeAccess::Ns(node) != nullptr) return kInvalidArg;
  void* buffer = nullptr;
  std::string_view text;
  const int status = dom::EngineXml(raw, buffer, text);
  if (status != kOk) return status;
  const Output owned(static_cast<xmlOutputBufferPtr>(buffer));
  if (raw->type == XML_ATTRIBUTE_NODE && !text.empty() && text[0] == ' ') text.remove_prefix(1);
  out.assign(text);
  return status;
}
}  // namespace testing

}  // namespace tk::dom
