// What every benchmark program shares: the corpus of the run, temporary
// files, the engine options the library parses with, and small helpers.
//
// Benchmark names have four parts, op/shape/size/library, e.g.
// "parse_memory/config/1MB/treekeeper"; tools/bench-report groups by them.
#pragma once

#include <benchmark/benchmark.h>
#include <libxml/parser.h>
#include <treekeeper/treekeeper.h>

#include <functional>
#include <string>
#include <vector>

#include "corpus.h"

namespace tkbench {

// The options the library's own parses use, so that the raw libxml2 peer
// parses the same bytes the same way.
constexpr int kDomParseOptions = XML_PARSE_NOENT | XML_PARSE_NONET | XML_PARSE_NOERROR |
                                 XML_PARSE_NOWARNING | XML_PARSE_NOBLANKS | XML_PARSE_BIG_LINES;

// Smoke runs (--tk_corpus=smoke) use only the 100 KB documents and n = 10k,
// so that every benchmark runs once in little time.
bool SmokeCorpus();

// config, attrs, text and mixed at 100 KB, 1 MB and 10 MB (100 KB alone in
// a smoke run).
std::vector<DocSpec> SizedDocs();
// The sized documents of one size label ("1MB"), or of the smallest size in a
// smoke run.
std::vector<DocSpec> SizedDocs(const std::string& sizeLabel);
// wide at n = 10k and 100k (10k alone in a smoke run).
std::vector<DocSpec> WideDocs();

// The document's text, generated on first use and kept for the process.
const std::string& DocText(const DocSpec& spec);
// A file holding the document's text, written on first use into the run's
// temporary directory (removed at exit).
const std::string& DocFile(const DocSpec& spec);
// A path in the run's temporary directory.
std::string TempPath(const std::string& name);

// Registers fn as op/<doc label>/lib, or op/label/lib for a free label, timed
// by the process's CPU clock (or by the benchmark itself with manualTime).
benchmark::internal::Benchmark* Register(const std::string& op, const DocSpec& spec,
                                         const std::string& lib,
                                         std::function<void(benchmark::State&)> fn,
                                         bool manualTime = false);
benchmark::internal::Benchmark* Register(const std::string& op, const std::string& label,
                                         const std::string& lib,
                                         std::function<void(benchmark::State&)> fn,
                                         bool manualTime = false);

// Takes the program's own flags out of argv, registers the benchmarks through
// registerAll, and runs them (through reporter when one is given). The exit status is 0 unless the arguments were
// bad; a failing operation shows as an error in the benchmark's result.
int Main(int argc, char** argv, void (*registerAll)(),
         benchmark::BenchmarkReporter* reporter = nullptr);

// An instance of the library, deleted with its owner.
class TkInstance {
 public:
  TkInstance();
  ~TkInstance();
  TkInstance(const TkInstance&) = delete;
  TkInstance& operator=(const TkInstance&) = delete;
  ITreeKeeper* operator->() const { return m_tk; }
  ITreeKeeper* get() const { return m_tk; }

 private:
  ITreeKeeper* m_tk;
};

// Marks the benchmark failed with "what returned rc" unless rc is 0. The
// caller leaves its loop when this gives false.
bool Ok(benchmark::State& state, int rc, const char* what);

// "" for rc 0, else "what returned rc".
std::string Failure(const char* what, int rc);

// Runs step once untimed, so that every library starts timing with a heap
// already grown to the size of its work, then once per iteration. step gives
// "" on success, else what failed, which ends the benchmark with that error.
template <typename Step>
void Repeat(benchmark::State& state, Step step) {
  std::string failure = step();
  if (failure.empty()) {
    for (auto _ : state) {
      failure = step();
      if (!failure.empty()) break;
    }
  }
  if (!failure.empty()) state.SkipWithError(failure.c_str());
}

// libxml2 helpers for the raw peer.
xmlDocPtr ParseWithDomOptions(const std::string& text);

// libxml2's tokenizer on its SAX2 path, with no tree built and the same
// options as the tree parse. Every callback empty: the cost of reading the
// bytes. With calls, every event goes to a callback that does nothing: the
// cost once each event is taken, white space decided, names and values
// handed over.
bool SaxParse(const std::string& text, bool withCalls = false);

// The rows of libxml2's tree parse ("libxml2") and of its bare tokenizer
// ("libxml2_sax") for op, timed in bytes of the document.
void RegisterLibxml2Parses(const std::string& op, const DocSpec& spec);
// The first element child of parent named name, as the library's path walk
// finds it (first match, exact comparison).
xmlNodePtr FirstChildElement(xmlNodePtr parent, const char* name);
// The element's serialised form as libxml2 writes it: no declaration, no
// indentation, UTF-8.
std::string SerializeElement(xmlNodePtr element);

// The text with each 4-byte UTF-8 sequence (a character above U+FFFF)
// rewritten as its two UTF-16 surrogates of 3 bytes each: the form in which
// the library exports such characters.
std::string SurrogateForm(const std::string& utf8);

}  // namespace tkbench
