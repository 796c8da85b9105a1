// Bytes as XML text: whatever the import accepts must export, read back and
// export again to the same text.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_common.h"

namespace {
void Quiet(const char*) {}
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
  if (twice != once) Fail("export, import, export changed the text", once + "\n----\n" + twice);
  return 0;
}
