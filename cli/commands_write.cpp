// set, rm and new: commands that change or make a document.
#include "commands.h"
#include "errors.h"
#include "file_output.h"
#include "paths.h"

namespace tkcli {

void CheckSet(const SetArgs& args) {
  if (args.pairs.empty()) throw CliError(kUsage, "set needs a PATH and a VALUE");
  if (args.pairs.size() % 2 != 0) {
    throw CliError(kUsage, "set takes PATH VALUE pairs: '" + args.pairs.back() + "' has no value");
  }
  for (size_t i = 1; i < args.pairs.size(); i += 2) {
    CheckValue(args.target, args.pairs[i - 1], args.pairs[i]);
  }
}

void SetStep(const Document& document, const SetArgs& args) {
  for (size_t i = 0; i + 1 < args.pairs.size(); i += 2) {
    HandleScope scope(document);
    const std::string& path = args.pairs[i];
    WriteValue(document, EnsureElement(scope, path), path, args.target, args.pairs[i + 1]);
  }
}

void RemoveStep(Document& document, const RmArgs& args) {
  if (args.attribute.empty()) {
    RemoveElement(document, args.path);
    return;
  }
  HandleScope scope(document);
  const unsigned handle = RequireElement(scope, args.path);
  const int result = document->DeleteAttribute(handle, "", args.attribute.c_str());
  const std::string what = "attribute '" + args.attribute + "' of '" + args.path + "'";
  if (result == -1) throw CliError(kNotThere, document.name() + ": no " + what);
  if (result != 0) {
    throw CliError(kFailed, document.name() + ": cannot remove " + what + " (" +
                                std::to_string(result) + ")");
  }
}

void SaveDocument(const Document& document, const std::string& file, const std::string& output,
                  const GlobalOptions& global) {
  WriteOutput(output.empty() ? file : output, document.Render(kRootHandle, global.crlf));
}

void RunSet(const SetArgs& args, const GlobalOptions& global) {
  CheckSet(args);
  Document document;
  document.Load(args.file);
  SetStep(document, args);
  SaveDocument(document, args.file, args.output, global);
}

void RunRm(const RmArgs& args, const GlobalOptions& global) {
  Document document;
  document.Load(args.file);
  RemoveStep(document, args);
  SaveDocument(document, args.file, args.output, global);
}

void RunNew(const NewArgs& args, const GlobalOptions& global) {
  Document document;
  document.CreateEmpty(args.root);
  SaveDocument(document, "-", args.output, global);
}

}  // namespace tkcli
