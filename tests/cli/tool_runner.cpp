#include "tool_runner.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

extern char** environ;

namespace tkcli::test {
namespace {

const char kSetpriv[] = "/usr/bin/setpriv";

void Check(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

// Standard input, output and error go through files in a scratch directory,
// so no pipe can fill up while the tool runs.
ToolRun Spawn(std::vector<std::string> argvText, const std::string& input,
              const std::string& cwd, std::vector<std::string> env = {}) {
  const Scratch io;
  WriteBytes(io.path("in"), input);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, io.path("in").c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, io.path("out").c_str(), O_WRONLY | O_CREAT, 0600);
  posix_spawn_file_actions_addopen(&actions, 2, io.path("err").c_str(), O_WRONLY | O_CREAT, 0600);
  if (!cwd.empty()) posix_spawn_file_actions_addchdir_np(&actions, cwd.c_str());

  std::vector<char*> argv;
  for (std::string& arg : argvText) argv.push_back(arg.data());
  argv.push_back(nullptr);
  std::vector<char*> envp;
  for (std::string& variable : env) envp.push_back(variable.data());
  for (char** inherited = environ; *inherited != nullptr; ++inherited) {
    const std::string_view name(*inherited, std::strcspn(*inherited, "="));
    const bool replaced = std::any_of(env.begin(), env.end(), [&](const std::string& variable) {
      return variable.compare(0, name.size() + 1, std::string(name) + "=") == 0;
    });
    if (!replaced) envp.push_back(*inherited);
  }
  envp.push_back(nullptr);

  pid_t pid = 0;
  errno = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  Check(errno == 0, "posix_spawn");
  int status = 0;
  waitpid(pid, &status, 0);
  ToolRun run;
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  run.out = ReadBytes(io.path("out"));
  run.err = ReadBytes(io.path("err"));
  return run;
}

}  // namespace

ToolRun RunTool(const std::vector<std::string>& args, const std::string& input,
                const std::string& cwd, const std::vector<std::string>& env) {
  std::vector<std::string> argv = {TK_CLI_PATH};
  argv.insert(argv.end(), args.begin(), args.end());
  return Spawn(argv, input, cwd, env);
}

bool CanRunAsOthers() { return geteuid() == 0 && access(kSetpriv, X_OK) == 0; }

ToolRun RunToolAs(unsigned uid, unsigned gid, unsigned group,
                  const std::vector<std::string>& args) {
  std::vector<std::string> argv = {kSetpriv,
                                   "--reuid=" + std::to_string(uid),
                                   "--regid=" + std::to_string(gid),
                                   "--groups=" + std::to_string(group),
                                   TK_CLI_PATH};
  argv.insert(argv.end(), args.begin(), args.end());
  return Spawn(argv, "", "");
}

Scratch::Scratch() {
  char pattern[] = "/tmp/tk-cli-test-XXXXXX";
  Check(mkdtemp(pattern) != nullptr, "mkdtemp");
  m_root = pattern;
}

Scratch::~Scratch() {
  std::error_code ignored;
  std::filesystem::remove_all(m_root, ignored);
}

std::string Scratch::Copy(const std::string& dataName) const {
  const std::string target = path(std::filesystem::path(dataName).filename());
  WriteBytes(target, ReadBytes(DataPath(dataName)));
  return target;
}

std::vector<std::pair<std::string, std::string>> Scratch::Snapshot() const {
  std::vector<std::pair<std::string, std::string>> files;
  for (const auto& entry : std::filesystem::directory_iterator(m_root)) {
    if (entry.is_regular_file()) {
      files.emplace_back(entry.path().filename(), ReadBytes(entry.path()));
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string DataPath(const std::string& name) { return std::string(TK_CLI_DATA_DIR) + "/" + name; }

std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

void WriteBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

}  // namespace tkcli::test
