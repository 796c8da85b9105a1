#include "document/export.h"

#include <string>

#include "document/textconv.h"
#include "frame/ctreekeeper.h"
#include "frame/debug_output.h"

namespace tk {

// The client's text is written only through its virtual clear() and append(),
// and only once the node has been serialised.
int OutputNode(outputstr& out, const dom::Node& node) {
  // The serialiser writes the text form itself, and the text is read where
  // it left it.
  dom::XmlText xml;
  if (node.get_xml(xml, dom::AboveBmp::kSurrogatePairs) < 0) {
    Report("outputnode : get_xml error");
    return -1;
  }
  out.clear();
  out.append(kExportDeclaration);
  return AppendTextFormTerminated(xml.view(), out);
}

int CTreeKeeper::ExportToStream(outputstr& out) {
  LockGuard guard(m_lock);
  // A created root dies with its table entry; from then on there is no root.
  const dom::Node root = m_root.lock();
  if (!root) {
    Report("ExportToStream : root NULL error");
    return -1;
  }
  return OutputNode(out, root);
}

int CTreeKeeper::ExportSubTreeToStream(unsigned handle, outputstr& out) {
  LockGuard guard(m_lock);
  const dom::Node* node = m_table.live(handle);
  if (node == nullptr) return -102;
  return OutputNode(out, *node);
}

}  // namespace tk
