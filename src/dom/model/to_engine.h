// The library's own model as an engine tree: what a transformation reads.
#pragma once

#include <libxml/tree.h>

#include "dom/model/store.h"

namespace tk::dom::model {

// A new engine document holding the store's tree, or null when memory ran
// out. Prefixes keep the declarations they were bound to, unbound names stay
// whole, and text written unescaped stays so.
xmlDocPtr ToEngineDocument(const Store& store);

}  // namespace tk::dom::model
