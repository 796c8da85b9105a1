// The fault raised while an instance is being constructed. Thrown by pointer;
// whoever catches it disposes of it with Delete().
#pragma once

#include <treekeeper/treekeeper.h>

namespace tk {

class CArbException {
 public:
  CArbException(const outputstr& reason, int reasonCode, const char* file, unsigned line,
                const char* name);
  virtual ~CArbException();
  virtual void Delete();

  const char* GetName() const { return m_name.text(); }
  const char* GetReason() const { return m_reason.text(); }
  int GetReasonCode() const { return m_reasonCode; }
  const char* GetFile() const { return m_file.text(); }
  unsigned GetLine() const { return m_line; }

  // "=======EXCEPTION: <name> ==== [\nFILE:<file>:<line>]\nReason Code: <code>, Reason:<reason>"
  outputstr Report(int withFile) const;

 private:
  outputstr m_reason;
  int m_reasonCode;
  outputstr m_file;
  unsigned m_line;
  outputstr m_name;
};

}  // namespace tk
