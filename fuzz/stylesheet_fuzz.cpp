// Bytes as a stylesheet applied to a fixed document. The run happens in a
// directory of its own holding one file with a marker: a stylesheet must
// never read that file (its marker never shows in a result) and never write
// anything there.
#include <dirent.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz_common.h"

namespace {

using tk::fuzz::Fail;

constexpr const char* kDocument =
    "<r a='1'><x>one</x><x>two<y z='3'/></x><![CDATA[c]]><!--n--><?p q?></r>";
constexpr const char* kMarker = "CANARY-7f3e9b";

std::string g_dir;

void Quiet(const char*) {}

// The names in the run directory other than the marker file.
std::string Strangers() {
  std::string found;
  DIR* dir = opendir(g_dir.c_str());
  if (dir == nullptr) Fail("run directory vanished");
  while (const dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != ".." && name != "canary.xml") found += name + "\n";
  }
  closedir(dir);
  return found;
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
  if (text.find(kMarker) != std::string::npos) Fail("a stylesheet read a local file", text);
  if (applied == -1 && text.find("<r a=\"1\">") == std::string::npos) {
    Fail("a failed ApplyXSLT changed the document", text);
  }
  // The instance goes on working, whatever the stylesheet did.
  tk->CloseAllElements();
  if (tk->CreateEmpty("again") != 0) Fail("instance unusable after ApplyXSLT");
  const std::string strangers = Strangers();
  if (!strangers.empty()) Fail("a stylesheet wrote files", strangers);
  return 0;
}
