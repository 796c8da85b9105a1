#include "frame/arb_exception.h"

namespace tk {

CArbException::CArbException(const outputstr& reason, int reasonCode, const char* file,
                             unsigned line, const char* name)
    : m_reason(reason), m_reasonCode(reasonCode), m_file(file), m_line(line), m_name(name) {}

CArbException::~CArbException() = default;

void CArbException::Delete() { delete this; }

outputstr CArbException::Report(int withFile) const {
  outputstr report;
  report.append("=======EXCEPTION: ");
  report.append(m_name.text());
  report.append(" ==== ");
  if (withFile != 0) {
    report.append("\nFILE:");
    report.append(m_file.text());
    report = report + ':' + static_cast<uint32_t>(m_line);
  }
  report.append("\nReason Code: ");
  report = report + m_reasonCode;
  report.append(", Reason:");
  report.append(m_reason.text());
  return report;
}

}  // namespace tk
