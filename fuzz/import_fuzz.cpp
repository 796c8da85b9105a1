// Bytes as XML text: whatever the import accepts must export, read back and
// export again to the same text (but for white space between tags that the
// second import may drop).
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_common.h"

namespace {
void Quiet(const char*) {}

// The text without the runs of white space that stand alone between two
// tags, and with CDATA sections that meet joined into one.
std::string WithoutBlankRuns(const std::string& text) {
  std::string out;
  size_t i = 0;
  while (i < text.size()) {
    if (text[i] == '>') {
      size_t j = i + 1;
      while (j < text.size() && (text[j] == ' ' || text[j] == '\t' || text[j] == '\n')) ++j;
      if (j < text.size() && text[j] == '<') {
        out += '>';
        i = j;
        continue;
      }
    }
    out += text[i++];
  }
  const std::string seam = "]]><![CDATA[";
  for (size_t at = out.find(seam); at != std::string::npos; at = out.find(seam, at)) {
    out.erase(at, seam.size());
  }
  return out;
}

// Whether white space alone between two tags is kept on import depends on
// the text before it in the same element, down to how that text was
// spelled: white space kept once keeps every later run of the element, and a
// CR written in the input counts as such a run while the LF the export
// writes for it does not. So the text read back may lack some of those runs,
// and only those (two CDATA sections that such a run kept apart then become
// one).
bool SameButForDroppedBlankRuns(const std::string& once, const std::string& twice) {
  return twice.size() <= once.size() && WithoutBlankRuns(once) == WithoutBlankRuns(twice);
}
}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  TkSetDebugOutput(Quiet);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tk::fuzz;
  const std::string text(reinterpret_cast<const char*>(data), size);  // NUL-terminated copy
  Scoped first;
  const int imported = first->ImportFromStream(text.c_str(), static_cast<int>(size) + 1, "input");
  if (imported != 0) {
    // A refused import leaves nothing open and the instance usable.
    if (first->GetHandleCount() != 0) Fail("refused import left handles open");
    if (first->CreateEmpty("fresh") != 0) Fail("instance unusable after a refused import");
    return 0;
  }
  int exported = 0;
  const std::string once = Export(first.tk, &exported);
  if (exported != 0) Fail("accepted document does not export");

  // The root's subtree alone carries the same element text after the declaration.
  outputstr subtree;
  if (first->ExportSubTreeToStream(100, subtree) != 0) Fail("root subtree does not export");
  if (std::string(subtree.text()) != once) Fail("subtree export differs", subtree.text());

  Scoped second;
  const int again = second->ImportFromStream(once.c_str(), static_cast<int>(once.size()) + 1,
                                             nullptr);
  if (again != 0) Fail("exported text is refused on import", once);
  const std::string twice = Export(second.tk);
  if (twice != once && !SameButForDroppedBlankRuns(once, twice)) {
    Fail("export, import, export changed the text", once + "\n----\n" + twice);
  }
  return 0;
}
