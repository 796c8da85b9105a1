// ApplyXSLT: the document through a stylesheet held in memory, all or nothing.
#include "document/import.h"
#include "frame/ctreekeeper.h"
#include "frame/debug_output.h"

namespace tk {

// Takes no lock of its own: only the CloseAllElements of the swap does, for
// its own length. The caller keeps other threads off the instance throughout.
//
// The stylesheet and the result live in documents of their own, and nothing
// of the instance changes until the result stands; a failure on the way gives
// -1 with no message (the stylesheet's parse error and the transformation's
// error are not looked at), except where the budget ran out.
int CTreeKeeper::ApplyXSLT(const char* stylesheet, int /*size: the text ends at its NUL*/) {
  // Trailing closed slots go first, even when the call then fails.
  m_table.trimTrailingClosed();
  m_xsltReport.clear();

  // The transformation starts from the root element, also the free-standing
  // root of CreateEmpty that no document holds.
  const dom::Node root = m_root.lock();
  if (!root || !m_document) {
    Report("ApplyXSLT: root element is invalid");
    return -1;
  }
  // After the trim, a second entry means a live handle at the table's end.
  if (m_table.length() >= 2) {
    Report("ApplyXSLT: open handles present");
    return -1;
  }

  dom::Document sheet;
  if (dom::Document::Create(sheet) < 0) return -1;
  if (LoadFromText(sheet, stylesheet) < 0) return -1;
  dom::Document result;
  if (dom::Document::Create(result) < 0) return -1;
  const int transformed =
      dom::Document::transformNodeToObject(root, sheet, result, m_xsltBudget, &m_xsltReport);
  if (transformed == dom::kOutOfTime) Report("ApplyXSLT: time budget exceeded");
  if (transformed == dom::kOutOfMemory) Report("ApplyXSLT: memory budget exceeded");
  if (transformed < 0) return -1;
  dom::Node element;
  if (result.get_documentElement(element) < 0) return -1;

  // The swap: every handle ends, the old document goes, and the result's
  // element is the root at handle 100. A result without an element leaves no
  // root and a closed slot at index 0, which every later call treats as such.
  static_cast<ITreeKeeper*>(this)->CloseAllElements();
  m_document = std::move(result);
  m_root.assign(element);
  m_table.append(std::move(element));
  return 0;
}

int CTreeKeeper::GetXsltReport(outputstr& out) {
  LockGuard guard(m_lock);
  out = m_xsltReport.c_str();
  return 0;
}

int CTreeKeeper::SetXsltBudget(uint32_t milliseconds, uint64_t bytes) {
  LockGuard guard(m_lock);
  m_xsltBudget.milliseconds = milliseconds;
  m_xsltBudget.bytes = bytes;
  return 0;
}

}  // namespace tk
