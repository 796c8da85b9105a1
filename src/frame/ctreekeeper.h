// CTreeKeeper: the one implementation of the instance interface. Its
// operations are defined in the folder of the subsystem they belong to.
#pragma once

#include <memory>
#include <string>

#include <treekeeper/treekeeper.h>

#include "dom/dom.h"
#include "elements/element_table.h"
#include "elements/same_name_memo.h"
#include "frame/lock.h"

namespace tk {

class CTreeKeeper final : public ITreeKeeperXsltReport {
 public:
  CTreeKeeper();  // raises CArbException* when the engine can't be set up
  ~CTreeKeeper() override;

  void CloseAllElements() override;
  int CreateEmpty(const char* rootName) override;
  int ExportToFile(const char* fileName) override;
  int ExportToStream(outputstr& out) override;
  int ExportSubTreeToFile(unsigned handle, const char* fileName) override;
  int ExportSubTreeToStream(unsigned handle, outputstr& out) override;
  int ImportFromFile(const char* fileName) override;
  int ImportFromStream(const char* text, int size, const char* name) override;
  unsigned OpenElement(unsigned handle, unsigned index) override;
  unsigned OpenElement(const char* path) override;
  int OpenElement(unsigned handle, unsigned index, unsigned* outHandle,
                  unsigned* outNodeType) override;
  int CloseElementHandle(unsigned handle) override;
  int EnumElement(unsigned handle, unsigned* outCount) override;
  int CloseElement(unsigned handle) override;
  int CreateElement(unsigned handle, const char* path, unsigned* outHandle) override;
  int GetElementName(unsigned handle, char* buffer, unsigned* ioSize) override;
  int DeleteElement(unsigned handle, const char* path) override;
  int DeleteAttribute(unsigned handle, const char* path, const char* name) override;
  int GetElementValue(unsigned handle, const char* path, int type, unsigned* size, void* buffer,
                      unsigned codePage) override;
  int GetElementValue(unsigned handle, const char* path, int type, unsigned* size,
                      void* buffer) override;
  int SetElementValue(unsigned handle, const char* path, int type, unsigned size,
                      const void* data) override;
  int GetElementCDATAValue(unsigned handle, const char* path, int type, unsigned* size,
                           void* buffer) override;
  int SetElementCDATAValue(unsigned handle, const char* path, int type, unsigned size,
                           const void* data) override;
  int GetAttributeValue(unsigned handle, const char* path, const char* name, int type,
                        unsigned* size, void* buffer) override;
  int setAttributeValue(unsigned handle, const char* path, const char* name, int type,
                        unsigned size, const void* data) override;
  int EnumElement(unsigned handle, const char* path, unsigned* ioIndex,
                  unsigned* outHandle) override;
  int EnumElement(unsigned handle, const char* path, const char* name, unsigned* ioIndex,
                  unsigned* outHandle) override;
  int OpenElement(unsigned handle, unsigned index, unsigned* outHandle) override;
  int EnumAttribute(unsigned handle, const char* path, unsigned* ioIndex, char* buffer,
                    unsigned* ioSize) override;
  int EnumAttribute(unsigned handle, const char* path, unsigned* ioIndex, outputstr& name,
                    outputstr& value, unsigned codePage) override;
  int EnumAttribute(unsigned handle, const char* path, unsigned* ioIndex, outputstr& name,
                    outputstr& value) override;
  int GetAttributeText(unsigned handle, const char* path, const char* name,
                       outputstr& out) override;
  uint64_t GetHandleCount() override;

  int ApplyXSLT(const char* stylesheet, int size) override;
  int SetXsltBudget(uint32_t milliseconds, uint64_t bytes) override;
  int GetXsltReport(outputstr& out) override;

 private:
  // Stores a copy of name as the source name (null or "" clears nothing: the
  // callers decide when to call).
  void SetSourceName(const char* name);
  // The write of SetElementValue and SetElementCDATAValue, for text (3) or
  // CDATA (4) children.
  int SetChildValue(int childType, unsigned handle, const char* path, int type, unsigned size,
                    const void* data);

  CCoreRtCriticalSectionEx m_lock;
  dom::Document m_document;
  dom::WeakNode m_root;  // names table entry 0's node; holds no reference
  std::unique_ptr<char[]> m_sourceName;
  bool m_initialised = false;
  ElementTable m_table;
  SameNameMemo m_sameNames;  // of the last same-name enumeration
  dom::TransformBudget m_xsltBudget;
  std::string m_xsltReport;  // what the engine said during the last ApplyXSLT
};

}  // namespace tk
