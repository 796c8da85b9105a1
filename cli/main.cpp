// treekeeper: reads and edits XML documents from the shell through the
// TreeKeeper library.
#include <fcntl.h>
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstring>
#include <new>

#include "command_line.h"
#include "commands.h"
#include "errors.h"
#include "stderr_capture.h"

namespace {

void WriteDebug(const char* text) {
  const int fd = tkcli::DebugDescriptor();
  if (fd < 0 || text == nullptr) return;
  [[maybe_unused]] const ssize_t written = write(fd, text, std::strlen(text));
}

std::string VersionText() {
  char library[16];
  std::snprintf(library, sizeof library, "0x%08x", TkGetVersion());
  return std::string("treekeeper ") + TREEKEEPER_TOOL_VERSION + " (library version " + library +
         ")";
}

int Fail(const std::string& message, int status) {
  std::fprintf(stderr, "treekeeper: %s\n", message.c_str());
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace tkcli;
  // Paths and element names are in the locale's character set.
  std::setlocale(LC_CTYPE, "");

  CLI::App app("Reads and edits XML documents: values by element path, subtrees, "
               "attributes, XSLT.\nA PATH's first component may name the root element, ASCII "
               "case ignored; a step name[N], name[last()] or name[@attribute='value'] picks one "
               "element of the name.\nset, rm and batch change only the bytes of what they "
               "change; --rewrite writes the whole document as the library writes it.\nExit "
               "status: 0 done, 1 path or attribute not there, "
               "2 usage error, 3 input unreadable or not well-formed, 4 output not written, "
               "5 other failure (such as an edit the file's own text can't show: nothing is "
               "written).",
               "treekeeper");
  app.fallthrough();  // the options below may also follow the command
  app.require_subcommand(1);
  app.set_version_flag("--version", VersionText());
  GlobalOptions global;
  app.add_flag("-v,--verbose", global.verbose, "print the library's debug messages on stderr");
  app.add_option("--codepage", global.codePage,
                 "code page of text values read (65001 = UTF-8; element text and attributes)")
      ->type_name("N");
  app.add_flag("--crlf", global.crlf,
               "write XML with CR LF line ends, as the library writes files (with set, rm and "
               "batch: the whole document, as --rewrite)");

  CatArgs cat;
  LsArgs ls;
  GetArgs get;
  SetArgs set;
  RmArgs rm;
  NewArgs created;
  XsltArgs xslt;
  BatchArgs batch;
  const CLI::App* catCommand = AddCatCommand(app, cat);
  const CLI::App* lsCommand = AddLsCommand(app, ls, Place::kCommandLine);
  const CLI::App* getCommand = AddGetCommand(app, get, Place::kCommandLine);
  const CLI::App* setCommand = AddSetCommand(app, set, Place::kCommandLine);
  const CLI::App* rmCommand = AddRmCommand(app, rm, Place::kCommandLine);
  const CLI::App* newCommand = AddNewCommand(app, created);
  const CLI::App* xsltCommand = AddXsltCommand(app, xslt);
  const CLI::App* batchCommand = AddBatchCommand(app, batch);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
    return Fail(UsageMessage(app, error), kUsage);
  }

  if (global.verbose) {
    SetDebugDescriptor(fcntl(2, F_DUPFD_CLOEXEC, 3));
    TkSetDebugOutput(WriteDebug);
  }
  try {
    if (catCommand->parsed()) RunCat(cat, global);
    if (lsCommand->parsed()) RunLs(ls, global);
    if (getCommand->parsed()) RunGet(get, global);
    if (setCommand->parsed()) RunSet(set, global);
    if (rmCommand->parsed()) RunRm(rm, global);
    if (newCommand->parsed()) RunNew(created, global);
    if (xsltCommand->parsed()) RunXslt(xslt, global);
    if (batchCommand->parsed()) RunBatch(batch, global);
  } catch (const CliError& error) {
    return Fail(error.what(), error.status());
  } catch (const std::bad_alloc&) {
    return Fail("out of memory", kFailed);
  } catch (const std::exception& error) {
    return Fail(error.what(), kFailed);
  }
  return kDone;
}
