// Lists the listeners of a server configuration, bumps its revision and adds
// a metrics port, through the handle interface. listeners_modern.cpp does the
// same with the modern interface.
#include <cstdint>
#include <cstdio>

#include <treekeeper/treekeeper.h>

static void PrintMessage(const char* text) { std::fprintf(stderr, "%s", text); }

// Reads the text of the element at path below handle; "" when there is none.
static int ReadText(ITreeKeeper* tk, unsigned handle, const char* path, char* text,
                    unsigned capacity) {
  unsigned size = capacity;
  text[0] = '\0';
  return tk->GetElementValue(handle, path, TK_VALUE_TEXT, &size, text);
}

static int Run(ITreeKeeper* tk, const char* file) {
  if (tk->ImportFromFile(file) != 0) return 1;
  unsigned count = 0;
  if (tk->EnumElement(100, "listeners", "listener", &count, nullptr) != 0) return 1;
  for (unsigned i = 0; i < count; ++i) {
    unsigned index = i;
    unsigned listener = 0;
    if (tk->EnumElement(100, "listeners", "listener", &index, &listener) != 0) return 1;
    char id[64];
    uint32_t port = 0;
    unsigned size = sizeof id;
    int rc = tk->GetAttributeValue(listener, nullptr, "id", TK_VALUE_TEXT, &size, id);
    if (rc == 0) {
      size = sizeof port;
      rc = tk->GetElementValue(listener, "port", TK_VALUE_NUMBER, &size, &port);
    }
    tk->CloseElement(listener);
    if (rc != 0) return 1;
    std::printf("%s %u\n", id, port);
  }
  uint32_t revision = 0;
  unsigned size = sizeof revision;
  if (tk->GetAttributeValue(100, nullptr, "revision", TK_VALUE_NUMBER, &size, &revision) != 0)
    return 1;
  ++revision;
  if (tk->setAttributeValue(100, nullptr, "revision", TK_VALUE_NUMBER, sizeof revision,
                            &revision) != 0)
    return 1;
  const uint32_t port = 9100;
  char existing[16];
  unsigned metrics = 0;
  if (ReadText(tk, 100, "metrics/port", existing, sizeof existing) == -102) {
    if (tk->CreateElement(100, "metrics/port", &metrics) != 0) return 1;
  }
  const int rc = tk->SetElementValue(metrics != 0 ? metrics : 100,
                                     metrics != 0 ? nullptr : "metrics/port", TK_VALUE_NUMBER,
                                     sizeof port, &port);
  if (metrics != 0) tk->CloseElement(metrics);
  if (rc != 0) return 1;
  outputstr xml;
  if (tk->ExportToStream(xml) != 0) return 1;
  std::printf("%s\n", xml.text());
  return 0;
}

int main(int argc, char** argv) {
  TkSetDebugOutput(PrintMessage);
  ITreeKeeper* tk = TkCreateTreeKeeper(nullptr);
  if (tk == nullptr) return 1;
  const int status = Run(tk, argc > 1 ? argv[1] : "server.xml");
  TkDeleteTreeKeeper(tk);
  return status;
}
