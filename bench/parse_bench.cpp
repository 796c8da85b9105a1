// Parsing: the whole document from memory and from a file, into each
// library's tree, and libxml2's tokenizer with no tree as the floor.
//
// Every iteration builds one tree and frees one. The library loads into a new
// instance that is deleted behind the load, so that its tree goes when
// libxml2's and tinyxml2's do; pugixml frees the previous tree when the next
// load replaces it. "reimport_memory" shows the library loading again into
// one instance, where the previous tree stays until the new one stands.
#include <libxml/parserInternals.h>  // xmlCreateMemoryParserCtxt
#include <pugixml.hpp>
#include <tinyxml2.h>

#include <cstring>

#include "common.h"

namespace tkbench {
namespace {

constexpr unsigned kPugiOptions = pugi::parse_default | pugi::parse_comments | pugi::parse_pi;

void SetBytes(benchmark::State& state, size_t bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
  state.counters["doc_bytes"] = static_cast<double>(bytes);
}

void RegisterMemoryParse(const DocSpec& spec) {
  Register("parse_memory", spec, "treekeeper", [spec](benchmark::State& state) {
    const std::string& text = DocText(spec);
    Repeat(state, [&] {
      TkInstance tk;
      return Failure("ImportFromStream", tk->ImportFromStream(text.c_str(), 1, nullptr));
    });
    SetBytes(state, text.size());
  });
  Register("reimport_memory", spec, "treekeeper", [spec](benchmark::State& state) {
    const std::string& text = DocText(spec);
    TkInstance tk;
    Repeat(state, [&] {
      const int rc = tk->ImportFromStream(text.c_str(), 1, nullptr);
      tk->CloseAllElements();
      return Failure("ImportFromStream", rc);
    });
    SetBytes(state, text.size());
  });
  RegisterLibxml2Parses("parse_memory", spec);
  Register("parse_memory", spec, "pugixml", [spec](benchmark::State& state) {
    const std::string& text = DocText(spec);
    pugi::xml_document doc;
    Repeat(state, [&] {
      const bool ok = doc.load_buffer(text.data(), text.size(), kPugiOptions, pugi::encoding_utf8);
      return ok ? std::string() : "load_buffer failed";
    });
    SetBytes(state, text.size());
  });
  Register("parse_memory", spec, "tinyxml2", [spec](benchmark::State& state) {
    const std::string& text = DocText(spec);
    Repeat(state, [&] {
      tinyxml2::XMLDocument doc;
      const bool ok = doc.Parse(text.data(), text.size()) == tinyxml2::XML_SUCCESS;
      return ok ? std::string() : "Parse failed";
    });
    SetBytes(state, text.size());
  });
}

void RegisterFileParse(const DocSpec& spec) {
  Register("parse_file", spec, "treekeeper", [spec](benchmark::State& state) {
    const std::string& path = DocFile(spec);
    Repeat(state, [&] {
      TkInstance tk;
      return Failure("ImportFromFile", tk->ImportFromFile(path.c_str()));
    });
    SetBytes(state, DocText(spec).size());
  });
  Register("parse_file", spec, "libxml2", [spec](benchmark::State& state) {
    const std::string& path = DocFile(spec);
    Repeat(state, [&] {
      xmlDocPtr doc = xmlReadFile(path.c_str(), nullptr, kDomParseOptions);
      if (doc == nullptr) return std::string("xmlReadFile failed");
      xmlFreeDoc(doc);
      return std::string();
    });
    SetBytes(state, DocText(spec).size());
  });
  Register("parse_file", spec, "pugixml", [spec](benchmark::State& state) {
    const std::string& path = DocFile(spec);
    pugi::xml_document doc;
    Repeat(state, [&] {
      const bool ok = doc.load_file(path.c_str(), kPugiOptions, pugi::encoding_utf8);
      return ok ? std::string() : "load_file failed";
    });
    SetBytes(state, DocText(spec).size());
  });
  Register("parse_file", spec, "tinyxml2", [spec](benchmark::State& state) {
    const std::string& path = DocFile(spec);
    Repeat(state, [&] {
      tinyxml2::XMLDocument doc;
      const bool ok = doc.LoadFile(path.c_str()) == tinyxml2::XML_SUCCESS;
      return ok ? std::string() : "LoadFile failed";
    });
    SetBytes(state, DocText(spec).size());
  });
}

void RegisterAll() {
  std::vector<DocSpec> docs = SizedDocs();
  for (const DocSpec& wide : WideDocs()) docs.push_back(wide);
  for (const DocSpec& spec : docs) RegisterMemoryParse(spec);
  for (const DocSpec& spec : docs) RegisterFileParse(spec);
}

}  // namespace
}  // namespace tkbench

int main(int argc, char** argv) { return tkbench::Main(argc, argv, tkbench::RegisterAll); }
