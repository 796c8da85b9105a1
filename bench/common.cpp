#include "common.h"

#include <libxml/parserInternals.h>  // xmlCreateMemoryParserCtxt
#include <libxml/xmlIO.h>
#include <libxslt/xslt.h>
#include <stdlib.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

namespace tkbench {
namespace {

bool g_smoke = false;
std::string g_tempDir;

struct SizeClass {
  size_t bytes;
  const char* label;
};
constexpr SizeClass kSizes[] = {{100'000, "100KB"}, {1'000'000, "1MB"}, {10'000'000, "10MB"}};
constexpr Shape kSizedShapes[] = {Shape::kConfig, Shape::kAttributes, Shape::kText,
                                  Shape::kMixed};

void RemoveTempDir() {
  if (g_tempDir.empty()) return;
  std::error_code ignored;
  std::filesystem::remove_all(g_tempDir, ignored);
}

const std::string& TempDir() {
  if (g_tempDir.empty()) {
    std::string pattern = (std::filesystem::temp_directory_path() / "tkbench.XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      std::perror("tkbench: mkdtemp");
      std::exit(2);
    }
    g_tempDir = pattern;
    std::atexit(RemoveTempDir);
  }
  return g_tempDir;
}

void DropDebugMessages(const char*) {}

}  // namespace

bool SmokeCorpus() { return g_smoke; }

std::vector<DocSpec> SizedDocs() {
  std::vector<DocSpec> docs;
  for (const SizeClass& size : kSizes) {
    for (Shape shape : kSizedShapes) docs.push_back({shape, size.bytes, size.label});
    if (g_smoke) break;
  }
  return docs;
}

std::vector<DocSpec> SizedDocs(const std::string& sizeLabel) {
  std::vector<DocSpec> docs;
  for (const DocSpec& spec : SizedDocs()) {
    if (g_smoke || spec.sizeLabel == sizeLabel) docs.push_back(spec);
  }
  return docs;
}

std::vector<DocSpec> WideDocs() {
  std::vector<DocSpec> docs{{Shape::kWide, 10'000, "n10k"}};
  if (!g_smoke) docs.push_back({Shape::kWide, 100'000, "n100k"});
  return docs;
}

const std::string& DocText(const DocSpec& spec) {
  static std::map<std::string, std::string> cache;
  auto [it, inserted] = cache.try_emplace(DocLabel(spec));
  if (inserted) it->second = Generate(spec);
  return it->second;
}

const std::string& DocFile(const DocSpec& spec) {
  static std::map<std::string, std::string> files;
  auto [it, inserted] = files.try_emplace(DocLabel(spec));
  if (inserted) {
    std::string name = DocLabel(spec);
    for (char& c : name) {
      if (c == '/') c = '-';
    }
    it->second = TempPath(name + ".xml");
    const std::string& text = DocText(spec);
    std::ofstream out(it->second, std::ios::binary);
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    if (!out) {
      std::fprintf(stderr, "tkbench: cannot write %s\n", it->second.c_str());
      std::exit(2);
    }
  }
  return it->second;
}

std::string TempPath(const std::string& name) { return TempDir() + "/" + name; }

benchmark::internal::Benchmark* Register(const std::string& op, const std::string& label,
                                         const std::string& lib,
                                         std::function<void(benchmark::State&)> fn,
                                         bool manualTime) {
  const std::string name = op + "/" + label + "/" + lib;
  auto* b = benchmark::RegisterBenchmark(name.c_str(), std::move(fn));
  return manualTime ? b->UseManualTime() : b;
}

benchmark::internal::Benchmark* Register(const std::string& op, const DocSpec& spec,
                                         const std::string& lib,
                                         std::function<void(benchmark::State&)> fn,
                                         bool manualTime) {
  auto* b = Register(op, DocLabel(spec), lib, std::move(fn), manualTime);
  b->Unit(spec.shape != Shape::kWide && spec.size < 1'000'000 ? benchmark::kMicrosecond
                                                                : benchmark::kMillisecond);
  return b;
}

int Main(int argc, char** argv, void (*registerAll)(), benchmark::BenchmarkReporter* reporter) {
  int kept = 1;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--tk_corpus=smoke") == 0) {
      g_smoke = true;
    } else if (std::strcmp(argv[i], "--tk_corpus=full") == 0) {
      g_smoke = false;
    } else {
      argv[kept++] = argv[i];
    }
  }
  argc = kept;
  // The library and the raw peer share one engine; set it up before any
  // timing so that neither pays for it inside a measurement.
  xmlInitParser();
  xsltInit();
  TkSetDebugOutput(DropDebugMessages);
  registerAll();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  if (reporter != nullptr) {
    benchmark::RunSpecifiedBenchmarks(reporter);
  } else {
    benchmark::RunSpecifiedBenchmarks();
  }
  benchmark::Shutdown();
  return 0;
}

TkInstance::TkInstance() : m_tk(TkCreateTreeKeeper(nullptr)) {
  if (m_tk == nullptr) {
    std::fprintf(stderr, "tkbench: TkCreateTreeKeeper failed\n");
    std::exit(2);
  }
}

TkInstance::~TkInstance() { TkDeleteTreeKeeper(m_tk); }

bool Ok(benchmark::State& state, int rc, const char* what) {
  if (rc == 0) return true;
  state.SkipWithError((std::string(what) + " returned " + std::to_string(rc)).c_str());
  return false;
}

std::string Failure(const char* what, int rc) {
  return rc == 0 ? std::string() : std::string(what) + " returned " + std::to_string(rc);
}

bool SaxParse(const std::string& text, bool withCalls) {
  static xmlSAXHandler empty = [] {
    xmlSAXHandler handler;
    std::memset(&handler, 0, sizeof handler);
    handler.initialized = XML_SAX2_MAGIC;
    return handler;
  }();
  static xmlSAXHandler calls = [] {
    xmlSAXHandler handler = empty;
    handler.startElementNs = [](void*, const xmlChar*, const xmlChar*, const xmlChar*, int,
                                const xmlChar**, int, int, const xmlChar**) {};
    handler.endElementNs = [](void*, const xmlChar*, const xmlChar*, const xmlChar*) {};
    handler.characters = [](void*, const xmlChar*, int) {};
    handler.ignorableWhitespace = [](void*, const xmlChar*, int) {};  // told apart from text
    handler.cdataBlock = [](void*, const xmlChar*, int) {};
    handler.comment = [](void*, const xmlChar*) {};
    handler.processingInstruction = [](void*, const xmlChar*, const xmlChar*) {};
    return handler;
  }();
  xmlParserCtxtPtr ctxt = xmlCreateMemoryParserCtxt(text.data(), static_cast<int>(text.size()));
  if (ctxt == nullptr) return false;
  xmlCtxtUseOptions(ctxt, kDomParseOptions);
  xmlSAXHandlerPtr own = ctxt->sax;
  ctxt->sax = withCalls ? &calls : &empty;
  ctxt->userData = nullptr;
  xmlParseDocument(ctxt);
  const bool ok = ctxt->wellFormed != 0;
  ctxt->sax = own;
  xmlFreeParserCtxt(ctxt);
  return ok;
}

void RegisterLibxml2Parses(const std::string& op, const DocSpec& spec) {
  auto setBytes = [](benchmark::State& state, size_t bytes) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
    state.counters["doc_bytes"] = static_cast<double>(bytes);
  };
  Register(op, spec, "libxml2", [spec, setBytes](benchmark::State& state) {
    const std::string& text = DocText(spec);
    Repeat(state, [&] {
      xmlDocPtr doc = ParseWithDomOptions(text);
      if (doc == nullptr) return std::string("xmlReadMemory failed");
      xmlFreeDoc(doc);
      return std::string();
    });
    setBytes(state, text.size());
  });
  Register(op, spec, "libxml2_sax", [spec, setBytes](benchmark::State& state) {
    const std::string& text = DocText(spec);
    Repeat(state, [&] { return SaxParse(text) ? std::string() : "SAX parse failed"; });
    setBytes(state, text.size());
  });
}

xmlDocPtr ParseWithDomOptions(const std::string& text) {
  return xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr,
                       kDomParseOptions);
}

xmlNodePtr FirstChildElement(xmlNodePtr parent, const char* name) {
  for (xmlNodePtr child = parent ? parent->children : nullptr; child; child = child->next) {
    if (child->type == XML_ELEMENT_NODE && xmlStrEqual(child->name, BAD_CAST name)) return child;
  }
  return nullptr;
}

std::string SerializeElement(xmlNodePtr element) {
  xmlOutputBufferPtr buffer = xmlAllocOutputBuffer(nullptr);
  xmlNodeDumpOutput(buffer, element->doc, element, 0, 0, "UTF-8");
  std::string text(reinterpret_cast<const char*>(xmlOutputBufferGetContent(buffer)),
                   xmlOutputBufferGetSize(buffer));
  xmlOutputBufferClose(buffer);
  return text;
}

std::string SurrogateForm(const std::string& utf8) {
  std::string out;
  out.reserve(utf8.size());
  for (size_t i = 0; i < utf8.size(); ++i) {
    const auto byte = static_cast<unsigned char>(utf8[i]);
    if (byte < 0xF0 || i + 3 >= utf8.size()) {
      out += utf8[i];
      continue;
    }
    const uint32_t c = ((byte & 0x07u) << 18) | ((utf8[i + 1] & 0x3Fu) << 12) |
                       ((utf8[i + 2] & 0x3Fu) << 6) | (utf8[i + 3] & 0x3Fu);
    for (uint32_t unit : {0xD800u + ((c - 0x10000u) >> 10), 0xDC00u + ((c - 0x10000u) & 0x3FFu)}) {
      out += static_cast<char>(0xE0 | (unit >> 12));
      out += static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (unit & 0x3F));
    }
    i += 3;
  }
  return out;
}

}  // namespace tkbench
