// Making new elements for a document.
#pragma once

#include <string_view>

#include "dom/dom.h"

namespace tk {

// Makes an element named `name` (DOM text) with no namespace, in no tree yet.
// On failure reports "CreateDOMNode failed" and returns a null node.
dom::Node CreateDOMNode(dom::Document& document, int nodeType, std::string_view name);

}  // namespace tk
