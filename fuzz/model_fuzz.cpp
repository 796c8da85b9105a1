// Bytes as XML, loaded twice: into the engine's tree, and into the library's
// own model built from the engine's events. Both must accept and refuse the
// same documents (with the same error), and what both accept must write the
// same bytes, as must the engine's tree copied into the model.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "dom/dom.h"

namespace {

using namespace tk::dom;

[[noreturn]] void Differ(const char* what, const std::string& model, std::string_view engine) {
  std::fprintf(stderr, "%s differs\nmodel:  %s\nengine: %.*s\n", what, model.c_str(),
               static_cast<int>(engine.size()), engine.data());
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool ready = InitThread() >= 0;
  if (!ready) return 0;
  const char* bytes = reinterpret_cast<const char*>(data);
  Document doc;
  if (Document::Create(doc) != kOk) return 0;
  const int loaded = doc.loadBytes(bytes, size);
  std::string built;
  const int status = testing::BuiltModelXml(bytes, size, AboveBmp::kFourBytes, built);
  if (loaded != kOk) {
    ParseError error;
    doc.get_parseError(error);
    if (status != kFalse && status != error.errorCode) {
      std::fprintf(stderr, "the engine refused (%d: %s) and the builder said %d\n",
                   error.errorCode, error.reason.c_str(), status);
      std::abort();
    }
    return 0;
  }
  Node root, top;
  if (doc.get_documentElement(root) != kOk) return 0;
  root.get_parentNode(top);
  XmlText engine;
  if (top.get_xml(engine) != kOk) return 0;
  if (status != kFalse) {
    if (status != kOk) Differ("acceptance", "refused: " + std::to_string(status), engine.view());
    if (built != engine.view()) Differ("built tree", built, engine.view());
  }
  std::string copied;
  if (testing::ModelXml(root, AboveBmp::kFourBytes, copied) == kOk && copied != engine.view()) {
    Differ("copied tree", copied, engine.view());
  }
  return 0;
}
