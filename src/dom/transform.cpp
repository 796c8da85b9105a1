// Transformation through a stylesheet.
#include "dom/document_object.h"

namespace tk::dom {

int Document::transformNodeToObject(const Node&, const Document&, Document&) { return kFail; }

}  // namespace tk::dom
