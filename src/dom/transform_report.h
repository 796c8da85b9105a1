// What the engine says while it compiles and runs one transformation: its
// error messages and the text of xsl:message, in the order said, kept for
// the caller instead of printed.
//
// The engine reports stylesheet compilation only through a process-wide
// handler, so that handler (installed once at engine set-up) and the
// per-transformation ones all append to the ReportScope active on the
// calling thread, and drop the text when there is none.
#pragma once

#include <libxml/xmlerror.h>

#include <string>

namespace tk::dom {

class ReportScope {
 public:
  // sink may be null: the engine's text is then dropped.
  explicit ReportScope(std::string* sink);
  ~ReportScope();
  ReportScope(const ReportScope&) = delete;
  ReportScope& operator=(const ReportScope&) = delete;

  // Adds a line of the library's own (a reason the engine never saw).
  static void Say(const char* line);

 private:
  std::string* m_sink;  // the sink and state of the scope this one stands in for
  bool m_cut;
};

// The engine's handlers: printf-style text, and structured XPath errors.
void ReportXsltText(void* context, const char* format, ...);
void ReportXPathError(void* context, xmlErrorPtr error);

}  // namespace tk::dom
