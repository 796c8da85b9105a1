#include "tool_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace tkcli::test {
namespace {

void Check(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

}  // namespace

ToolRun RunTool(const std::vector<std::string>& args, const std::string& input,
            const std::string& cwd) {
  int in[2], out[2], err[2];
  Check(pipe2(in, O_CLOEXEC) == 0 && pipe2(out, O_CLOEXEC) == 0 && pipe2(err, O_CLOEXEC) == 0,
        "pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err[1], 2);
  if (!cwd.empty()) posix_spawn_file_actions_addchdir_np(&actions, cwd.c_str());

  std::vector<std::string> argvText = {TK_CLI_PATH};
  argvText.insert(argvText.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& arg : argvText) argv.push_back(arg.data());
  argv.push_back(nullptr);

  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, TK_CLI_PATH, &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(in[0]);
  close(out[1]);
  close(err[1]);
  errno = spawned;
  Check(spawned == 0, "posix_spawn");

  // Feed standard input and drain both outputs together, so that no pipe
  // fills up while the other is waited on.
  std::signal(SIGPIPE, SIG_IGN);
  ToolRun run;
  size_t fed = 0;
  int inFd = in[1];
  if (input.empty()) {
    close(inFd);
    inFd = -1;
  }
  bool outOpen = true, errOpen = true;
  while (outOpen || errOpen) {
    pollfd fds[3] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}, {inFd, POLLOUT, 0}};
    if (poll(fds, inFd >= 0 ? 3 : 2, -1) < 0 && errno != EINTR) break;
    char chunk[65536];
    for (int i = 0; i < 2; ++i) {
      if ((i == 0 ? !outOpen : !errOpen) || fds[i].revents == 0) continue;
      const ssize_t got = read(fds[i].fd, chunk, sizeof chunk);
      if (got > 0) {
        (i == 0 ? run.out : run.err).append(chunk, static_cast<size_t>(got));
      } else {
        (i == 0 ? outOpen : errOpen) = false;
      }
    }
    if (inFd >= 0 && fds[2].revents != 0) {
      const ssize_t put = write(inFd, input.data() + fed, input.size() - fed);
      if (put > 0) fed += static_cast<size_t>(put);
      if (put <= 0 || fed == input.size()) {
        close(inFd);
        inFd = -1;
      }
    }
  }
  if (inFd >= 0) close(inFd);
  close(out[0]);
  close(err[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return run;
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
