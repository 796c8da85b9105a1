// Helpers shared by the fuzz targets.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include <treekeeper/treekeeper.h>

namespace tk::fuzz {

// Stops the run with a readable reason; libFuzzer saves the input.
[[noreturn]] inline void Fail(const char* what, const std::string& detail = std::string()) {
  std::fprintf(stderr, "fuzz check failed: %s\n%s\n", what, detail.c_str());
  std::abort();
}

// An instance that goes at the end of the scope.
struct Scoped {
  Scoped() : tk(TkCreateTreeKeeper(nullptr)) {
    if (tk == nullptr) Fail("TkCreateTreeKeeper gave null");
  }
  ~Scoped() { TkDeleteTreeKeeper(tk); }
  Scoped(const Scoped&) = delete;
  Scoped& operator=(const Scoped&) = delete;
  ITreeKeeper* operator->() const { return tk; }
  ITreeKeeper* tk;
};

// Exports the whole document; the text, or "" when the export failed.
inline std::string Export(ITreeKeeper* tk, int* result = nullptr) {
  outputstr out;
  const int r = tk->ExportToStream(out);
  if (result != nullptr) *result = r;
  return r == 0 ? std::string(out.text(), out.length()) : std::string();
}

}  // namespace tk::fuzz
