// An identity transformation of the 1 MB documents.
//
// The library's ApplyXSLT parses the stylesheet, transforms, and makes the
// result its document. The libxslt peer does the first two with the same
// stylesheet text; "libxml2_import_result" times the parse of the result's
// text, so that the report can compare the library with libxslt plus the
// import of what it produced.
#include <libxslt/transform.h>
#include <libxslt/xsltInternals.h>

#include <cstring>

#include "common.h"

namespace tkbench {
namespace {

void SetBytes(benchmark::State& state, size_t bytes) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
}

// libxslt's result of the identity, serialised.
std::string LibxsltResult(const std::string& text) {
  xmlDocPtr doc = ParseWithDomOptions(text);
  xmlDocPtr sheetDoc = xmlReadMemory(kIdentityStylesheet,
                                     static_cast<int>(std::strlen(kIdentityStylesheet)), nullptr,
                                     nullptr, kDomParseOptions);
  xsltStylesheetPtr sheet = xsltParseStylesheetDoc(sheetDoc);
  xmlDocPtr result = xsltApplyStylesheet(sheet, doc, nullptr);
  std::string resultText = SerializeElement(xmlDocGetRootElement(result));
  xmlFreeDoc(result);
  xsltFreeStylesheet(sheet);
  xmlFreeDoc(doc);
  return resultText;
}

void RegisterIdentity(const DocSpec& spec) {
  const int sheetLength = static_cast<int>(std::strlen(kIdentityStylesheet));
  Register("xslt_identity", spec, "treekeeper", [spec, sheetLength](benchmark::State& state) {
    const std::string& text = DocText(spec);
    TkInstance tk;
    if (!Ok(state, tk->ImportFromStream(text.c_str(), 1, nullptr), "ImportFromStream")) return;
    // Every iteration transforms the parsed document, as the peer does: the
    // result of the previous one is replaced, untimed, by a new import.
    bool warm = false;
    Repeat(state, [&] {
      std::string failure =
          Failure("ApplyXSLT", TkXslt(tk.get())->ApplyXSLT(kIdentityStylesheet, sheetLength));
      if (warm) state.PauseTiming();
      tk->CloseAllElements();
      if (failure.empty()) failure = Failure("ImportFromStream",
                                             tk->ImportFromStream(text.c_str(), 1, nullptr));
      if (warm) state.ResumeTiming();
      warm = true;
      return failure;
    });
    // The result has to be libxslt's: both exported by the library.
    if (state.error_occurred()) return;
    TkInstance reference;
    outputstr expected;
    outputstr got;
    tk->CloseAllElements();
    if (reference->ImportFromStream(LibxsltResult(text).c_str(), 1, nullptr) == 0 &&
        reference->ExportToStream(expected) == 0 &&
        tk->ImportFromStream(text.c_str(), 1, nullptr) == 0 &&
        TkXslt(tk.get())->ApplyXSLT(kIdentityStylesheet, sheetLength) == 0 &&
        tk->ExportToStream(got) == 0) {
      state.SetLabel(std::strcmp(expected.text(), got.text()) == 0 ? "same result as libxslt"
                                                                   : "result differs");
    }
    SetBytes(state, text.size());
  });
  Register("xslt_identity", spec, "libxslt", [spec, sheetLength](benchmark::State& state) {
    const std::string& text = DocText(spec);
    xmlDocPtr doc = ParseWithDomOptions(text);
    Repeat(state, [&] {
      xmlDocPtr sheetDoc = xmlReadMemory(kIdentityStylesheet, sheetLength, nullptr, nullptr,
                                         kDomParseOptions);
      xsltStylesheetPtr sheet = xsltParseStylesheetDoc(sheetDoc);
      xmlDocPtr result = sheet ? xsltApplyStylesheet(sheet, doc, nullptr) : nullptr;
      if (result) xmlFreeDoc(result);
      if (sheet) xsltFreeStylesheet(sheet);  // frees sheetDoc too
      return result ? std::string() : "xsltApplyStylesheet failed";
    });
    xmlFreeDoc(doc);
    SetBytes(state, text.size());
  });
  Register("xslt_identity", spec, "libxml2_import_result", [spec](benchmark::State& state) {
    const std::string resultText = LibxsltResult(DocText(spec));
    Repeat(state, [&] {
      xmlDocPtr parsed = ParseWithDomOptions(resultText);
      if (parsed == nullptr) return std::string("parse of the result failed");
      xmlFreeDoc(parsed);
      return std::string();
    });
    SetBytes(state, resultText.size());
  });
}

void RegisterAll() {
  for (const DocSpec& spec : SizedDocs("1MB")) RegisterIdentity(spec);
}

}  // namespace
}  // namespace tkbench

int main(int argc, char** argv) { return tkbench::Main(argc, argv, tkbench::RegisterAll); }
