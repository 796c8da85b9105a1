// Transformation through a stylesheet into a fresh document.
//
// The stylesheet runs in a sandbox: it can't read or write files, make
// directories, reach the network or load code, and a stylesheet that imports
// or includes another one, or declares extension namespaces, is refused
// before it is compiled. What the engine says (its errors, the text of
// xsl:message) goes to the caller's report, never to a stream.
#include <libxslt/security.h>
#include <libxslt/transform.h>
#include <libxslt/xslt.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>

#include <memory>
#include <new>

#include "dom/document_object.h"
#include "dom/transform_budget.h"
#include "dom/transform_extensions.h"
#include "dom/transform_report.h"

namespace tk::dom {
namespace {

const xmlChar kXsltNamespace[] = "http://www.w3.org/1999/XSL/Transform";


// Calls visit on every node below top, depth first.
template <typename Visit>
void EachNode(xmlNodePtr top, Visit visit) {
  xmlNodePtr node = top;
  while (node != nullptr) {
    visit(node);
    if (node->type == XML_ELEMENT_NODE) {
      for (xmlAttrPtr attr = node->properties; attr != nullptr; attr = attr->next) {
        visit(reinterpret_cast<xmlNodePtr>(attr));
      }
    }
    if (node->children != nullptr &&
        (node->type == XML_ELEMENT_NODE || node->type == XML_DOCUMENT_NODE ||
         node->type == XML_HTML_DOCUMENT_NODE)) {
      node = node->children;
      continue;
    }
    while (node != top && node->next == nullptr) node = node->parent;
    if (node == top) break;
    node = node->next;
  }
}

// The element levels of the subtree at top (top counted when it is an
// element), without recursion; the walk stops once it finds more than limit.
int ElementLevels(const xmlNode* top, int limit) {
  auto levelOf = [](const xmlNode* node) { return node->type == XML_ELEMENT_NODE ? 1 : 0; };
  int level = levelOf(top);  // elements from top down to node
  int deepest = level;
  const xmlNode* node = top;
  while (deepest <= limit) {
    if (HasChildList(node) && node->children != nullptr) {
      node = node->children;
    } else {
      while (node != top && node->next == nullptr) {
        level -= levelOf(node);
        node = node->parent;
      }
      if (node == top) break;
      level -= levelOf(node);
      node = node->next;
    }
    level += levelOf(node);
    if (level > deepest) deepest = level;
  }
  return deepest;
}

bool ReadsOtherStylesheets(xmlDocPtr doc) {
  bool found = false;
  EachNode(reinterpret_cast<xmlNodePtr>(doc), [&found](xmlNodePtr node) {
    if (node->type == XML_ELEMENT_NODE && node->ns != nullptr &&
        xmlStrEqual(node->ns->href, kXsltNamespace) &&
        (xmlStrEqual(node->name, X("import")) || xmlStrEqual(node->name, X("include")))) {
      found = true;
    }
  });
  return found;
}

// The engine's tree copy leaves out, without a word, a node, attribute,
// declaration, name or text whose allocation failed, and gives back what it
// has. Two trees match when a walk of each in step meets the same kinds of
// node, each with a name and a text where the other has one, the same
// declarations and the same attributes.
bool SameText(const xmlChar* a, const xmlChar* b) { return (a == nullptr) == (b == nullptr); }

// extraAllowed: the copy of a lone subtree may declare on its top element a
// namespace that the original took from above.
bool SameDeclarations(xmlNsPtr a, xmlNsPtr b, bool extraAllowed = false) {
  for (; a != nullptr && b != nullptr; a = a->next, b = b->next) {
    if (!SameText(a->href, b->href) || !SameText(a->prefix, b->prefix)) return false;
  }
  return a == nullptr && (b == nullptr || extraAllowed);
}

bool SameNode(const xmlNode* a, const xmlNode* b, bool top) {
  if (a->type != b->type || !SameText(a->name, b->name) ||
      (a->ns == nullptr) != (b->ns == nullptr)) {
    return false;
  }
  if (a->type == XML_ATTRIBUTE_NODE) {
    // The value: a short list of text (or entity reference) children.
    const xmlNode* x = a->children;
    const xmlNode* y = b->children;
    for (; x != nullptr && y != nullptr; x = x->next, y = y->next) {
      if (x->type != y->type || !SameText(x->content, y->content)) return false;
    }
    return x == nullptr && y == nullptr;
  }
  if (a->type != XML_ELEMENT_NODE) return SameText(a->content, b->content);
  if (!SameDeclarations(a->nsDef, b->nsDef, top)) return false;
  const xmlAttr* x = a->properties;
  const xmlAttr* y = b->properties;
  for (; x != nullptr && y != nullptr; x = x->next, y = y->next) {
    if (!SameNode(reinterpret_cast<const xmlNode*>(x), reinterpret_cast<const xmlNode*>(y),
                  false)) {
      return false;
    }
  }
  return x == nullptr && y == nullptr;
}

// Walks both subtrees in step, without recursion (trees may be very deep).
bool SameTree(const xmlNode* a, const xmlNode* b) {
  const xmlNode* const topA = a;
  while (true) {
    if (!SameNode(a, b, a == topA)) return false;
    if (HasChildList(a) && (a->children != nullptr || b->children != nullptr)) {
      if (a->children == nullptr || b->children == nullptr) return false;
      a = a->children;
      b = b->children;
      continue;
    }
    while (a != topA && a->next == nullptr) {
      if (b->next != nullptr) return false;
      a = a->parent;
      b = b->parent;
    }
    if (a == topA) return true;
    if (b->next == nullptr) return false;
    a = a->next;
    b = b->next;
  }
}

// Throws std::bad_alloc unless copy is a whole copy of source.
void ExpectWholeCopy(const xmlNode* source, const xmlNode* copy) {
  if (copy == nullptr || !SameTree(source, copy)) throw std::bad_alloc();
}

void ExpectWholeCopy(const xmlDoc* source, const xmlDoc* copy) {
  if (copy == nullptr || !SameText(source->version, copy->version) ||
      !SameText(source->encoding, copy->encoding) || !SameText(source->URL, copy->URL) ||
      (source->intSubset == nullptr) != (copy->intSubset == nullptr) ||
      !SameDeclarations(source->oldNs, copy->oldNs)) {
    throw std::bad_alloc();
  }
  ExpectWholeCopy(reinterpret_cast<const xmlNode*>(source),
                  reinterpret_cast<const xmlNode*>(copy));
}

// The engine may copy nodes together with their _private field, which here
// holds reference counts: a tree new to us starts with none.
void ClearCounts(xmlDocPtr doc) {
  EachNode(reinterpret_cast<xmlNodePtr>(doc), [doc](xmlNodePtr node) {
    if (node != reinterpret_cast<xmlNodePtr>(doc)) node->_private = nullptr;
  });
}

struct StylesheetCloser {
  void operator()(xsltStylesheetPtr style) const { xsltFreeStylesheet(style); }
};
struct ContextCloser {
  void operator()(xsltTransformContextPtr ctxt) const { xsltFreeTransformContext(ctxt); }
};
struct PrefsCloser {
  void operator()(xsltSecurityPrefsPtr prefs) const { xsltFreeSecurityPrefs(prefs); }
};
struct DocCloser {
  void operator()(xmlDocPtr doc) const { xmlFreeDoc(doc); }
};
using DocOwner = std::unique_ptr<xmlDoc, DocCloser>;

// Compiles a copy of the stylesheet document (compilation takes the tree
// over and changes it).
std::unique_ptr<xsltStylesheet, StylesheetCloser> Compile(xmlDocPtr source) {
  if (xmlDocGetRootElement(source) == nullptr) {
    ReportScope::Say("the stylesheet has no element");
    return nullptr;
  }
  if (ReadsOtherStylesheets(source)) {
    ReportScope::Say("the stylesheet imports or includes another one, which is not allowed");
    return nullptr;
  }
  if (DeclaresExtensions(source)) {
    ReportScope::Say("the stylesheet declares extension namespaces, which is not allowed");
    return nullptr;
  }
  DocOwner copy(xmlCopyDoc(source, 1));
  if (!copy) throw std::bad_alloc();
  copy->_private = nullptr;
  ExpectWholeCopy(source, copy.get());
  ClearCounts(copy.get());
  std::unique_ptr<xsltStylesheet, StylesheetCloser> style(xsltNewStylesheet());
  if (!style) throw std::bad_alloc();
  // Expressions that don't compile are reported to this context alone.
  if (style->xpathCtxt != nullptr) style->xpathCtxt->error = ReportXPathError;
  ForeignTopLevelAside aside(copy.get());
  const int parsed = xsltParseStylesheetUser(style.get(), copy.get());
  aside.restore();
  if (parsed != 0) return nullptr;
  copy.release();  // the stylesheet owns it now
  if (style->errors != 0) style.reset();
  return style;
}

std::unique_ptr<xsltSecurityPrefs, PrefsCloser> Sandbox() {
  std::unique_ptr<xsltSecurityPrefs, PrefsCloser> prefs(xsltNewSecurityPrefs());
  if (!prefs) throw std::bad_alloc();
  for (xsltSecurityOption option :
       {XSLT_SECPREF_READ_FILE, XSLT_SECPREF_WRITE_FILE, XSLT_SECPREF_CREATE_DIRECTORY,
        XSLT_SECPREF_READ_NETWORK, XSLT_SECPREF_WRITE_NETWORK}) {
    xsltSetSecurityPrefs(prefs.get(), option, xsltSecurityForbid);
  }
  return prefs;
}

// Makes a node that no document holds as its element the single child of a
// scratch document for the time of a transformation, so that "/" is the
// root above it. The node's own doc pointer and its subtree are untouched.
class ScratchRoot {
 public:
  explicit ScratchRoot(xmlNodePtr node) : m_node(node) {
    m_doc = xmlNewDoc(X("1.0"));
    if (m_doc == nullptr) throw std::bad_alloc();
    m_parent = node->parent;
    m_prev = node->prev;
    m_next = node->next;
    node->parent = reinterpret_cast<xmlNodePtr>(m_doc);
    node->prev = node->next = nullptr;
    m_doc->children = m_doc->last = node;
  }
  ~ScratchRoot() {
    m_node->parent = m_parent;
    m_node->prev = m_prev;
    m_node->next = m_next;
    m_doc->children = m_doc->last = nullptr;
    xmlFreeDoc(m_doc);
  }
  ScratchRoot(const ScratchRoot&) = delete;
  ScratchRoot& operator=(const ScratchRoot&) = delete;
  xmlDocPtr doc() const { return m_doc; }

 private:
  xmlNodePtr m_node;
  xmlDocPtr m_doc = nullptr;
  xmlNodePtr m_parent, m_prev, m_next;
};

// The transformation itself, within its budget: null when it failed, with
// budget.status() telling whether the budget ran out.
xmlDocPtr Run(xsltStylesheetPtr style, xmlDocPtr source, BudgetScope& budget) {
  auto prefs = Sandbox();
  std::unique_ptr<xsltTransformContext, ContextCloser> ctxt(
      xsltNewTransformContext(style, source));
  if (!ctxt) throw std::bad_alloc();
  xsltSetTransformErrorFunc(ctxt.get(), nullptr, ReportXsltText);
  if (ctxt->xpathCtxt != nullptr) ctxt->xpathCtxt->error = ReportXPathError;
  if (xsltSetCtxtSecurityPrefs(prefs.get(), ctxt.get()) != 0) return nullptr;
  CloseExtensionLookups(ctxt.get());
  budget.watch(ctxt.get());
  DocOwner result(
      xsltApplyStylesheetUser(style, source, nullptr, nullptr, nullptr, ctxt.get()));
  budget.watch(nullptr);
  if (ctxt->state == XSLT_STATE_ERROR || ctxt->state == XSLT_STATE_STOPPED ||
      budget.status() != kOk) {
    return nullptr;
  }
  return result.release();
}

}  // namespace

int Document::transformNodeToObject(const Node& source, const Document& stylesheet,
                                    Document& result, const TransformBudget& budget,
                                    std::string* report) {
  const auto start = BudgetScope::Clock::now();
  xmlNodePtr node = NodeAccess::Raw(source);
  if (node == nullptr || NodeAccess::Ns(source) != nullptr || stylesheet.m_object == nullptr ||
      node->type == XML_ATTRIBUTE_NODE) {
    return kInvalidArg;  // an attribute can't stand as the child of a root
  }
  // The engine copies and walks trees by recursion, one call or more per
  // level: on a main thread's 8 MB stack its copies end in a crash at about
  // 52,000 levels, and the identity template gives up at its own limit near
  // 1,500. The library's trees are no deeper than kMaxDepth, for which a
  // transformation needs under 256 KB of stack; a deeper tree is refused
  // before the engine sees it.
  ReportScope reportScope(report);
  if (ElementLevels(node, kMaxDepth) > kMaxDepth) {
    ReportScope::Say("the tree is deeper than a transformation may start from");
    return kFail;
  }
  EnsureEngine();
  QuietEngine quiet;
  auto style = Compile(stylesheet.m_object->doc);
  if (!style) return kFail;

  const Node pin(source);  // the source stays while it is read
  xmlDocPtr output = nullptr;
  int spent = kOk;  // what the budget says once the engine ran
  auto run = [&style, &budget, start, &spent](xmlDocPtr from) {
    BudgetScope scope(budget, start);
    xmlDocPtr made = Run(style.get(), from, scope);
    spent = scope.status();
    return made;
  };
  const bool isDocument = IsDocumentNode(node);
  const bool isDocumentElement =
      !isDocument && node->parent != nullptr && node->parent == reinterpret_cast<xmlNodePtr>(node->doc);
  if (style->stripSpaces != nullptr) {
    // Stripping white space edits the tree it runs on, so it runs on a copy.
    DocOwner copy;
    if (isDocument || isDocumentElement) {
      xmlDocPtr original = isDocument ? reinterpret_cast<xmlDocPtr>(node) : node->doc;
      copy.reset(xmlCopyDoc(original, 1));
      if (!copy) throw std::bad_alloc();
      copy->_private = nullptr;
      ExpectWholeCopy(original, copy.get());
    } else {
      copy.reset(xmlNewDoc(X("1.0")));
      if (!copy) throw std::bad_alloc();
      copy->_private = nullptr;
      xmlNodePtr twin = xmlDocCopyNode(node, copy.get(), 1);
      if (twin == nullptr) throw std::bad_alloc();
      xmlAddChild(reinterpret_cast<xmlNodePtr>(copy.get()), twin);
      ExpectWholeCopy(node, twin);
    }
    output = run(copy.get());
  } else if (isDocument) {
    output = run(reinterpret_cast<xmlDocPtr>(node));
  } else if (isDocumentElement) {
    // The element of a document: the document is the root.
    output = run(node->doc);
  } else {
    ScratchRoot scratch(node);
    output = run(scratch.doc());
  }
  if (spent == kOutOfTime) ReportScope::Say("time budget exceeded");
  if (spent == kOutOfMemory) ReportScope::Say("memory budget exceeded");
  if (output == nullptr) return spent != kOk ? spent : kFail;

  DocOwner owned(output);
  // The result becomes a tree of ours: no deeper than the parser reads back.
  if (ElementLevels(reinterpret_cast<xmlNodePtr>(output), kMaxDepth) > kMaxDepth) {
    ReportScope::Say("the result is deeper than a document may be");
    return kFail;
  }
  output->type = XML_DOCUMENT_NODE;  // an html output method still makes an XML tree
  output->_private = nullptr;
  ClearCounts(output);
  std::unique_ptr<Object> object(new Object);
  AdoptDocument(output);
  object->Replace(owned.release());
  NodeAccess::SetObject(result, object.release());
  return kOk;
}

}  // namespace tk::dom
