// The engine's tree as a store of the library's own model.
#pragma once

#include <libxml/tree.h>

#include "dom/model/store.h"

namespace tk::dom::model {

// Copies what a document shows (its elements, text, CDATA sections, comments
// and processing instructions, not its document type) into an empty store.
// False when the tree holds what the model does not: entity references, or a
// document type naming an XHTML DTD.
bool CopyDocument(const xmlDoc* doc, Store& store);

}  // namespace tk::dom::model
