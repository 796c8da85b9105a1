// A client of the modern interface that knows nothing but the packaged
// headers and library.
#include <cstdio>

#include <treekeeper/treekeeper.hpp>

int main() {
  tk::Document doc = tk::Document::create("settings");
  doc.set("net/port", 8080);
  if (doc.get<uint32_t>("net/port") != 8080) return 1;
  if (doc.try_get("none").code() != -102) return 2;
  std::puts("packaged client ok");
  return 0;
}
