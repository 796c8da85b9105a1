// xslt: the document as a stylesheet transforms it.
#include <climits>
#include <cstdio>
#include <map>

#include "commands.h"
#include "errors.h"
#include "file_output.h"
#include "paths.h"
#include "xml_text.h"

namespace tkcli {
namespace {

const char kXsltNamespace[] = "http://www.w3.org/1999/XSL/Transform";

// Run on a transformation's result, this ends the transformation on purpose
// when the result is one element, so that the result stays as it is; any
// other result is replaced by a count of the elements and texts at its top.
// Text of white space alone doesn't count, and neither do comments and
// processing instructions, which no document of the tool holds outside its
// element.
const char kOneElementCheck[] =
    "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
    "<xsl:template match='/'><xsl:choose>"
    "<xsl:when test='count(*) = 1 and not(text()[normalize-space()])'>"
    "<xsl:message terminate='yes'/></xsl:when>"
    "<xsl:otherwise><count element='{count(*)}' text='{count(text()[normalize-space()])}'/>"
    "</xsl:otherwise></xsl:choose></xsl:template></xsl:stylesheet>";

// Gathers every top-level node of a result under one element.
const char kGatherFragment[] =
    "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
    "<xsl:template match='/'><fragment><xsl:copy-of select='node()'/></fragment></xsl:template>"
    "</xsl:stylesheet>";


// The lines of text, without empty ones, joined by "; ".
std::string OneLine(const std::string& text) {
  std::string line;
  size_t begin = 0;
  while (begin < text.size()) {
    size_t end = text.find('\n', begin);
    if (end == std::string::npos) end = text.size();
    const size_t first = text.find_first_not_of(" \t\r", begin);
    size_t last = end;
    while (last > begin && (text[last - 1] == ' ' || text[last - 1] == '\t' ||
                            text[last - 1] == '\r')) {
      --last;
    }
    if (first < last) line += (line.empty() ? "" : "; ") + text.substr(first, last - first);
    begin = end + 1;
  }
  return line;
}

int Transform(const Document& document, const std::string& stylesheet) {
  const int size = stylesheet.size() < INT_MAX ? static_cast<int>(stylesheet.size()) : INT_MAX;
  return TkXslt(document.tk())->ApplyXSLT(stylesheet.c_str(), size);
}

// Why a document is no XSLT stylesheet, or "" if it is one: its root must
// be xsl:stylesheet or xsl:transform, or a result element with xsl:version.
std::string NotAStylesheet(const Document& sheet) {
  const std::string name = ElementName(sheet, kRootHandle);
  std::map<std::string, std::string> namespaces;  // prefix ("" for none) to URI
  const auto attributes = ReadAttributes(sheet, kRootHandle, "", kUtf8CodePage);
  for (const auto& [attribute, value] : attributes) {
    if (attribute == "xmlns") namespaces[""] = value;
    if (attribute.rfind("xmlns:", 0) == 0) namespaces[attribute.substr(6)] = value;
  }
  const auto inXslt = [&](const std::string& qualified, const std::string& local) {
    const size_t colon = qualified.find(':');
    const std::string prefix = colon == std::string::npos ? "" : qualified.substr(0, colon);
    const std::string rest = colon == std::string::npos ? qualified : qualified.substr(colon + 1);
    return rest == local && namespaces[prefix] == kXsltNamespace;
  };
  if (inXslt(name, "stylesheet") || inXslt(name, "transform")) return {};
  for (const auto& [attribute, value] : attributes) {
    if (attribute.find(':') != std::string::npos && inXslt(attribute, "version")) return {};
  }
  return "not a stylesheet: the root element <" + name +
         "> is no xsl:stylesheet or xsl:transform of the XSLT namespace";
}

// Checks that the transformed document is one element; status 5 saying
// what it holds if not.
void CheckOneElement(const Document& document, const std::string& stylesheetName) {
  // -1: the check ended itself, so the result is one element and stands.
  // (A check the engine can't run at all leaves the result standing too.)
  if (Transform(document, kOneElementCheck) != 0) return;
  std::string counts;
  for (const auto& [name, value] : ReadAttributes(document, kRootHandle, "", kUtf8CodePage)) {
    if (value == "0") continue;
    counts += (counts.empty() ? "" : " and ") + value + " " + name + (value == "1" ? "" : "s");
  }
  throw CliError(kFailed, stylesheetName + ": the result is not one element but " + counts +
                              " (--fragment prints it as it is)");
}

// The transformed document's top-level nodes as XML, one after another.
std::string Fragment(const Document& document, const std::string& stylesheetName) {
  if (Transform(document, kGatherFragment) != 0) {
    throw CliError(kFailed, stylesheetName + ": the result could not be read as a fragment");
  }
  unsigned count = 0;
  if (document->EnumElement(kRootHandle, &count) != 0) return {};
  std::string xml;
  for (unsigned index = 0; index < count; ++index) {
    HandleScope scope(document);
    unsigned node = 0;
    unsigned nodeType = 0;
    if (document->OpenElement(kRootHandle, index, &node, &nodeType) != 0) continue;
    xml += WithoutDeclaration(document.Render(scope.Keep(node), false));
  }
  return xml;
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
    // well-formed, or no stylesheet at all, is told apart here.
    Document check;
    check.LoadBytes(stylesheet, stylesheetName);
    const std::string why = NotAStylesheet(check);
    if (!why.empty()) throw CliError(kFailed, stylesheetName + ": " + why);
  }
  const int result = Transform(document, stylesheet);
  outputstr report;
  TkXsltReport(document.tk())->GetXsltReport(report);
  if (result != 0) {
    // The engine's reason and the stylesheet's last words, on the one line
    // of the tool's error.
    const std::string reason = OneLine(report.text());
    throw CliError(kFailed, stylesheetName + ": the transformation failed" +
                                (reason.empty() ? "" : ": " + reason));
  }
  // What the stylesheet said on the way (xsl:message) goes to standard error
  // as it was said.
  std::fputs(report.text(), stderr);
  if (document->OpenElement("") != kRootHandle) {
    throw CliError(kFailed, stylesheetName + ": the transformation made no root element");
  }
  const std::string output = args.output.empty() ? "-" : args.output;
  if (args.fragment) {
    WriteOutput(output, Fragment(document, stylesheetName));
    return;
  }
  CheckOneElement(document, stylesheetName);
  WriteOutput(output, document.Render(kRootHandle, global.crlf));
}

}  // namespace tkcli
