#include <string>

#include "content/child_value.h"
#include "content/value_text.h"
#include "document/codepage.h"
#include "elements/path.h"
#include "frame/ctreekeeper.h"
#include "frame/debug_output.h"

// Element values: the text children of an element.
namespace tk {

int CTreeKeeper::GetElementValue(unsigned handle, const char* path, int type, unsigned* size,
                                 void* buffer, unsigned codePage) {
  LockGuard guard(m_lock);
  const dom::Node* start = m_table.live(handle);
  if (start == nullptr) {
    Report("GetElementValue: element handle is invalid");
    return -6;
  }
  const dom::NodePtr element = WalkPath(start->ptr(), path);
  if (!element) return -102;
  // UTF-8 converts plainly; any other code page gets no best-fit letters.
  const TextReadForm form{codePage, codePage == cp::kUtf8 ? 0u : cp::kNoBestFitChars};
  return ReadChildValue(element, dom::kText, type, size, buffer, form);
}

int CTreeKeeper::SetElementValue(unsigned handle, const char* path, int type, unsigned size,
                                 const void* data) {
  return SetChildValue(dom::kText, handle, path, type, size, data);
}

int CTreeKeeper::SetChildValue(int childType, unsigned handle, const char* path, int type,
                               unsigned size, const void* data) {
  LockGuard guard(m_lock);
  const dom::Node* start = m_table.live(handle);
  if (start == nullptr) return -6;
  const dom::NodePtr element = WalkPath(start->ptr(), path);
  if (!element) return -102;
  std::string valueText;
  if (BuildValueText(type, size, data, TextExtent::kSizeBytes, valueText) < 0) return -1;
  return WriteChildValue(m_document, element, childType, valueText);
}

}  // namespace tk
