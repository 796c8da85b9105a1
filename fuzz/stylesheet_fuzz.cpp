// Bytes as a stylesheet applied to a fixed document. The run happens in a
// directory of its own holding one file with a marker: a stylesheet must
// never open that file (the kernel tells, through inotify, and its marker
// never shows in a result) and never make anything there.
#include <sys/inotify.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_common.h"

namespace {

using tk::fuzz::Fail;

constexpr const char* kDocument =
    "<r a='1'><x>one</x><x>two<y z='3'/></x><![CDATA[c]]><!--n--><?p q?></r>";
constexpr const char* kMarker = "CANARY-7f3e9b";

std::string g_dir;
int g_watch = -1;

void Quiet(const char*) {}

// What happened in the run directory since the last call: names opened,
// read, made or moved in. Our own reads never touch it.
std::string Events() {
  std::string seen;
  alignas(inotify_event) char buffer[4096];
  for (;;) {
    const ssize_t got = read(g_watch, buffer, sizeof buffer);
    if (got <= 0) break;
    for (ssize_t at = 0; at < got;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      seen += event->len > 0 ? event->name : "(the directory)";
      seen += "\n";
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
  }
  return seen;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  TkSetDebugOutput(Quiet);
  char pattern[] = "/tmp/tk-fuzz-xslt-XXXXXX";
  if (mkdtemp(pattern) == nullptr) Fail("mkdtemp");
  g_dir = pattern;
  const std::string canary = g_dir + "/canary.xml";
  std::FILE* file = std::fopen(canary.c_str(), "wb");
  if (file == nullptr) Fail("canary file");
  std::fprintf(file, "<c>%s</c>\n", kMarker);
  std::fclose(file);
  if (chdir(g_dir.c_str()) != 0) Fail("chdir");
  g_watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (g_watch < 0 || inotify_add_watch(g_watch, g_dir.c_str(),
                                       IN_OPEN | IN_ACCESS | IN_CREATE | IN_MOVED_TO) < 0) {
    Fail("inotify");
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tk::fuzz;
  const std::string sheet(reinterpret_cast<const char*>(data), size);
  Scoped tk;
  if (tk->ImportFromStream(kDocument, 1, nullptr) != 0) Fail("fixed document refused");
  const int applied = TkXslt(tk.tk)->ApplyXSLT(sheet.c_str(), static_cast<int>(size));
  if (applied != 0 && applied != -1) Fail("ApplyXSLT gave a code outside its contract");
  const std::string text = Export(tk.tk);
  // (A stylesheet may hold the marker's text itself.)
  if (text.find(kMarker) != std::string::npos && sheet.find(kMarker) == std::string::npos) {
    Fail("a stylesheet read a local file", text);
  }
  if (applied == -1 && text.find("<r a=\"1\">") == std::string::npos) {
    Fail("a failed ApplyXSLT changed the document", text);
  }
  // The instance goes on working, whatever the stylesheet did.
  tk->CloseAllElements();
  if (tk->CreateEmpty("again") != 0) Fail("instance unusable after ApplyXSLT");
  const std::string events = Events();
  if (!events.empty()) Fail("a stylesheet opened or made files in its directory", events);
  return 0;
}
