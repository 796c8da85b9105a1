// cat, ls and get: commands that only read the document.
#include <vector>

#include "commands.h"
#include "errors.h"
#include "file_output.h"
#include "paths.h"
#include "xml_text.h"

namespace tkcli {
namespace {

const char* KindName(unsigned nodeType) {
  switch (nodeType) {
    case 1:
      return "element";
    case 3:
      return "text";
    case 4:
      return "cdata";
    case 7:
      return "pi";
    case 8:
      return "comment";
    default:
      return "node";
  }
}

// An attribute value as it would stand between double quotes in XML, so
// that each child stays on one line.
std::string Quoted(const std::string& value) { return '"' + EscapeAttribute(value, '"') + '"'; }

}  // namespace

void ListStep(const Document& document, const LsArgs& args, const GlobalOptions& global,
              std::string& out) {
  HandleScope scope(document);
  const unsigned parent = RequireElement(scope, args.path);
  unsigned count = 0;
  const int counted = document->EnumElement(parent, &count);
  if (counted == -109) return;  // no child nodes
  if (counted != 0) {
    throw CliError(kFailed, document.name() + ": cannot list '" + args.path + "' (" +
                                std::to_string(counted) + ")");
  }
  for (unsigned index = 0; index < count; ++index) {
    HandleScope childScope(document);
    unsigned child = 0;
    unsigned nodeType = 0;
    const int opened = document->OpenElement(parent, index, &child, &nodeType);
    if (opened != 0) {
      throw CliError(kFailed, document.name() + ": cannot open child " + std::to_string(index) +
                                  " of '" + args.path + "' (" + std::to_string(opened) + ")");
    }
    childScope.Keep(child);
    std::string line = std::to_string(index) + " " + KindName(nodeType);
    // Text, CDATA and comments have no name of their own worth showing.
    if (nodeType == 1 || nodeType == 7) line += " " + ElementName(document, child);
    if (nodeType == 1 && args.attributes) {
      const auto attributes = ReadAttributes(document, child, args.path, global.codePage);
      for (const auto& [name, value] : attributes) line += " " + name + "=" + Quoted(value);
    }
    out += line + "\n";
  }
}

void GetStep(const Document& document, const GetArgs& args, const GlobalOptions& global,
             std::string& out) {
  HandleScope scope(document);
  const unsigned handle = RequireElement(scope, args.path);
  out += ReadValue(document, handle, args.path, args.target, global.codePage) + "\n";
}

void RunCat(const CatArgs& args, const GlobalOptions& global) {
  Document document;
  if (args.keep) {
    document.LoadKeepingBytes(args.file);
  } else {
    document.Load(args.file);
  }
  HandleScope scope(document);
  ElementChain chain;
  const unsigned handle = RequireElement(scope, args.path, &chain);
  if (args.keep) {
    const std::string bytes = document.SourceBytes(chain);
    if (bytes.empty()) {
      throw CliError(kFailed, document.name() + ": '" + args.path +
                                  "' can't be found in the file's own text");
    }
    WriteOutput("-", bytes);
  } else if (args.pretty) {
    const SourceTree tree(document.Render(handle, false));
    WriteOutput("-", tree.Write(SourceTree::Form::kIndented, global.crlf ? "\r\n" : "\n"));
  } else {
    WriteOutput("-", document.Render(handle, global.crlf));
  }
}

void RunLs(const LsArgs& args, const GlobalOptions& global) {
  Document document;
  document.Load(args.file);
  std::string out;
  ListStep(document, args, global, out);
  WriteOutput("-", out);
}

void RunGet(const GetArgs& args, const GlobalOptions& global) {
  Document document;
  document.Load(args.file);
  std::string out;
  GetStep(document, args, global, out);
  WriteOutput("-", out);
}

}  // namespace tkcli
