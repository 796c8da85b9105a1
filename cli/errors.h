// Exit statuses of the tool and the error that carries one to main().
#pragma once

#include <stdexcept>
#include <string>

namespace tkcli {

enum ExitStatus : int {
  kDone = 0,
  kNotThere = 1,      // the path or attribute is not in the document
  kUsage = 2,         // the command line (or a batch line) is wrong
  kBadInput = 3,      // an input can't be read or is not well-formed XML
  kCannotWrite = 4,   // the output can't be written
  kFailed = 5,        // anything else
};

// Thrown to end a command. main() prints "treekeeper: <message>" as the one
// line on standard error and exits with status().
class CliError : public std::runtime_error {
 public:
  CliError(int status, const std::string& message)
      : std::runtime_error(message), m_status(status) {}
  int status() const { return m_status; }

 private:
  int m_status;
};

}  // namespace tkcli
