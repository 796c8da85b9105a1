// Loading a document's tree from a file or from XML text in memory.
#pragma once

#include <string>

#include "dom/dom.h"

namespace tk {

// Loads the regular file open on fd, named path in its errors, into
// document, synchronously. 0 when it parsed; otherwise a negative status, and
// a parse error is reported on stderr (ReportParseError).
int LoadFromFile(dom::Document& document, int fd, const std::string& path);

// The code of document's last parse error, 0 if it parsed; a failure to get
// the error counts as a failure. A parse error is reported on stderr.
int CheckParseError(const dom::Document& document);

// Prints the parser's reason as it is, then, when the line is known,
// "Error on line L, position P in \"URL\".\n", on stderr.
void ReportParseError(const dom::ParseError& error);

// Loads XML text, the bytes up to its first NUL, into document. The bytes are
// not converted: the text's own byte order mark and declaration decide its
// encoding. Prints nothing. 0, or a negative status. A null text is empty.
int LoadFromText(dom::Document& document, const char* text);

}  // namespace tk
