// The library's own document model, built from libxml2's SAX2 events, beside
// libxml2's tree and its bare tokenizer. The model is not behind the public
// interface yet, so this program reaches it through the DOM layer's test
// hooks; once it is, the import rows of the parse program measure it.
#include <malloc.h>

#include "common.h"
#include "dom/dom.h"

namespace tkbench {
namespace {

size_t HeapInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

void SetBytes(benchmark::State& state, size_t sourceBytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * sourceBytes));
}

void RegisterModel(const DocSpec& spec) {
  Register("model_build", spec, "treekeeper", [spec](benchmark::State& state) {
    const std::string& text = DocText(spec);
    size_t bytes = 0;
    Repeat(state, [&] {
      return Failure("BuildModel", tk::dom::testing::BuildModel(text.data(), text.size(), bytes));
    });
    SetBytes(state, text.size());
  });
  Register("model_build", spec, "libxml2_sax_calls", [spec](benchmark::State& state) {
    const std::string& text = DocText(spec);
    Repeat(state, [&] { return SaxParse(text, true) ? std::string() : "SAX parse failed"; });
    SetBytes(state, text.size());
  });
  RegisterLibxml2Parses("model_build", spec);
  // What each tree holds once built: the model's blocks, chunks and name
  // table; the heap that libxml2's tree takes.
  Register("model_memory", spec, "treekeeper", [spec](benchmark::State& state) {
    const std::string& text = DocText(spec);
    size_t bytes = 0;
    Repeat(state, [&] {
      return Failure("BuildModel", tk::dom::testing::BuildModel(text.data(), text.size(), bytes));
    });
    state.counters["tree_bytes"] = static_cast<double>(bytes);
  });
  Register("model_memory", spec, "libxml2", [spec](benchmark::State& state) {
    const std::string& text = DocText(spec);
    size_t bytes = 0;
    Repeat(state, [&] {
      const size_t before = HeapInUse();
      xmlDocPtr doc = ParseWithDomOptions(text);
      if (doc == nullptr) return std::string("xmlReadMemory failed");
      bytes = HeapInUse() - before;
      xmlFreeDoc(doc);
      return std::string();
    });
    state.counters["tree_bytes"] = static_cast<double>(bytes);
  });
}

void RegisterAll() {
  for (const DocSpec& spec : SizedDocs()) RegisterModel(spec);
  for (const DocSpec& spec : WideDocs()) RegisterModel(spec);
}

}  // namespace
}  // namespace tkbench

int main(int argc, char** argv) { return tkbench::Main(argc, argv, tkbench::RegisterAll); }
