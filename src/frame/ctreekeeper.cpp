#include "frame/ctreekeeper.h"

#include <cstring>

#include "frame/arb_exception.h"
#include "frame/debug_output.h"

namespace tk {

CTreeKeeper::CTreeKeeper() {
  const int init = dom::InitThread();
  if (init < 0) {
    throw new CArbException(outputstr("Error CoInitialize"), 0, ".\\CTreeKeep", 390,
                            "ArbException");
  }
  m_initialised = true;
  if (dom::Document::Create(m_document) < 0) {
    // Undo the thread set-up made above: the destructor that pairs it won't run.
    dom::UninitThread();
    m_initialised = false;
    throw new CArbException(outputstr("CoCreateInstance failed"), 0, ".\\CTreeKeep", 396,
                            "ArbException");
  }
}

CTreeKeeper::~CTreeKeeper() {
  CTreeKeeper::CloseAllElements();
  m_root.reset();
  m_document.reset();
  if (m_initialised) dom::UninitThread();
}

void CTreeKeeper::CloseAllElements() {
  LockGuard guard(m_lock);
  m_table.releaseAll();
  m_sourceName.reset();
}

uint64_t CTreeKeeper::GetHandleCount() { return m_table.length(); }

void CTreeKeeper::SetSourceName(const char* name) {
  const size_t length = std::strlen(name);
  std::unique_ptr<char[]> copy(new char[length + 1]);
  std::memcpy(copy.get(), name, length + 1);
  m_sourceName = std::move(copy);
}

// Forwarding entries: each calls the full operation through the interface and
// takes no lock of its own.

int CTreeKeeper::CloseElementHandle(unsigned handle) {
  return static_cast<ITreeKeeper*>(this)->CloseElement(handle);
}

int CTreeKeeper::GetElementValue(unsigned handle, const char* path, int type, unsigned* size,
                                 void* buffer) {
  return static_cast<ITreeKeeper*>(this)->GetElementValue(handle, path, type, size, buffer, 65001);
}

int CTreeKeeper::OpenElement(unsigned handle, unsigned index, unsigned* outHandle) {
  // Nowhere to put the handle: open nothing the client could never close.
  if (outHandle == nullptr) return -102;
  const unsigned opened = static_cast<ITreeKeeper*>(this)->OpenElement(handle, index);
  *outHandle = opened;
  return opened != 0 ? 0 : -102;
}

int CTreeKeeper::EnumElement(unsigned handle, const char* path, unsigned* ioIndex,
                             unsigned* outHandle) {
  const int result =
      static_cast<ITreeKeeper*>(this)->EnumElement(handle, path, nullptr, ioIndex, outHandle);
  if (outHandle == nullptr && result == 0) return -110;
  return result;
}

int CTreeKeeper::EnumAttribute(unsigned handle, const char* path, unsigned* ioIndex,
                               outputstr& name, outputstr& value) {
  return static_cast<ITreeKeeper*>(this)->EnumAttribute(handle, path, ioIndex, name, value, 65001);
}

}  // namespace tk
