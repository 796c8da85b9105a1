// xslt: the document as a stylesheet transforms it.
#include <climits>

#include "commands.h"
#include "errors.h"
#include "file_output.h"
#include "stderr_capture.h"

namespace tkcli {
namespace {

std::string FirstLine(const std::string& text) {
  const size_t begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string::npos) return {};
  return text.substr(begin, text.find_first_of("\r\n", begin) - begin);
}

}  // namespace

void RunXslt(const XsltArgs& args, const GlobalOptions& global) {
  if (args.file == "-" && args.stylesheet == "-") {
    throw CliError(kUsage, "FILE and STYLESHEET can't both be standard input");
  }
  Document document;
  document.Load(args.file);
  const std::string stylesheetName = InputName(args.stylesheet);
  const std::string stylesheet = ReadInput(args.stylesheet);
  {
    // The transformation only says that it failed; a stylesheet that is not
    // well-formed is told apart, with its line and column.
    Document check;
    check.LoadBytes(stylesheet, stylesheetName);
  }
  StderrCapture capture;
  const int size = stylesheet.size() < INT_MAX ? static_cast<int>(stylesheet.size()) : INT_MAX;
  const int result = TkXslt(document.tk())->ApplyXSLT(stylesheet.c_str(), size);
  const std::string reason = FirstLine(capture.Finish());
  if (result != 0) {
    throw CliError(kFailed, stylesheetName + ": the transformation failed" +
                                (reason.empty() ? "" : ": " + reason));
  }
  if (document->OpenElement("") != kRootHandle) {
    throw CliError(kFailed, stylesheetName + ": the transformation made no root element");
  }
  WriteOutput(args.output.empty() ? "-" : args.output, document.Render(kRootHandle, global.crlf));
}

}  // namespace tkcli
