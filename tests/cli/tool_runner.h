// Runs the built treekeeper binary and collects what it did.
#pragma once

#include <string>
#include <vector>

namespace tkcli::test {

struct ToolRun {
  int status = -1;  // exit status, or 128 + signal
  std::string out;
  std::string err;
};

// Runs the tool with args, input on its standard input, in directory cwd
// (the current one if empty), with the variables of env ("NAME=value") set
// or replaced in the test's environment.
ToolRun RunTool(const std::vector<std::string>& args, const std::string& input = {},
                const std::string& cwd = {}, const std::vector<std::string>& env = {});

// Whether RunToolAs works here: as root, with setpriv.
bool CanRunAsOthers();
// Runs the tool as user uid, with primary group gid and one other group.
ToolRun RunToolAs(unsigned uid, unsigned gid, unsigned group,
                  const std::vector<std::string>& args);

// A directory of its own for one test, removed with its content afterwards.
class Scratch {
 public:
  Scratch();
  ~Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  const std::string& root() const { return m_root; }
  std::string path(const std::string& name) const { return m_root + "/" + name; }
  // Copies a file of the test data into the directory; returns its path.
  std::string Copy(const std::string& dataName) const;
  // Every regular file's name and bytes, to show that nothing changed.
  std::vector<std::pair<std::string, std::string>> Snapshot() const;

 private:
  std::string m_root;
};

std::string DataPath(const std::string& name);
std::string ReadBytes(const std::string& path);
void WriteBytes(const std::string& path, const std::string& bytes);

}  // namespace tkcli::test
