// The XML text form of a node: the library's fixed declaration, then the
// node's serialised form in the export encoding.
#pragma once

#include <treekeeper/treekeeper.h>

#include "dom/dom.h"

namespace tk {

inline constexpr char kExportDeclaration[] = "<?xml version='1.0' encoding='UTF-8' ?>\n";

// Fills out with the declaration and node's text. 0; -1 (out untouched when
// the node can't be serialised, the declaration alone when its text is empty).
int OutputNode(outputstr& out, const dom::Node& node);

}  // namespace tk
