// Serialising a loaded document: the whole tree to memory and to a file.
// Each library writes its own tree of the same bytes, without indentation.
// Throughput is counted in bytes of the source document, the same for all.
#include <libxml/xmlsave.h>
#include <pugixml.hpp>
#include <tinyxml2.h>

#include "common.h"

namespace tkbench {
namespace {

constexpr const char* kDeclaration = "<?xml version='1.0' encoding='UTF-8' ?>\n";

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
  if (tkText.compare(0, declaration.size(), declaration) == 0 &&
      tkText.compare(declaration.size(), std::string::npos, raw) == 0) {
    return "same bytes as libxml2";
  }
  return "differs from libxml2: " + std::to_string(tkText.size()) + " vs " +
         std::to_string(raw.size() + declaration.size()) + " bytes";
}

size_t SaveTreeToBuffer(xmlNodePtr root) {
  xmlBufferPtr buffer = xmlBufferCreate();
  xmlSaveCtxtPtr save = xmlSaveToBuffer(buffer, "UTF-8", XML_SAVE_NO_DECL);
  xmlSaveTree(save, root);
  xmlSaveClose(save);
  const size_t length = static_cast<size_t>(xmlBufferLength(buffer));
  benchmark::DoNotOptimize(xmlBufferContent(buffer));
  xmlBufferFree(buffer);
  return length;
}

void RegisterMemoryExport(const DocSpec& spec) {
  Register("export_memory", spec, "treekeeper", [spec](benchmark::State& state) {
    const std::string& text = DocText(spec);
    TkInstance tk;
    if (!Ok(state, tk->ImportFromStream(text.c_str(), 1, nullptr), "ImportFromStream")) return;
    outputstr out;
    for (auto _ : state) {
      if (!Ok(state, tk->ExportToStream(out), "ExportToStream")) break;
      benchmark::DoNotOptimize(out.text());
    }
    if (!state.error_occurred()) state.SetLabel(CompareWithLibxml2(out.text(), text));
    SetBytes(state, text.size(), out.length());
  });
  Register("export_memory", spec, "libxml2", [spec](benchmark::State& state) {
    const std::string& text = DocText(spec);
    xmlDocPtr doc = ParseWithDomOptions(text);
    xmlNodePtr root = xmlDocGetRootElement(doc);
    size_t length = 0;
    for (auto _ : state) length = SaveTreeToBuffer(root);
    xmlFreeDoc(doc);
    SetBytes(state, text.size(), length);
  });
  Register("export_memory", spec, "pugixml", [spec](benchmark::State& state) {
    const std::string& text = DocText(spec);
    pugi::xml_document doc;
    doc.load_buffer(text.data(), text.size(), pugi::parse_default | pugi::parse_comments |
                                                  pugi::parse_pi);
    size_t length = 0;
    for (auto _ : state) {
      StringWriter writer;
      doc.save(writer, "", pugi::format_raw, pugi::encoding_utf8);
      length = writer.text.size();
      benchmark::DoNotOptimize(writer.text.data());
    }
    SetBytes(state, text.size(), length);
  });
  Register("export_memory", spec, "tinyxml2", [spec](benchmark::State& state) {
    const std::string& text = DocText(spec);
    tinyxml2::XMLDocument doc;
    doc.Parse(text.data(), text.size());
    size_t length = 0;
    for (auto _ : state) {
      tinyxml2::XMLPrinter printer(nullptr, true);
      doc.Print(&printer);
      length = static_cast<size_t>(printer.CStrSize());
      benchmark::DoNotOptimize(printer.CStr());
    }
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
    for (auto _ : state) {
      if (!Ok(state, tk->ExportToFile(path.c_str()), "ExportToFile")) break;
    }
    SetBytes(state, text.size(), 0);
  });
  Register("export_file", spec, "libxml2", [spec, file](benchmark::State& state) {
    const std::string& text = DocText(spec);
    const std::string path = TempPath(file);
    xmlDocPtr doc = ParseWithDomOptions(text);
    xmlNodePtr root = xmlDocGetRootElement(doc);
    for (auto _ : state) {
      xmlSaveCtxtPtr save = xmlSaveToFilename(path.c_str(), "UTF-8", XML_SAVE_NO_DECL);
      xmlSaveTree(save, root);
      if (xmlSaveClose(save) < 0) {
        state.SkipWithError("xmlSaveClose failed");
        break;
      }
    }
    xmlFreeDoc(doc);
    SetBytes(state, text.size(), 0);
  });
  Register("export_file", spec, "pugixml", [spec, file](benchmark::State& state) {
    const std::string& text = DocText(spec);
    const std::string path = TempPath(file);
    pugi::xml_document doc;
    doc.load_buffer(text.data(), text.size(), pugi::parse_default | pugi::parse_comments |
                                                  pugi::parse_pi);
    for (auto _ : state) {
      if (!doc.save_file(path.c_str(), "", pugi::format_raw, pugi::encoding_utf8)) {
        state.SkipWithError("save_file failed");
        break;
      }
    }
    SetBytes(state, text.size(), 0);
  });
  Register("export_file", spec, "tinyxml2", [spec, file](benchmark::State& state) {
    const std::string& text = DocText(spec);
    const std::string path = TempPath(file);
    tinyxml2::XMLDocument doc;
    doc.Parse(text.data(), text.size());
    for (auto _ : state) {
      if (doc.SaveFile(path.c_str(), true) != tinyxml2::XML_SUCCESS) {
        state.SkipWithError("SaveFile failed");
        break;
      }
    }
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
