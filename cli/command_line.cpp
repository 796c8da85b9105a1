#include "command_line.h"

namespace tkcli {
namespace {

const char kFileHelp[] =
    "the XML document, or - for standard input (under 2 GiB, the most the library imports)";
const char kPathHelp[] =
    "element path below the root, e.g. listeners/listener; its first component may name the "
    "root, ASCII case ignored; a step name[N], name[last()] or name[@attribute='value'] picks "
    "one element of the name";

const CLI::Validator kNotEmpty(
    [](const std::string& value) { return std::string(value.empty() ? "is empty" : ""); }, "",
    "NOT_EMPTY");

void AddFile(CLI::App* command, std::string& file, Place place) {
  if (place == Place::kCommandLine) command->add_option("FILE", file, kFileHelp)->required();
}

void AddOutput(CLI::App* command, std::string& output, const char* help) {
  command->add_option("-o,--output", output, help)->type_name("OUT")->check(kNotEmpty);
}

const char kEditOutputHelp[] =
    "write the result to OUT (- for standard output) instead of changing FILE in place";

void AddRewrite(CLI::App* command, bool& rewrite) {
  command->add_flag("--rewrite", rewrite,
                    "write the whole document as the library writes XML (its declaration, the "
                    "root element on one line), instead of FILE's own bytes with only the edits "
                    "changed");
}

void AddValueOptions(CLI::App* command, ValueTarget& target) {
  CLI::Option* attribute =
      command->add_option("-a,--attribute", target.attribute, "the attribute NAME, not the text")
          ->type_name("NAME")
          ->check(kNotEmpty);
  command->add_flag("--cdata", target.cdata, "the element's CDATA section, not its text")
      ->excludes(attribute);
  CLI::Option* number = command->add_flag_callback(
      "--number", [&target] { target.form = ValueForm::kNumber; },
      "the value as an unsigned 32-bit number in decimal");
  CLI::Option* hex = command->add_flag_callback(
      "--hex", [&target] { target.form = ValueForm::kHex; },
      "the value as bytes, written as two hexadecimal digits each");
  number->excludes(hex);
}

}  // namespace

CLI::App* AddCatCommand(CLI::App& app, CatArgs& args) {
  CLI::App* command = app.add_subcommand(
      "cat", "Print the document, or the element at PATH with its subtree, as XML");
  AddFile(command, args.file, Place::kCommandLine);
  command->add_option("PATH", args.path, kPathHelp);
  CLI::Option* pretty = command->add_flag(
      "--pretty", args.pretty,
      "indent by two spaces, one element a line (text stays as it is, and so do elements "
      "beside it)");
  command->add_flag("--keep", args.keep,
                    "print the document (or element) as FILE spells it, as set, rm and batch "
                    "keep it")
      ->excludes(pretty);
  return command;
}

CLI::App* AddLsCommand(CLI::App& app, LsArgs& args, Place place) {
  CLI::App* command = app.add_subcommand(
      "ls", "List the child nodes of the root, or of the element at PATH: index, kind, name");
  AddFile(command, args.file, place);
  command->add_option("PATH", args.path, kPathHelp);
  command->add_flag("-a,--attributes", args.attributes,
                    "show the attributes of each child element as name=\"value\"");
  return command;
}

CLI::App* AddGetCommand(CLI::App& app, GetArgs& args, Place place) {
  CLI::App* command = app.add_subcommand("get", "Print the value of the element at PATH");
  AddFile(command, args.file, place);
  command->add_option("PATH", args.path, kPathHelp)->required();
  AddValueOptions(command, args.target);
  return command;
}

CLI::App* AddSetCommand(CLI::App& app, SetArgs& args, Place place) {
  CLI::App* command = app.add_subcommand(
      "set", "Set the value at each PATH, making the elements of PATH that are missing");
  AddFile(command, args.file, place);
  command
      ->add_option("PAIRS", args.pairs,
                   "one PATH VALUE pair or several, in the locale's character set; put -- before "
                   "them if a value begins with -")
      ->type_name("PATH VALUE")
      ->required();
  AddValueOptions(command, args.target);
  if (place == Place::kCommandLine) {
    AddOutput(command, args.output, kEditOutputHelp);
    AddRewrite(command, args.rewrite);
  }
  return command;
}

CLI::App* AddRmCommand(CLI::App& app, RmArgs& args, Place place) {
  CLI::App* command =
      app.add_subcommand("rm", "Remove the element at PATH with its subtree, or one attribute");
  AddFile(command, args.file, place);
  command->add_option("PATH", args.path, kPathHelp)->required();
  command->add_option("-a,--attribute", args.attribute, "remove the attribute NAME instead")
      ->type_name("NAME")
      ->check(kNotEmpty);
  if (place == Place::kCommandLine) {
    AddOutput(command, args.output, kEditOutputHelp);
    AddRewrite(command, args.rewrite);
  }
  return command;
}

CLI::App* AddNewCommand(CLI::App& app, NewArgs& args) {
  CLI::App* command = app.add_subcommand("new", "Make an empty document under the element ROOT");
  command->add_option("ROOT", args.root, "the name of the root element")->required();
  AddOutput(command, args.output, "write the document to OUT instead of standard output");
  return command;
}

CLI::App* AddXsltCommand(CLI::App& app, XsltArgs& args) {
  CLI::App* command =
      app.add_subcommand("xslt", "Print the document as an XSLT 1.0 stylesheet transforms it");
  AddFile(command, args.file, Place::kCommandLine);
  command->add_option("STYLESHEET", args.stylesheet, "the stylesheet file, or - (under 2 GiB)")
      ->required();
  AddOutput(command, args.output, "write the result to OUT instead of standard output");
  command->add_flag("--fragment", args.fragment,
                    "accept a result that is not one element: print all its top-level nodes as "
                    "XML, with no declaration");
  return command;
}

CLI::App* AddBatchCommand(CLI::App& app, BatchArgs& args) {
  CLI::App* command = app.add_subcommand(
      "batch",
      "Apply set, rm, get and ls lines from standard input (no FILE on them), in one load and "
      "one save; nothing is saved if a line fails");
  command->add_option("FILE", args.file, "the XML document to change")->required();
  AddOutput(command, args.output, kEditOutputHelp);
  AddRewrite(command, args.rewrite);
  return command;
}

std::string UsageMessage(const CLI::App& app, const CLI::ParseError& error) {
  std::string help = "treekeeper";
  for (const CLI::App* command : app.get_subcommands()) help += " " + command->get_name();
  std::string message = error.what();
  const std::vector<std::string> left = app.remaining();
  if (app.get_subcommands().empty() && !left.empty()) {
    message = "'" + left.front() + "' is not a treekeeper " +
              (left.front().rfind('-', 0) == 0 ? "option" : "command");
  }
  while (!message.empty() && (message.back() == '\n' || message.back() == '.')) {
    message.pop_back();
  }
  return message + " (see '" + help + " --help')";
}

}  // namespace tkcli
