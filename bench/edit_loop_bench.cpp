// Memory over a long edit loop on one document: a million steps of create,
// fill and delete. Each step opens a new element below the root, writes its
// value, closes its handle and deletes it. The resident set is printed at
// the start and every 100,000 steps; a library that gives back what a step
// made stays where it started.
//
//   tk_bench_edit_loop [steps]
#include <treekeeper/treekeeper.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

namespace {

long ResidentKb() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmRSS:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
  }
  return -1;
}

}  // namespace

int main(int argc, char** argv) {
  const long steps = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 1000000;
  ITreeKeeper* tk = TkCreateTreeKeeper(nullptr);
  if (tk == nullptr || tk->CreateEmpty("doc") != 0) return 2;
  const char value[] = "a value of some forty bytes, give or take";
  const long start = ResidentKb();
  std::printf("%10s %12s %12s\n", "steps", "VmRSS kB", "growth kB");
  std::printf("%10d %12ld %12d\n", 0, start, 0);
  for (long step = 1; step <= steps; ++step) {
    unsigned handle = 0;
    if (tk->CreateElement(100, "item/name", &handle) != 0 ||
        tk->SetElementValue(handle, nullptr, TK_VALUE_TEXT, sizeof value - 1, value) != 0 ||
        tk->setAttributeValue(100, "item", "id", TK_VALUE_TEXT, 1, "7") != 0 ||
        tk->CloseElement(handle) != 0 || tk->DeleteElement(100, "item") != 0) {
      std::fprintf(stderr, "step %ld failed\n", step);
      return 1;
    }
    if (step % 100000 == 0 || step == steps) {
      const long now = ResidentKb();
      std::printf("%10ld %12ld %12ld\n", step, now, now - start);
    }
  }
  TkDeleteTreeKeeper(tk);
  return 0;
}
