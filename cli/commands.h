// The tool's commands. Each Run function does one whole command and throws
// CliError to end with a non-zero status; the Step functions are the parts
// that batch lines share with the commands, on a document already loaded.
#pragma once

#include <string>
#include <vector>

#include "document_io.h"
#include "values.h"

namespace tkcli {

// Options that apply to every command.
struct GlobalOptions {
  bool verbose = false;
  unsigned codePage = kUtf8CodePage;  // for text values the library can convert
  bool crlf = false;                  // write the library's file form
};

struct CatArgs {
  std::string file;
  std::string path;
  bool pretty = false;  // indented, one element a line
  bool keep = false;    // as the file spells it
};
struct LsArgs {
  std::string file;
  std::string path;
  bool attributes = false;
};
struct GetArgs {
  std::string file;
  std::string path;
  ValueTarget target;
};
struct SetArgs {
  std::string file;
  std::vector<std::string> pairs;  // PATH VALUE PATH VALUE ...
  ValueTarget target;
  std::string output;
  bool rewrite = false;  // write the library's XML of the whole document
};
struct RmArgs {
  std::string file;
  std::string path;
  std::string attribute;
  std::string output;
  bool rewrite = false;
};
struct NewArgs {
  std::string root;
  std::string output;
};
struct XsltArgs {
  std::string file;
  std::string stylesheet;
  std::string output;
  bool fragment = false;  // a result need not be one element
};
struct BatchArgs {
  std::string file;
  std::string output;
  bool rewrite = false;
};

void ListStep(const Document& document, const LsArgs& args, const GlobalOptions& global,
              std::string& out);
void GetStep(const Document& document, const GetArgs& args, const GlobalOptions& global,
             std::string& out);
// Usage errors of a set (pairs, value forms) before anything is changed.
void CheckSet(const SetArgs& args);
// The edits of set and rm are made in the library's document, and in the
// file's own text where the document keeps it (Document::Source).
void SetStep(Document& document, const SetArgs& args);
void RemoveStep(Document& document, const RmArgs& args);

// Loads the document a command edits: with its file's bytes kept, unless
// the whole document is to be written as the library writes it (rewrite,
// or the library's file form asked for with --crlf).
void LoadForEdit(Document& document, const std::string& file, bool rewrite,
                 const GlobalOptions& global);

// Writes an edited document: to output if one is given, else back to file
// (to standard output if file was "-"); the file's own bytes with the edits
// where they were kept, else the library's XML.
void SaveDocument(Document& document, const std::string& file, const std::string& output,
                  const GlobalOptions& global);

void RunCat(const CatArgs& args, const GlobalOptions& global);
void RunLs(const LsArgs& args, const GlobalOptions& global);
void RunGet(const GetArgs& args, const GlobalOptions& global);
void RunSet(const SetArgs& args, const GlobalOptions& global);
void RunRm(const RmArgs& args, const GlobalOptions& global);
void RunNew(const NewArgs& args, const GlobalOptions& global);
void RunXslt(const XsltArgs& args, const GlobalOptions& global);
void RunBatch(const BatchArgs& args, const GlobalOptions& global);

}  // namespace tkcli
