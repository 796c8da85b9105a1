// The library's own serialiser: a node and its subtree as UTF-8 XML text,
// written in one pass into one string.
//
// It writes what the engine's serialiser writes for the same tree, byte for
// byte, with no declaration, no layout and UTF-8 kept as it is: empty
// elements as <a/>, attributes in double quotes, declarations before
// attributes, "]]>" inside CDATA split across two sections, and the engine's
// escapes in text (& < > CR) and in attribute values (& < > " TAB LF CR).
// Trees it does not cover, which are rare, are left to the engine: nodes of
// kinds our trees hold only in a document type, documents that declare an
// XHTML document type (the engine writes those in a style of their own), and
// attributes of a document that names no encoding (ours always name one).
#pragma once

#include <libxml/tree.h>

#include <string>
#include <string_view>
#include <vector>

#include "dom/dom.h"

namespace tk::dom {

// Appends top (an element, text, CDATA, comment, processing instruction,
// entity reference or attribute) and its subtree to out, characters above
// U+FFFF in the form asked for. extra are declarations written on top,
// before its own. False, with out as it was, when the tree is one the engine
// must write.
bool WriteXml(const xmlNode* top, const std::vector<xmlNsPtr>& extra, AboveBmp form,
              std::string& out);

// Appends utf8 with each character above U+FFFF as its surrogate pair.
void AppendSurrogateForm(std::string_view utf8, std::string& out);

}  // namespace tk::dom
