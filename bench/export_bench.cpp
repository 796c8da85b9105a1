// Serialising a loaded document: the whole tree to memory and to a file.
// Each library writes its own tree of the same bytes, without indentation.
// Throughput is counted in bytes of the source document, the same for all.
#include <libxml/xmlIO.h>
#include <pugixml.hpp>
#include <tinyxml2.h>

#include "common.h"

namespace tkbench {
namespace {

constexpr const char* kDeclaration = "<?xml version='1.0' encoding='UTF-8' ?>\n";
constexpr unsigned kPugiOptions = pugi::parse_default | pugi::parse_comments | pugi::parse_pi;

void SetBytes(benchmark::State& state, size_t sourceBytes, size_t outputBytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * sourceBytes));
  state.counters["out_bytes"] = static_cast<double>(outputBytes);
}

struct StringWriter : pugi::xml_writer {
  std::string text;
  void write(const void* data, size_t size) override {
    text.append(static_cast<const char*>(data), size);
  }
};

// Whether the library wrote what libxml2 writes for the same tree, behind
// its fixed declaration. Shown as the benchmark's label.
std::string CompareWithLibxml2(const std::string& tkText, const std::string& text) {
  xmlDocPtr doc = ParseWithDomOptions(text);
  const std::string raw = SerializeElement(xmlDocGetRootElement(doc));
  xmlFreeDoc(doc);
  const std::string declaration = kDeclaration;
  if (tkText.compare(0, declaration.size(), declaration) != 0) return "no declaration";
  const std::string body = tkText.substr(declaration.size());
  if (body == raw) return "same bytes as libxml2";
  if (body == SurrogateForm(raw)) return "as libxml2, non-BMP as surrogate pairs";
  return "differs from libxml2: " + std::to_string(tkText.size()) + " vs " +
         std::to_string(raw.size() + declaration.size()) + " bytes";
}

// libxml2's serialisation of the element into a memory buffer: the call the
// library's DOM makes for its text.
size_t DumpToMemory(xmlNodePtr root) {
  xmlOutputBufferPtr buffer = xmlAllocOutputBuffer(nullptr);
  xmlNodeDumpOutput(buffer, root->doc, root, 0, 0, "UTF-8");
  const size_t length = xmlOutputBufferGetSize(buffer);
  benchmark::DoNotOptimize(xmlOutputBufferGetContent(buffer));
  xmlOutputBufferClose(buffer);
  return length;
}

void RegisterMemoryExport(const DocSpec& spec) {
  Register("export_memory", spec, "treekeeper", [spec](benchmark::State& state) {
    const std::string& text = DocText(spec);
    TkInstance tk;
    if (!Ok(state, tk->ImportFromStream(text.c_str(), 1, nullptr), "ImportFromStream")) return;
    outputstr out;
    Repeat(state, [&] {
      const int rc = tk->ExportToStream(out);
      benchmark::DoNotOptimize(out.text());
      return Failure("ExportToStream", rc);
    });
    if (!state.error_occurred()) state.SetLabel(CompareWithLibxml2(out.text(), text));
    SetBytes(state, text.size(), out.length());
  });
  Register("export_memory", spec, "libxml2", [spec](benchmark::State& state) {
    const std::string& text = DocText(spec);
    xmlDocPtr doc = ParseWithDomOptions(text);
    xmlNodePtr root = xmlDocGetRootElement(doc);
    size_t length = 0;
    Repeat(state, [&] {
      length = DumpToMemory(root);
      return std::string();
    });
    xmlFreeDoc(doc);
    SetBytes(state, text.size(), length);
  });
  Register("export_memory", spec, "pugixml", [spec](benchmark::State& state) {
    const std::string& text = DocText(spec);
    pugi::xml_document doc;
    if (!doc.load_buffer(text.data(), text.size(), kPugiOptions)) {
      state.SkipWithError("load_buffer failed");
      return;
    }
    size_t length = 0;
    Repeat(state, [&] {
      StringWriter writer;
      doc.save(writer, "", pugi::format_raw, pugi::encoding_utf8);
      length = writer.text.size();
      benchmark::DoNotOptimize(writer.text.data());
      return std::string();
    });
    SetBytes(state, text.size(), length);
  });
  Register("export_memory", spec, "tinyxml2", [spec](benchmark::State& state) {
    const std::string& text = DocText(spec);
    tinyxml2::XMLDocument doc;
    if (doc.Parse(text.data(), text.size()) != tinyxml2::XML_SUCCESS) {
      state.SkipWithError("Parse failed");
      return;
    }
    size_t length = 0;
    Repeat(state, [&] {
      tinyxml2::XMLPrinter printer(nullptr, true);
      doc.Print(&printer);
      length = static_cast<size_t>(printer.CStrSize());
      benchmark::DoNotOptimize(printer.CStr());
      return std::string();
    });
    SetBytes(state, text.size(), length);
  });
}

void RegisterFileExport(const DocSpec& spec) {
  const std::string file = "export-" + std::string(ShapeName(spec.shape)) + ".xml";
  Register("export_file", spec, "treekeeper", [spec, file](benchmark::State& state) {
    const std::string& text = DocText(spec);
    const std::string path = TempPath(file);
    TkInstance tk;
    if (!Ok(state, tk->ImportFromStream(text.c_str(), 1, nullptr), "ImportFromStream")) return;
    Repeat(state, [&] { return Failure("ExportToFile", tk->ExportToFile(path.c_str())); });
    SetBytes(state, text.size(), 0);
  });
  Register("export_file", spec, "libxml2", [spec, file](benchmark::State& state) {
    const std::string& text = DocText(spec);
    const std::string path = TempPath(file);
    xmlDocPtr doc = ParseWithDomOptions(text);
    xmlNodePtr root = xmlDocGetRootElement(doc);
    Repeat(state, [&] {
      xmlOutputBufferPtr out = xmlOutputBufferCreateFilename(path.c_str(), nullptr, 0);
      xmlNodeDumpOutput(out, doc, root, 0, 0, "UTF-8");
      return xmlOutputBufferClose(out) < 0 ? "xmlOutputBufferClose failed" : std::string();
    });
    xmlFreeDoc(doc);
    SetBytes(state, text.size(), 0);
  });
  Register("export_file", spec, "pugixml", [spec, file](benchmark::State& state) {
    const std::string& text = DocText(spec);
    const std::string path = TempPath(file);
    pugi::xml_document doc;
    if (!doc.load_buffer(text.data(), text.size(), kPugiOptions)) {
      state.SkipWithError("load_buffer failed");
      return;
    }
    Repeat(state, [&] {
      const bool ok = doc.save_file(path.c_str(), "", pugi::format_raw, pugi::encoding_utf8);
      return ok ? std::string() : "save_file failed";
    });
    SetBytes(state, text.size(), 0);
  });
  Register("export_file", spec, "tinyxml2", [spec, file](benchmark::State& state) {
    const std::string& text = DocText(spec);
    const std::string path = TempPath(file);
    tinyxml2::XMLDocument doc;
    if (doc.Parse(text.data(), text.size()) != tinyxml2::XML_SUCCESS) {
      state.SkipWithError("Parse failed");
      return;
    }
    Repeat(state, [&] {
      const bool ok = doc.SaveFile(path.c_str(), true) == tinyxml2::XML_SUCCESS;
      return ok ? std::string() : "SaveFile failed";
    });
    SetBytes(state, text.size(), 0);
  });
}

void RegisterAll() {
  std::vector<DocSpec> docs = SizedDocs();
  for (const DocSpec& wide : WideDocs()) docs.push_back(wide);
  for (const DocSpec& spec : docs) RegisterMemoryExport(spec);
  for (const DocSpec& spec : docs) RegisterFileExport(spec);
}

}  // namespace
}  // namespace tkbench

int main(int argc, char** argv) { return tkbench::Main(argc, argv, tkbench::RegisterAll); }
