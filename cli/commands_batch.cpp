// batch: many set, rm, get and ls steps on one loaded document.
#include <algorithm>
#include <iostream>

#include "batch_words.h"
#include "command_line.h"
#include "commands.h"
#include "errors.h"
#include "file_output.h"

namespace tkcli {
namespace {

// Runs one line's words; true if the line changed the document.
bool RunLine(Document& document, std::vector<std::string> words,
             const GlobalOptions& global) {
  CLI::App line("batch line", "batch");
  line.set_help_flag();  // subcommands made after this have no --help either
  line.require_subcommand(1);
  LsArgs ls;
  GetArgs get;
  SetArgs set;
  RmArgs rm;
  const CLI::App* lsCommand = AddLsCommand(line, ls, Place::kBatchLine);
  const CLI::App* getCommand = AddGetCommand(line, get, Place::kBatchLine);
  const CLI::App* setCommand = AddSetCommand(line, set, Place::kBatchLine);
  AddRmCommand(line, rm, Place::kBatchLine);
  const std::string command = words.front();
  try {
    std::reverse(words.begin(), words.end());
    line.parse(words);
  } catch (const CLI::ParseError& error) {
    std::string message = error.what();
    if (line.get_subcommands().empty()) {
      message = "'" + command + "' is not a batch command (set, rm, get or ls)";
    }
    throw CliError(kUsage, message);
  }
  std::string out;
  if (lsCommand->parsed()) {
    ListStep(document, ls, global, out);
  } else if (getCommand->parsed()) {
    GetStep(document, get, global, out);
  } else if (setCommand->parsed()) {
    CheckSet(set);
    SetStep(document, set);
    return true;
  } else {
    RemoveStep(document, rm);
    return true;
  }
  WriteOutput("-", out);
  return false;
}

}  // namespace

void RunBatch(const BatchArgs& args, const GlobalOptions& global) {
  if (args.file == "-") {
    throw CliError(kUsage, "batch reads its commands from standard input, so FILE can't be -");
  }
  Document document;
  LoadForEdit(document, args.file, args.rewrite, global);
  bool changed = false;
  std::string text;
  for (unsigned number = 1; std::getline(std::cin, text); ++number) {
    try {
      const std::vector<std::string> words = SplitWords(text);
      if (!words.empty()) changed = RunLine(document, words, global) || changed;
    } catch (const CliError& error) {
      throw CliError(error.status(), "batch line " + std::to_string(number) + ": " + error.what());
    }
  }
  if (std::cin.bad()) throw CliError(kBadInput, "<stdin>: cannot read the batch");
  // A batch of reads leaves FILE alone.
  if (changed || !args.output.empty()) SaveDocument(document, args.file, args.output, global);
}

}  // namespace tkcli
