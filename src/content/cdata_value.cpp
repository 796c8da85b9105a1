#include <string>

#include "content/child_value.h"
#include "content/value_text.h"
#include "document/codepage.h"
#include "elements/path.h"
#include "frame/ctreekeeper.h"
#include "frame/debug_output.h"

// CDATA values: the CDATA sections of an element. Text reads are UTF-8 always.
namespace tk {

int CTreeKeeper::GetElementCDATAValue(unsigned handle, const char* path, int type,
                                      unsigned* size, void* buffer) {
  LockGuard guard(m_lock);
  if (!m_table.inRange(handle)) return -6;
  const dom::Node* start = m_table.live(handle);
  if (start == nullptr) {
    Report("GetElementCDATAValue: element handle is invalid");
    return -6;
  }
  const dom::NodePtr element = WalkPath(start->ptr(), path);
  if (!element) {
    Report("GetElementCDATAValue: element path is invalid");
    return -102;
  }
  return ReadChildValue(element, dom::kCData, type, size, buffer, TextReadForm{cp::kUtf8, 0});
}

int CTreeKeeper::SetElementCDATAValue(unsigned handle, const char* path, int type,
                                      unsigned size, const void* data) {
  return SetChildValue(dom::kCData, handle, path, type, size, data);
}

}  // namespace tk
