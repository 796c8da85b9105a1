// set, rm and new: commands that change or make a document.
#include "commands.h"
#include "errors.h"
#include "file_output.h"
#include "paths.h"
#include "utf8_text.h"

namespace tkcli {
namespace {

std::string Utf8Name(const std::string& name) {
  std::string utf8;
  return LocaleToUtf8(name, utf8) ? utf8 : name;
}

// An edit the file's own text can't follow: the library found an element
// that the text doesn't show as one (made by an entity, say).
void Mirrored(const Document& document, const std::string& path, bool done) {
  if (done) return;
  throw CliError(kFailed, document.name() + ": '" + path +
                              "' can't be found in the file's own text; nothing was written "
                              "(--rewrite writes the whole document)");
}

}  // namespace

void CheckSet(const SetArgs& args) {
  if (args.pairs.empty()) throw CliError(kUsage, "set needs a PATH and a VALUE");
  if (args.pairs.size() % 2 != 0) {
    throw CliError(kUsage, "set takes PATH VALUE pairs: '" + args.pairs.back() + "' has no value");
  }
  for (size_t i = 1; i < args.pairs.size(); i += 2) {
    CheckValue(args.target, args.pairs[i - 1], args.pairs[i]);
  }
}

void SetStep(Document& document, const SetArgs& args) {
  const ValueTarget& target = args.target;
  for (size_t i = 0; i + 1 < args.pairs.size(); i += 2) {
    HandleScope scope(document);
    const std::string& path = args.pairs[i];
    const std::string& value = args.pairs[i + 1];
    ElementChain chain;
    std::vector<std::string> made;
    WriteValue(document, EnsureElement(scope, path, &chain, &made), path, target, value);
    SourceTree* source = document.Source();
    if (source == nullptr) continue;
    const ElementChain parent(chain.begin(),
                              chain.end() - static_cast<std::ptrdiff_t>(made.size()));
    Mirrored(document, path, made.empty() || source->AddElements(parent, made));
    const std::string stored = StoredText(target, path, value);
    if (!target.attribute.empty()) {
      Mirrored(document, path, source->SetAttribute(chain, Utf8Name(target.attribute), stored));
    } else if (target.cdata) {
      Mirrored(document, path, source->SetCData(chain, stored));
    } else {
      Mirrored(document, path, source->SetText(chain, stored));
    }
  }
}

void RemoveStep(Document& document, const RmArgs& args) {
  ElementChain chain;
  if (args.attribute.empty()) {
    RemoveElement(document, args.path, &chain);
    if (SourceTree* source = document.Source()) {
      Mirrored(document, args.path, source->RemoveElement(chain));
    }
    return;
  }
  HandleScope scope(document);
  const unsigned handle = RequireElement(scope, args.path, &chain);
  const int result = document->DeleteAttribute(handle, "", args.attribute.c_str());
  const std::string what = "attribute '" + args.attribute + "' of '" + args.path + "'";
  if (result == -1) throw CliError(kNotThere, document.name() + ": no " + what);
  if (result != 0) {
    throw CliError(kFailed, document.name() + ": cannot remove " + what + " (" +
                                std::to_string(result) + ")");
  }
  if (SourceTree* source = document.Source()) {
    Mirrored(document, args.path, source->RemoveAttribute(chain, Utf8Name(args.attribute)));
  }
}

void LoadForEdit(Document& document, const std::string& file, bool rewrite,
                 const GlobalOptions& global) {
  if (rewrite || global.crlf) {
    document.Load(file);
  } else {
    document.LoadKeepingBytes(file);
  }
}

void SaveDocument(Document& document, const std::string& file, const std::string& output,
                  const GlobalOptions& global) {
  const std::string& target = output.empty() ? file : output;
  if (document.Source() != nullptr) {
    WriteOutput(target, document.EditedBytes());
  } else {
    WriteOutput(target, document.Render(kRootHandle, global.crlf));
  }
}

void RunSet(const SetArgs& args, const GlobalOptions& global) {
  CheckSet(args);
  Document document;
  LoadForEdit(document, args.file, args.rewrite, global);
  SetStep(document, args);
  SaveDocument(document, args.file, args.output, global);
}

void RunRm(const RmArgs& args, const GlobalOptions& global) {
  Document document;
  LoadForEdit(document, args.file, args.rewrite, global);
  RemoveStep(document, args);
  SaveDocument(document, args.file, args.output, global);
}

void RunNew(const NewArgs& args, const GlobalOptions& global) {
  Document document;
  document.CreateEmpty(args.root);
  SaveDocument(document, "-", args.output, global);
}

}  // namespace tkcli
