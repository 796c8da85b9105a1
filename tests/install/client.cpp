// A client that knows nothing but the installed header and library.
#include <cstdio>
#include <cstring>

#include <treekeeper/treekeeper.h>

static int g_messages = 0;
static void OnDebug(const char*) { ++g_messages; }

int main() {
  if (TkIsGoodVersion(TkGetVersion()) != 1) return 1;
  TkSetDebugOutput(OnDebug);
  ITreeKeeper* tk = TkCreateTreeKeeper(nullptr);
  if (tk == nullptr) return 2;
  if (tk->GetHandleCount() != 0) return 3;
  tk->CloseAllElements();
  outputstr text("tree");
  text = text + "keeper";
  if (std::strcmp(text.text(), "treekeeper") != 0) return 4;
  TkDeleteTreeKeeper(tk);
  std::puts("installed client ok");
  return 0;
}
