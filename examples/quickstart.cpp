// A short walk through the library: version check, debug callback, an
// instance, a small document built from nothing, and its export.
#include <cstdio>
#include <cstring>

#include <treekeeper/treekeeper.h>

static void PrintMessage(const char* text) { std::fprintf(stderr, "[treekeeper] %s", text); }

int main() {
  if (!TkIsGoodVersion(TK_VERSION)) return 1;
  std::printf("TreeKeeper version 0x%08X\n", TkGetVersion());
  TkSetDebugOutput(PrintMessage);

  ITreeKeeper* tk = TkCreateTreeKeeper(nullptr);
  if (tk == nullptr) return 1;

  // The root element is always handle 100.
  int result = tk->CreateEmpty("settings");
  if (result != 0) {
    std::fprintf(stderr, "CreateEmpty failed: %d\n", result);
    TkDeleteTreeKeeper(tk);
    return 1;
  }

  // Elements on the way to the last one are made as needed; values are
  // written through the new handles.
  unsigned host = 0;
  unsigned port = 0;
  const char hostName[] = "example.org";
  const unsigned portNumber = 8080;
  if (tk->CreateElement(100, "net/host", &host) != 0 ||
      tk->SetElementValue(host, nullptr, TK_VALUE_TEXT,
                          static_cast<unsigned>(std::strlen(hostName)), hostName) != 0 ||
      tk->CreateElement(100, "net/port", &port) != 0 ||
      tk->SetElementValue(port, nullptr, TK_VALUE_NUMBER, sizeof portNumber, &portNumber) != 0) {
    std::fprintf(stderr, "building the document failed\n");
  }

  outputstr text;
  if (tk->ExportToStream(text) == 0) std::printf("%s\n", text.text());

  outputstr count("handles open: ");
  count = count + static_cast<uint32_t>(tk->GetHandleCount());
  std::printf("%s\n", count.text());

  TkDeleteTreeKeeper(tk);
  return 0;
}
