// The command-line grammar of each command, for the tool's own command line
// and for the lines of a batch, which name no file and no output.
#pragma once

#include <CLI/CLI.hpp>

#include "commands.h"

namespace tkcli {

enum class Place { kCommandLine, kBatchLine };

CLI::App* AddCatCommand(CLI::App& app, CatArgs& args);
CLI::App* AddLsCommand(CLI::App& app, LsArgs& args, Place place);
CLI::App* AddGetCommand(CLI::App& app, GetArgs& args, Place place);
CLI::App* AddSetCommand(CLI::App& app, SetArgs& args, Place place);
CLI::App* AddRmCommand(CLI::App& app, RmArgs& args, Place place);
CLI::App* AddNewCommand(CLI::App& app, NewArgs& args);
CLI::App* AddXsltCommand(CLI::App& app, XsltArgs& args);
CLI::App* AddBatchCommand(CLI::App& app, BatchArgs& args);

// The one line that tells what is wrong with a command line.
std::string UsageMessage(const CLI::App& app, const CLI::ParseError& error);

}  // namespace tkcli
