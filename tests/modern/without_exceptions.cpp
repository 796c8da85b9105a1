// The header in C++17 with exceptions off: only the try_ forms exist, and
// they report every failure by result.
#include <cstdio>

#include <treekeeper/treekeeper.hpp>

int main() {
  tk::Result<tk::Document> doc = tk::Document::try_parse("<r><a>7</a><a>x</a></r>");
  if (!doc.ok()) return 1;
  uint32_t sum = 0;
  int failures = 0;
  for (const tk::Element& a : doc->children("a")) {
    const tk::Result<uint32_t> number = a.try_get<uint32_t>();
    if (number.ok()) sum += *number;
    failures += number.code() == -104;
  }
  if (sum != 7 || failures != 1) return 2;
  if (doc->try_set("b/c", std::string_view("v")).code() != 0) return 3;
  if (doc->try_get("b/c").value() != "v" || doc->try_get("z").code() != -102) return 4;
  if (doc->native()->GetHandleCount() != 1) return 5;
  std::puts("ok");
  return 0;
}
