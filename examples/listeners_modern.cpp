// Lists the listeners of a server configuration, bumps its revision and adds
// a metrics port, with the modern interface. listeners_contract.cpp does the
// same through the handle interface.
#include <cstdint>
#include <iostream>

#include <treekeeper/treekeeper.hpp>

int main(int argc, char** argv) try {
  tk::Document doc = tk::Document::load(argc > 1 ? argv[1] : "server.xml");
  for (const tk::Element& listener : doc.child("listeners").children("listener")) {
    std::cout << listener.attr("id") << " " << listener.get<uint32_t>("port") << "\n";
  }
  tk::Element root = doc.root();
  root.set_attr("revision", root.attr<uint32_t>("revision") + 1);
  doc.set("metrics/port", 9100);
  std::cout << doc.str() << "\n";
  return 0;
} catch (const tk::Error& error) {
  std::cerr << error.what() << "\n";
  return 1;
}
