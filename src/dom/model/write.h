// The serialiser of the library's own model: the same bytes the serialiser
// of the engine's tree writes for the same document.
#pragma once

#include <string>

#include "dom/dom.h"
#include "dom/model/store.h"

namespace tk::dom::model {

// Appends top and its subtree to out (top being the document: its children,
// one line each), characters above U+FFFF in the form asked for.
void WriteXml(const Store& store, NodeRef top, AboveBmp form, std::string& out);

}  // namespace tk::dom::model
