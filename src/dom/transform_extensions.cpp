// Extensions: the engine's built-ins only, and never its plugin search.
#include "dom/transform_extensions.h"

#include <libxml/hash.h>
#include <libxml/xpathInternals.h>
#include <libxslt/extensions.h>
#include <libxslt/extra.h>
#include <libxslt/xslt.h>

#include "dom/internal.h"

namespace tk::dom {
namespace {

bool IsXslt(const xmlNode* node) {
  return node->ns != nullptr && xmlStrEqual(node->ns->href, XSLT_NAMESPACE);
}

// The next element after node in document order, within top.
xmlNodePtr NextElement(xmlNodePtr node, const xmlNode* top) {
  if (xmlNodePtr child = xmlFirstElementChild(node)) return child;
  for (; node != top; node = node->parent) {
    if (xmlNodePtr next = xmlNextElementSibling(node)) return next;
  }
  return nullptr;
}

bool HasNonBlankText(const xmlAttr* attr) {
  for (const xmlNode* text = attr->children; text != nullptr; text = text->next) {
    if (text->content != nullptr && !xmlIsBlankNode(const_cast<xmlNode*>(text))) return true;
  }
  return false;
}

// The engine's own extension functions: node-set() in three namespaces.
xmlXPathFunction BuiltInFunction(void*, const xmlChar* name, const xmlChar* uri) {
  if (uri == nullptr || !xmlStrEqual(name, X("node-set"))) return nullptr;
  for (const xmlChar* ns : {XSLT_LIBXSLT_NAMESPACE, XSLT_SAXON_NAMESPACE, XSLT_XT_NAMESPACE}) {
    if (xmlStrEqual(uri, ns)) return xsltFunctionNodeSet;
  }
  return nullptr;
}

// The engine's own extension elements.
bool IsBuiltInElement(const xmlChar* name, const xmlChar* uri) {
  const struct {
    const char* name;
    const xmlChar* uri;
  } builtIn[] = {{"debug", XSLT_LIBXSLT_NAMESPACE},
                 {"output", XSLT_SAXON_NAMESPACE},
                 {"write", XSLT_XALAN_NAMESPACE},
                 {"document", XSLT_XT_NAMESPACE},
                 {"document", XSLT_NAMESPACE}};
  for (const auto& element : builtIn) {
    if (xmlStrEqual(name, X(element.name)) && xmlStrEqual(uri, element.uri)) return true;
  }
  return false;
}

// element-available(qname): true for the instructions of the transformation
// and the engine's own extension elements. An unprefixed name is in the
// default namespace of the instruction that asks.
void ElementAvailable(xmlXPathParserContextPtr ctxt, int nargs) {
  if (nargs != 1) {
    xmlXPathErr(ctxt, XPATH_INVALID_ARITY);
    return;
  }
  xmlXPathStringFunction(ctxt, 1);
  xmlXPathObjectPtr arg = valuePop(ctxt);
  if (arg == nullptr || arg->type != XPATH_STRING || arg->stringval == nullptr) {
    xmlXPathFreeObject(arg);
    xmlXPathErr(ctxt, XPATH_INVALID_TYPE);
    return;
  }
  xsltTransformContextPtr transform = xsltXPathGetTransformContext(ctxt);
  xmlChar* prefix = nullptr;
  xmlChar* local = xmlSplitQName2(arg->stringval, &prefix);
  const xmlChar* name = local != nullptr ? local : arg->stringval;
  const xmlChar* uri = nullptr;
  if (local != nullptr) {
    uri = xmlXPathNsLookup(ctxt->context, prefix);
  } else if (transform != nullptr && transform->inst != nullptr) {
    const xmlNs* ns = xmlSearchNs(transform->inst->doc, transform->inst, nullptr);
    if (ns != nullptr) uri = ns->href;
  }
  const bool available =
      uri != nullptr && transform != nullptr &&
      ((transform->extElements != nullptr &&
        xmlHashLookup2(transform->extElements, name, uri) != nullptr) ||
       IsBuiltInElement(name, uri));
  xmlFree(local);
  xmlFree(prefix);
  xmlXPathFreeObject(arg);
  valuePush(ctxt, xmlXPathNewBoolean(available ? 1 : 0));
}

}  // namespace

bool DeclaresExtensions(xmlDocPtr stylesheet) {
  const xmlNode* top = xmlDocGetRootElement(stylesheet);
  for (xmlNodePtr node = xmlDocGetRootElement(stylesheet); node != nullptr;
       node = NextElement(node, top)) {
    for (const xmlAttr* attr = node->properties; attr != nullptr; attr = attr->next) {
      // Unqualified on the XSLT elements, in the XSLT namespace elsewhere.
      const bool named = attr->ns != nullptr ? xmlStrEqual(attr->ns->href, XSLT_NAMESPACE)
                                             : IsXslt(node);
      if (named && xmlStrEqual(attr->name, X("extension-element-prefixes")) &&
          HasNonBlankText(attr)) {
        return true;
      }
    }
  }
  return false;
}

ForeignTopLevelAside::ForeignTopLevelAside(xmlDocPtr stylesheet) {
  xmlNodePtr top = xmlDocGetRootElement(stylesheet);
  if (top == nullptr || !IsXslt(top)) return;  // top-level elements are an xsl:stylesheet's
  // Gathered first, taken out afterwards: nothing moves unless all is noted.
  size_t pending = 0;
  for (xmlNodePtr node = xmlFirstElementChild(top); node != nullptr;
       node = xmlNextElementSibling(node)) {
    if (node->ns != nullptr && !IsXslt(node)) {
      m_aside.emplace_back(node, nullptr);
      ++pending;
    } else {
      // Elements stay through compilation; text, comments and the like don't.
      for (; pending > 0; --pending) m_aside[m_aside.size() - pending].second = node;
    }
  }
  m_top = top;
  for (const auto& aside : m_aside) xmlUnlinkNode(aside.first);
}

void ForeignTopLevelAside::restore() {
  for (const auto& [node, before] : m_aside) {
    if (before != nullptr) {
      xmlAddPrevSibling(before, node);
    } else {
      xmlAddChild(m_top, node);
    }
  }
  m_aside.clear();
}

void CloseExtensionLookups(xsltTransformContextPtr ctxt) {
  xmlXPathContextPtr xpath = ctxt->xpathCtxt;
  if (xpath == nullptr) return;
  xmlXPathRegisterFuncLookup(xpath, BuiltInFunction, nullptr);
  // Without the engine's element-available() the name is unknown: that fails
  // the expression rather than search.
  xmlXPathRegisterFunc(xpath, X("element-available"), nullptr);
  xmlXPathRegisterFunc(xpath, X("element-available"), ElementAvailable);
}

}  // namespace tk::dom
