// A short walk through the library: version check, debug callback, an
// instance, a document, and its export.
#include <cstdio>

#include <treekeeper/treekeeper.h>

static void PrintMessage(const char* text) { std::fprintf(stderr, "[treekeeper] %s", text); }

int main() {
  if (!TkIsGoodVersion(TK_VERSION)) return 1;
  std::printf("TreeKeeper version 0x%08X\n", TkGetVersion());
  TkSetDebugOutput(PrintMessage);

  ITreeKeeper* tk = TkCreateTreeKeeper(nullptr);
  if (tk == nullptr) return 1;

  outputstr text("handles open: ");
  text = text + static_cast<uint32_t>(tk->GetHandleCount());
  std::printf("%s\n", text.text());

  TkDeleteTreeKeeper(tk);
  return 0;
}
