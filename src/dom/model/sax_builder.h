// Building the library's own model from the engine's SAX2 events.
//
// The engine still reads the bytes and decides everything about them; this
// builder only stands where the engine's own tree builder stood, and builds
// the tree that builder would have built, in a store. Where the engine's
// parser reads the tree under construction (to decide which white space to
// drop, and for the depth bound) it is shown stand-in nodes of the shape the
// engine's tree would have. Documents with a document type are left to the
// engine's tree: their entities are copied as subtrees, without events.
#pragma once

#include <libxml/parser.h>

#include <array>
#include <string>
#include <vector>

#include "dom/model/store.h"

namespace tk::dom::model {

class SaxBuilder {
 public:
  explicit SaxBuilder(Store& store) : m_store(store) {}
  ~SaxBuilder();
  SaxBuilder(const SaxBuilder&) = delete;
  SaxBuilder& operator=(const SaxBuilder&) = delete;

  // Takes the tree-building events of ctxt, after its options are set.
  void install(xmlParserCtxtPtr ctxt);
  // True when the document is one the builder leaves to the engine's tree;
  // the parse was stopped.
  bool leftToEngine() const { return m_leftToEngine; }
  // Ends the build after a parse that succeeded.
  void finish();

 private:
  // An element being built (the first is the document).
  struct Open {
    NodeRef element;
    NodeRef lastAttribute;
    NodeRef lastChild;  // its first child's `prev` is set when the element ends
  };

  static SaxBuilder& Of(void* context);
  static void StartElement(void* context, const xmlChar* localname, const xmlChar* prefix,
                           const xmlChar* uri, int namespaceCount, const xmlChar** namespaces,
                           int attributeCount, int defaultedCount, const xmlChar** attributes);
  static void EndElement(void* context, const xmlChar* localname, const xmlChar* prefix,
                         const xmlChar* uri);
  static void Characters(void* context, const xmlChar* text, int length);
  static void DroppedBlanks(void* context, const xmlChar* text, int length);
  static void CData(void* context, const xmlChar* text, int length);
  static void Comment(void* context, const xmlChar* text);
  static void Instruction(void* context, const xmlChar* target, const xmlChar* data);
  static void Reference(void* context, const xmlChar* name);
  static void InternalSubset(void* context, const xmlChar* name, const xmlChar* externalId,
                             const xmlChar* systemId);
  static void StartDocument(void* context);
  static void EndDocument(void* context);

  void startElement(const xmlChar* localname, const xmlChar* prefix, const xmlChar* uri,
                    int namespaceCount, const xmlChar** namespaces, int attributeCount,
                    const xmlChar** attributes);
  void endElement();
  // Appends a declaration or attribute to the open element's list.
  void linkAttribute(NodeRef ref);
  // Appends a child to the open element (or the document).
  void appendChild(NodeRef ref);
  // Makes the first child's `prev` name the last, as the store has it.
  void closeChildren(const Open& open);
  void text(Kind kind, const xmlChar* text, int length);
  void leaf(Kind kind, NodeRef ref);
  void flushText();
  void giveUp();
  // The declaration a prefix is bound to where the element `from` stands, or 0.
  NodeRef lookup(NodeRef from, NameRef prefix) const;
  NodeRef xmlDeclaration();
  // Shows the parser the shape the engine's tree has at the open element.
  void showChild(Kind kind);
  // The name the parser's dictionary holds at `name`, interned: the parser
  // gives each distinct name one address, so most lookups compare it alone.
  NameRef nameOf(const xmlChar* name);

  Store& m_store;
  xmlParserCtxtPtr m_ctxt = nullptr;
  std::vector<Open> m_open;
  // One per open element, as the parser sees it: it keeps their addresses,
  // so the vector is made once, as deep as the parser goes.
  std::vector<xmlNode> m_standIns;
  size_t m_depth = 0;  // elements open
  struct CachedName {
    const xmlChar* address = nullptr;
    NameRef ref = 0;
  };
  std::array<CachedName, 256> m_names{};
  // Text and CDATA arrive in pieces, kept open in the store until whole.
  NodeRef m_pending = 0;
  NodeRef m_xml = 0;  // the declaration of the xml prefix, made when first used
  bool m_leftToEngine = false;
};

}  // namespace tk::dom::model
