// Load time against input size for crowded and repetitive documents: each
// shape is built at n and at 10·n (about 1 MB and 10 MB), loaded (or refused)
// with ImportFromStream, and the program ends with a table of
// time(10n) / time(n) per shape. A ratio above 12, or a 10 MB input that takes
// more than a second, marks a load path that grows faster than its input.
#include <chrono>
#include <cstdio>
#include <map>
#include <string>

#include "common.h"

namespace tkbench {
namespace {

using Builder = std::string (*)(size_t n);

std::string Times(size_t n, const auto& piece) {
  std::string out;
  for (size_t i = 0; i < n; ++i) out += piece(i);
  return out;
}

std::string Num(size_t i) { return std::to_string(i); }

// The bounds the library documents for one start tag and for the namespace
// declarations in scope: the crowded shapes sit right at them.
constexpr size_t kAttributesPerTag = 1000;
constexpr size_t kDeclarationsInScope = 128;

std::string Attributes(size_t count, const char* prefix) {
  return Times(count, [&](size_t i) { return " " + std::string(prefix) + "a" + Num(i) + "='1'"; });
}

// Each builder makes a document of roughly n * 10 bytes or more.
const std::map<std::string, Builder>& Shapes() {
  static const std::map<std::string, Builder> shapes = {
      {"attributes",
       [](size_t n) { return "<r" + Times(n, [](size_t i) { return " a" + Num(i) + "='1'"; }) + "/>"; }},
      {"ns_declarations",
       [](size_t n) {
         return "<r" + Times(n, [](size_t i) { return " xmlns:p" + Num(i) + "='u" + Num(i) + "'"; }) + "/>";
       }},
      {"prefixed_attributes",
       [](size_t n) {
         n /= 2;
         return "<r" + Times(n, [](size_t i) { return " xmlns:p" + Num(i) + "='u" + Num(i) + "'"; }) +
                Times(n, [](size_t i) { return " p" + Num(i) + ":a='1'"; }) + "/>";
       }},
      {"ns_every_level",
       [](size_t n) {
         // Chains 100 deep; every element declares the same prefix again.
         std::string decl = " xmlns:p='urn:x'";
         std::string chain = Times(100, [&](size_t) { return "<a" + decl + ">"; }) +
                             Times(100, [](size_t) { return std::string("</a>"); });
         return "<r>" + Times(n / chain.size() * 10 + 1, [&](size_t) { return chain; }) + "</r>";
       }},
      {"tags_at_bound",
       [](size_t n) {
         const std::string tag = "<t" + Attributes(kAttributesPerTag, "") + "/>";
         return "<r>" + Times(n * 10 / tag.size() + 1, [&](size_t) { return tag; }) + "</r>";
       }},
      {"prefixed_in_scope",
       [](size_t n) {
         // p is declared first, so that every lookup passes every other
         // declaration in scope; then elements full of p: attributes.
         const std::string others = Times(kDeclarationsInScope - 1, [](size_t i) {
           return " xmlns:q" + Num(i) + "='urn:q'";
         });
         const std::string tag = "<t" + Attributes(kAttributesPerTag - 1, "p:") + "/>";
         return "<r xmlns:p='urn:p'><s" + others + ">" +
                Times(n * 10 / tag.size() + 1, [&](size_t) { return tag; }) + "</s></r>";
       }},
      {"default_attributes",
       [](size_t n) {
         const std::string defaults = Times(100, [](size_t i) { return " a" + Num(i) + " CDATA 'x'"; });
         return "<!DOCTYPE r [<!ATTLIST t" + defaults + ">]><r>" +
                Times(n * 2, [](size_t) { return std::string("<t/>"); }) + "</r>";
       }},
      {"attribute_expansion",
       [](size_t n) {
         const std::string refs = Times(100, [](size_t) { return std::string("&e;"); });
         return "<!DOCTYPE r [<!ENTITY e '" + std::string(1000, 'A') + "'>]><r>" +
                Times(n * 10 / (refs.size() + 10) + 1, [&](size_t) { return "<x a='" + refs + "'/>"; }) +
                "</r>";
       }},
      {"long_name",
       [](size_t n) {
         std::string name(n * 10, 'n');
         return "<" + name + ">x</" + name + ">";
       }},
      {"attribute_char_refs",
       [](size_t n) { return "<r a='" + Times(n * 2, [](size_t) { return std::string("&#65;"); }) + "'/>"; }},
      {"text_char_refs",
       [](size_t n) { return "<r>" + Times(n * 2, [](size_t) { return std::string("&#65;"); }) + "</r>"; }},
      {"entities",
       [](size_t n) {
         n /= 2;
         return "<!DOCTYPE r [" +
                Times(n, [](size_t i) { return "<!ENTITY e" + Num(i) + " 'v'>"; }) + "]><r>" +
                Times(n, [](size_t i) { return "&e" + Num(i) + ";"; }) + "</r>";
       }},
      {"entity_references",
       [](size_t n) {
         return "<!DOCTYPE r [<!ENTITY e 'v'>]><r a='" +
                Times(n, [](size_t) { return std::string("&e;"); }) + "'>" +
                Times(n, [](size_t) { return std::string("&e;"); }) + "</r>";
       }},
      {"element_names",
       [](size_t n) { return "<r>" + Times(n, [](size_t i) { return "<n" + Num(i) + "/>"; }) + "</r>"; }},
      {"comment", [](size_t n) { return "<r><!--" + std::string(n * 10, 'c') + "--></r>"; }},
      {"processing_instruction",
       [](size_t n) { return "<r><?pi " + std::string(n * 10, 'c') + "?></r>"; }},
      {"cdata_sections",
       [](size_t n) {
         return "<r>" + Times(n, [](size_t) { return std::string("<![CDATA[x]]>"); }) + "</r>";
       }},
      {"siblings",
       [](size_t n) { return "<r>" + Times(n * 2, [](size_t) { return std::string("<a/>"); }) + "</r>"; }},
  };
  return shapes;
}

// n such that the larger document is about 10 MB (about 100 KB in a smoke run).
size_t BaseCount() { return SmokeCorpus() ? 1000 : 100000; }

void RegisterAll() {
  for (const auto& [shape, build] : Shapes()) {
    for (size_t scale : {1, 10}) {
      const std::string label = shape + "/" + (scale == 1 ? "n" : "10n");
      Register("load_crowded", label, "treekeeper", [build, scale](benchmark::State& state) {
        const std::string text = build(BaseCount() * scale);
        for (auto _ : state) {
          TkInstance tk;
          benchmark::DoNotOptimize(tk->ImportFromStream(text.c_str(), 1, nullptr));
        }
        state.counters["doc_bytes"] = static_cast<double>(text.size());
      })->Unit(benchmark::kMillisecond)->Iterations(SmokeCorpus() ? 1 : 3);
    }
  }
}

// Keeps each shape's time at n and 10n and prints the ratios at the end.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      const std::string name = run.benchmark_name();
      const auto first = name.find('/');
      const auto second = name.find('/', first + 1);
      const auto third = name.find('/', second + 1);
      if (first == std::string::npos || third == std::string::npos) continue;
      const std::string shape = name.substr(first + 1, second - first - 1);
      const std::string size = name.substr(second + 1, third - second - 1);
      const double seconds = run.GetAdjustedRealTime() / 1e3;  // reported in ms
      (size == "n" ? m_small : m_large)[shape] = seconds;
      m_bytes[shape] = run.counters.count("doc_bytes") ? run.counters.at("doc_bytes").value : 0;
    }
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    std::printf("\n%-24s %12s %10s %10s %7s\n", "shape", "10n bytes", "n s", "10n s", "ratio");
    for (const auto& [shape, large] : m_large) {
      const double small = m_small.count(shape) ? m_small.at(shape) : 0;
      const double ratio = small > 0 ? large / small : 0;
      const bool slow = ratio > 12 || (!SmokeCorpus() && large > 1.0);
      std::printf("%-24s %12.0f %10.4f %10.4f %7.1f%s\n", shape.c_str(), m_bytes[shape], small, large,
                  ratio, slow ? "  SLOW" : "");
    }
  }

 private:
  std::map<std::string, double> m_small, m_large, m_bytes;
};

}  // namespace
}  // namespace tkbench

int main(int argc, char** argv) {
  tkbench::RatioReporter reporter;
  return tkbench::Main(argc, argv, tkbench::RegisterAll, &reporter);
}
