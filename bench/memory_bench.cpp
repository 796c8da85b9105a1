// Resident memory after loading the 10 MB documents, one library at a time,
// each in a child process of its own so that the figures don't mix.
//
// The parent generates the text; the child trims the heap it inherited,
// resets its peak, notes its resident set, loads the document from memory,
// and reports its peak (VmHWM) and resident set (VmRSS) through a pipe. The
// counters are the growth over the resident set before the load.
#include <fcntl.h>
#include <malloc.h>
#include <pugixml.hpp>
#include <sys/wait.h>
#include <tinyxml2.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>

#include "common.h"

namespace tkbench {
namespace {

struct Usage {
  long rssBeforeKb = 0;
  long peakAfterKb = 0;
  long rssAfterKb = 0;
  int peakReset = 0;  // 1 when the peak could be reset to the resident set
  int loaded = 0;
};

long StatusKb(const char* key) {
  std::ifstream status("/proc/self/status");
  const size_t keyLength = std::strlen(key);
  for (std::string line; std::getline(status, line);) {
    if (line.compare(0, keyLength, key) == 0 && line.size() > keyLength && line[keyLength] == ':')
      return std::strtol(line.c_str() + keyLength + 1, nullptr, 10);
  }
  return -1;
}

// Writing 5 to clear_refs sets the peak resident set back to the current one.
bool ResetPeak() {
  int fd = open("/proc/self/clear_refs", O_WRONLY);
  if (fd < 0) return false;
  const bool ok = write(fd, "5", 1) == 1;
  close(fd);
  return ok;
}

// Runs load in a child process and measures around it. load keeps what it
// loaded alive: the child ends without freeing anything.
bool MeasureInChild(const std::function<bool()>& load, Usage& usage, std::string& error) {
  int fds[2];
  if (pipe(fds) != 0) {
    error = "pipe failed";
    return false;
  }
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid < 0) {
    error = "fork failed";
    close(fds[0]);
    close(fds[1]);
    return false;
  }
  if (pid == 0) {
    close(fds[0]);
    Usage own;
    malloc_trim(0);
    own.peakReset = ResetPeak() ? 1 : 0;
    own.rssBeforeKb = StatusKb("VmRSS");
    own.loaded = load() ? 1 : 0;
    own.peakAfterKb = StatusKb("VmHWM");
    own.rssAfterKb = StatusKb("VmRSS");
    const bool sent = write(fds[1], &own, sizeof own) == static_cast<ssize_t>(sizeof own);
    _exit(sent ? 0 : 3);
  }
  close(fds[1]);
  const ssize_t got = read(fds[0], &usage, sizeof usage);
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  if (got != static_cast<ssize_t>(sizeof usage) || !WIFEXITED(status) ||
      WEXITSTATUS(status) != 0) {
    error = "the measuring child failed";
    return false;
  }
  if (!usage.loaded) {
    error = "the load failed in the child";
    return false;
  }
  return true;
}

void RegisterPeak(const DocSpec& spec, const std::string& lib,
                  std::function<bool(const std::string&)> load) {
  Register("peak_memory", spec, lib, [spec, load](benchmark::State& state) {
    const std::string& text = DocText(spec);
    Usage usage;
    std::string error;
    for (auto _ : state) {
      if (!MeasureInChild([&] { return load(text); }, usage, error)) {
        state.SkipWithError(error.c_str());
        break;
      }
    }
    if (state.error_occurred()) return;
    // Without a reset the peak would be the parent's; the resident set after
    // the load is then the best figure there is.
    const long peak = usage.peakReset ? usage.peakAfterKb : usage.rssAfterKb;
    state.counters["peak_delta_bytes"] = 1024.0 * static_cast<double>(peak - usage.rssBeforeKb);
    state.counters["rss_delta_bytes"] =
        1024.0 * static_cast<double>(usage.rssAfterKb - usage.rssBeforeKb);
    state.counters["doc_bytes"] = static_cast<double>(text.size());
    if (!usage.peakReset) state.SetLabel("peak not resettable: resident set after load");
  })->Iterations(1);
}

void RegisterAll() {
  for (const DocSpec& spec : SizedDocs("10MB")) {
    RegisterPeak(spec, "treekeeper", [](const std::string& text) {
      ITreeKeeper* tk = TkCreateTreeKeeper(nullptr);
      return tk != nullptr && tk->ImportFromStream(text.c_str(), 1, nullptr) == 0;
    });
    RegisterPeak(spec, "libxml2", [](const std::string& text) {
      return ParseWithDomOptions(text) != nullptr;
    });
    RegisterPeak(spec, "pugixml", [](const std::string& text) {
      auto* doc = new pugi::xml_document;
      return static_cast<bool>(doc->load_buffer(
          text.data(), text.size(), pugi::parse_default | pugi::parse_comments | pugi::parse_pi));
    });
    RegisterPeak(spec, "tinyxml2", [](const std::string& text) {
      auto* doc = new tinyxml2::XMLDocument;
      return doc->Parse(text.data(), text.size()) == tinyxml2::XML_SUCCESS;
    });
  }
}

}  // namespace
}  // namespace tkbench

int main(int argc, char** argv) { return tkbench::Main(argc, argv, tkbench::RegisterAll); }
