// Access to a loaded tree: one value by a 3-component path, loops over the
// children of a wide element, and the attributes of one record.
#include <pugixml.hpp>
#include <tinyxml2.h>

#include <chrono>
#include <cstring>
#include <sstream>

#include "common.h"

namespace tkbench {
namespace {

const std::string& PathFixture() {
  static const std::string text = GeneratePathFixture(0x9A7Eull);
  return text;
}

std::vector<std::string> PathComponents() {
  std::vector<std::string> components;
  std::stringstream path(kPathFixturePath);
  for (std::string part; std::getline(path, part, '/');) components.push_back(part);
  return components;
}

const char* const kValues[2] = {"on", "off"};

// --- value by path ------------------------------------------------------------

tinyxml2::XMLElement* TinyWalk(tinyxml2::XMLElement* node,
                               const std::vector<std::string>& components) {
  for (const std::string& name : components) {
    if (node == nullptr) break;
    node = node->FirstChildElement(name.c_str());
  }
  return node;
}

xmlNodePtr XmlWalk(xmlNodePtr node, const std::vector<std::string>& components) {
  for (const std::string& name : components) node = FirstChildElement(node, name.c_str());
  return node;
}

void RegisterPathValue() {
  const std::string label = "config/path3";
  Register("path_read", label, "treekeeper", [](benchmark::State& state) {
    TkInstance tk;
    if (!Ok(state, tk->ImportFromStream(PathFixture().c_str(), 1, nullptr), "ImportFromStream"))
      return;
    char buffer[256];
    for (auto _ : state) {
      unsigned size = sizeof buffer;
      if (!Ok(state, tk->GetElementValue(100, kPathFixturePath, TK_VALUE_TEXT, &size, buffer),
              "GetElementValue"))
        break;
      benchmark::DoNotOptimize(buffer);
    }
  })->Unit(benchmark::kNanosecond);
  Register("path_write", label, "treekeeper", [](benchmark::State& state) {
    TkInstance tk;
    if (!Ok(state, tk->ImportFromStream(PathFixture().c_str(), 1, nullptr), "ImportFromStream"))
      return;
    unsigned flip = 0;
    for (auto _ : state) {
      const char* value = kValues[flip ^= 1];
      if (!Ok(state,
              tk->SetElementValue(100, kPathFixturePath, TK_VALUE_TEXT,
                                  static_cast<unsigned>(std::strlen(value)), value),
              "SetElementValue"))
        break;
    }
    // A write that adds a node instead of replacing the text shows here.
    unsigned handle = tk->OpenElement(kPathFixturePath);
    unsigned children = 0;
    if (handle != 0 && tk->EnumElement(handle, &children) == 0) {
      state.counters["child_nodes_after"] = children;
    }
    if (handle != 0) tk->CloseElement(handle);
  })->Unit(benchmark::kNanosecond);

  Register("path_read", label, "pugixml", [](benchmark::State& state) {
    pugi::xml_document doc;
    doc.load_buffer(PathFixture().data(), PathFixture().size());
    pugi::xml_node root = doc.document_element();
    for (auto _ : state) {
      pugi::xml_node node = root.first_element_by_path(kPathFixturePath);
      benchmark::DoNotOptimize(node.child_value());
    }
  })->Unit(benchmark::kNanosecond);
  Register("path_write", label, "pugixml", [](benchmark::State& state) {
    pugi::xml_document doc;
    doc.load_buffer(PathFixture().data(), PathFixture().size());
    pugi::xml_node root = doc.document_element();
    unsigned flip = 0;
    for (auto _ : state) {
      if (!root.first_element_by_path(kPathFixturePath).text().set(kValues[flip ^= 1])) {
        state.SkipWithError("text().set failed");
        break;
      }
    }
  })->Unit(benchmark::kNanosecond);

  Register("path_read", label, "tinyxml2", [](benchmark::State& state) {
    tinyxml2::XMLDocument doc;
    doc.Parse(PathFixture().data(), PathFixture().size());
    const std::vector<std::string> components = PathComponents();
    for (auto _ : state) {
      benchmark::DoNotOptimize(TinyWalk(doc.RootElement(), components)->GetText());
    }
  })->Unit(benchmark::kNanosecond);
  Register("path_write", label, "tinyxml2", [](benchmark::State& state) {
    tinyxml2::XMLDocument doc;
    doc.Parse(PathFixture().data(), PathFixture().size());
    const std::vector<std::string> components = PathComponents();
    unsigned flip = 0;
    for (auto _ : state) TinyWalk(doc.RootElement(), components)->SetText(kValues[flip ^= 1]);
  })->Unit(benchmark::kNanosecond);

  Register("path_read", label, "libxml2", [](benchmark::State& state) {
    xmlDocPtr doc = ParseWithDomOptions(PathFixture());
    const std::vector<std::string> components = PathComponents();
    for (auto _ : state) {
      xmlNodePtr node = XmlWalk(xmlDocGetRootElement(doc), components);
      benchmark::DoNotOptimize(node->children->content);
    }
    xmlFreeDoc(doc);
  })->Unit(benchmark::kNanosecond);
  Register("path_write", label, "libxml2", [](benchmark::State& state) {
    xmlDocPtr doc = ParseWithDomOptions(PathFixture());
    const std::vector<std::string> components = PathComponents();
    unsigned flip = 0;
    for (auto _ : state) {
      xmlNodePtr node = XmlWalk(xmlDocGetRootElement(doc), components);
      xmlNodeSetContent(node->children, BAD_CAST kValues[flip ^= 1]);
    }
    xmlFreeDoc(doc);
  })->Unit(benchmark::kNanosecond);
}

// --- loops over children -------------------------------------------------------

// A loop that would run for longer than this is cut short and its time
// projected linearly from the part done, which understates a loop whose cost
// grows faster than linearly: the figure is then a lower bound.
double LoopCapSeconds() { return SmokeCorpus() ? 2.0 : 10.0; }

// Times one pass of step(i) for i in [0, n) per iteration. step gives false
// on a failure, which ends the benchmark with message.
template <typename Step>
void TimeLoop(benchmark::State& state, size_t n, Step step) {
  using Clock = std::chrono::steady_clock;
  const double cap = LoopCapSeconds();
  for (auto _ : state) {
    const auto start = Clock::now();
    size_t done = 0;
    bool failed = false;
    double elapsed = 0;
    for (; done < n; ++done) {
      if (!step(done)) {
        failed = true;
        break;
      }
      if ((done & 127) == 127) {
        elapsed = std::chrono::duration<double>(Clock::now() - start).count();
        if (elapsed > cap) {
          ++done;
          break;
        }
      }
    }
    elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    if (failed) {
      state.SkipWithError(("loop step failed at child " + std::to_string(done)).c_str());
      break;
    }
    if (done < n) {
      state.SetIterationTime(elapsed * static_cast<double>(n) / static_cast<double>(done));
      state.counters["cut_at_child"] = static_cast<double>(done);
      state.SetLabel("cut short after " + std::to_string(elapsed).substr(0, 5) +
                     " s; time projected, a lower bound");
    } else {
      state.SetIterationTime(elapsed);
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * n));
  state.counters["children"] = static_cast<double>(n);
}

void RegisterLoops(const DocSpec& spec) {
  const size_t n = spec.size;
  Register("loop_by_index", spec, "treekeeper", [spec](benchmark::State& state) {
    TkInstance tk;
    if (!Ok(state, tk->ImportFromStream(DocText(spec).c_str(), 1, nullptr), "ImportFromStream"))
      return;
    unsigned count = 0;
    if (!Ok(state, tk->EnumElement(100, &count), "EnumElement")) return;
    ITreeKeeper* k = tk.get();
    TimeLoop(state, count, [k](size_t i) {
      unsigned handle = k->OpenElement(100, static_cast<unsigned>(i));
      return handle != 0 && k->CloseElement(handle) == 0;
    });
  }, true);
  Register("loop_at_index", spec, "treekeeper", [spec](benchmark::State& state) {
    TkInstance tk;
    if (!Ok(state, tk->ImportFromStream(DocText(spec).c_str(), 1, nullptr), "ImportFromStream"))
      return;
    unsigned count = 0;
    if (!Ok(state, tk->EnumElement(100, &count), "EnumElement")) return;
    ITreeKeeper* k = tk.get();
    TimeLoop(state, count, [k](size_t i) {
      unsigned index = static_cast<unsigned>(i);
      unsigned handle = 0;
      return k->EnumElement(100, nullptr, &index, &handle) == 0 && k->CloseElement(handle) == 0;
    });
  }, true);
  Register("loop_by_name", spec, "treekeeper", [spec](benchmark::State& state) {
    TkInstance tk;
    if (!Ok(state, tk->ImportFromStream(DocText(spec).c_str(), 1, nullptr), "ImportFromStream"))
      return;
    unsigned count = 0;
    if (!Ok(state, tk->EnumElement(100, nullptr, kWideChildName, &count, nullptr),
            "EnumElement with name")) {
      return;
    }
    ITreeKeeper* k = tk.get();
    TimeLoop(state, count, [k](size_t i) {
      unsigned index = static_cast<unsigned>(i);
      unsigned handle = 0;
      return k->EnumElement(100, nullptr, kWideChildName, &index, &handle) == 0 &&
             k->CloseElement(handle) == 0;
    });
  }, true);

  // The peers have no positional access of their own: they iterate.
  Register("loop_by_index", spec, "pugixml", [spec, n](benchmark::State& state) {
    pugi::xml_document doc;
    doc.load_buffer(DocText(spec).data(), DocText(spec).size());
    pugi::xml_node root = doc.document_element();
    for (auto _ : state) {
      for (pugi::xml_node child : root.children()) benchmark::DoNotOptimize(child.type());
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * n));
  });
  Register("loop_by_name", spec, "pugixml", [spec, n](benchmark::State& state) {
    pugi::xml_document doc;
    doc.load_buffer(DocText(spec).data(), DocText(spec).size());
    pugi::xml_node root = doc.document_element();
    for (auto _ : state) {
      for (pugi::xml_node child : root.children(kWideChildName)) benchmark::DoNotOptimize(child);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * n));
  });
  Register("loop_by_index", spec, "tinyxml2", [spec, n](benchmark::State& state) {
    tinyxml2::XMLDocument doc;
    doc.Parse(DocText(spec).data(), DocText(spec).size());
    for (auto _ : state) {
      for (auto* child = doc.RootElement()->FirstChild(); child; child = child->NextSibling()) {
        benchmark::DoNotOptimize(child->ToElement());
      }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * n));
  });
  Register("loop_by_name", spec, "tinyxml2", [spec, n](benchmark::State& state) {
    tinyxml2::XMLDocument doc;
    doc.Parse(DocText(spec).data(), DocText(spec).size());
    for (auto _ : state) {
      for (auto* child = doc.RootElement()->FirstChildElement(kWideChildName); child;
           child = child->NextSiblingElement(kWideChildName)) {
        benchmark::DoNotOptimize(child);
      }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * n));
  });
  Register("loop_by_index", spec, "libxml2", [spec, n](benchmark::State& state) {
    xmlDocPtr doc = ParseWithDomOptions(DocText(spec));
    for (auto _ : state) {
      for (xmlNodePtr child = xmlDocGetRootElement(doc)->children; child; child = child->next) {
        benchmark::DoNotOptimize(child->type);
      }
    }
    xmlFreeDoc(doc);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * n));
  });
  Register("loop_by_name", spec, "libxml2", [spec, n](benchmark::State& state) {
    xmlDocPtr doc = ParseWithDomOptions(DocText(spec));
    for (auto _ : state) {
      for (xmlNodePtr child = xmlDocGetRootElement(doc)->children; child; child = child->next) {
        if (child->type == XML_ELEMENT_NODE && xmlStrEqual(child->name, BAD_CAST kWideChildName))
          benchmark::DoNotOptimize(child);
      }
    }
    xmlFreeDoc(doc);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * n));
  });
}

// --- attributes -----------------------------------------------------------------

// The record the attribute benchmarks work on, counted from 0, and the
// attributes they read (the last of ten, so lookups pass all others) and
// write.
constexpr unsigned kRecordIndex = 99;
constexpr const char* kReadAttribute = "note";
constexpr const char* kWriteAttribute = "status";

void RegisterAttributes() {
  const DocSpec spec{Shape::kAttributes, 100'000, "100KB"};
  Register("attr_read", spec, "treekeeper", [spec](benchmark::State& state) {
    TkInstance tk;
    if (!Ok(state, tk->ImportFromStream(DocText(spec).c_str(), 1, nullptr), "ImportFromStream"))
      return;
    unsigned index = kRecordIndex;
    unsigned record = 0;
    if (!Ok(state, tk->EnumElement(100, nullptr, kRecordName, &index, &record), "EnumElement"))
      return;
    char buffer[256];
    for (auto _ : state) {
      unsigned size = sizeof buffer;
      if (!Ok(state,
              tk->GetAttributeValue(record, nullptr, kReadAttribute, TK_VALUE_TEXT, &size, buffer),
              "GetAttributeValue"))
        break;
      benchmark::DoNotOptimize(buffer);
    }
  })->Unit(benchmark::kNanosecond);
  Register("attr_write", spec, "treekeeper", [spec](benchmark::State& state) {
    TkInstance tk;
    if (!Ok(state, tk->ImportFromStream(DocText(spec).c_str(), 1, nullptr), "ImportFromStream"))
      return;
    unsigned index = kRecordIndex;
    unsigned record = 0;
    if (!Ok(state, tk->EnumElement(100, nullptr, kRecordName, &index, &record), "EnumElement"))
      return;
    unsigned flip = 0;
    for (auto _ : state) {
      if (!Ok(state,
              tk->setAttributeValue(record, nullptr, kWriteAttribute, TK_VALUE_TEXT, 0,
                                    kValues[flip ^= 1]),
              "setAttributeValue"))
        break;
    }
  })->Unit(benchmark::kNanosecond);
  Register("attr_enum", spec, "treekeeper", [spec](benchmark::State& state) {
    TkInstance tk;
    if (!Ok(state, tk->ImportFromStream(DocText(spec).c_str(), 1, nullptr), "ImportFromStream"))
      return;
    unsigned index = kRecordIndex;
    unsigned record = 0;
    if (!Ok(state, tk->EnumElement(100, nullptr, kRecordName, &index, &record), "EnumElement"))
      return;
    outputstr name;
    outputstr value;
    unsigned count = 0;
    if (!Ok(state, tk->EnumAttribute(record, nullptr, &count, name, value), "EnumAttribute"))
      return;
    for (auto _ : state) {
      for (unsigned i = 0; i < count; ++i) {
        unsigned position = i;
        if (tk->EnumAttribute(record, nullptr, &position, name, value) != 0) {
          state.SkipWithError("EnumAttribute failed inside the loop");
          break;
        }
        benchmark::DoNotOptimize(value.text());
      }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * count));
  })->Unit(benchmark::kNanosecond);

  Register("attr_read", spec, "pugixml", [spec](benchmark::State& state) {
    pugi::xml_document doc;
    doc.load_buffer(DocText(spec).data(), DocText(spec).size());
    pugi::xml_node record = doc.document_element().first_child();
    for (unsigned i = 0; i < kRecordIndex; ++i) record = record.next_sibling(kRecordName);
    for (auto _ : state) benchmark::DoNotOptimize(record.attribute(kReadAttribute).value());
  })->Unit(benchmark::kNanosecond);
  Register("attr_write", spec, "pugixml", [spec](benchmark::State& state) {
    pugi::xml_document doc;
    doc.load_buffer(DocText(spec).data(), DocText(spec).size());
    pugi::xml_node record = doc.document_element().first_child();
    for (unsigned i = 0; i < kRecordIndex; ++i) record = record.next_sibling(kRecordName);
    unsigned flip = 0;
    for (auto _ : state) record.attribute(kWriteAttribute).set_value(kValues[flip ^= 1]);
  })->Unit(benchmark::kNanosecond);
  Register("attr_enum", spec, "pugixml", [spec](benchmark::State& state) {
    pugi::xml_document doc;
    doc.load_buffer(DocText(spec).data(), DocText(spec).size());
    pugi::xml_node record = doc.document_element().first_child();
    for (unsigned i = 0; i < kRecordIndex; ++i) record = record.next_sibling(kRecordName);
    for (auto _ : state) {
      for (pugi::xml_attribute attribute : record.attributes()) {
        benchmark::DoNotOptimize(attribute.name());
        benchmark::DoNotOptimize(attribute.value());
      }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * 10));
  })->Unit(benchmark::kNanosecond);

  Register("attr_read", spec, "tinyxml2", [spec](benchmark::State& state) {
    tinyxml2::XMLDocument doc;
    doc.Parse(DocText(spec).data(), DocText(spec).size());
    tinyxml2::XMLElement* record = doc.RootElement()->FirstChildElement(kRecordName);
    for (unsigned i = 0; i < kRecordIndex; ++i) record = record->NextSiblingElement(kRecordName);
    for (auto _ : state) benchmark::DoNotOptimize(record->Attribute(kReadAttribute));
  })->Unit(benchmark::kNanosecond);
  Register("attr_write", spec, "tinyxml2", [spec](benchmark::State& state) {
    tinyxml2::XMLDocument doc;
    doc.Parse(DocText(spec).data(), DocText(spec).size());
    tinyxml2::XMLElement* record = doc.RootElement()->FirstChildElement(kRecordName);
    for (unsigned i = 0; i < kRecordIndex; ++i) record = record->NextSiblingElement(kRecordName);
    unsigned flip = 0;
    for (auto _ : state) record->SetAttribute(kWriteAttribute, kValues[flip ^= 1]);
  })->Unit(benchmark::kNanosecond);
  Register("attr_enum", spec, "tinyxml2", [spec](benchmark::State& state) {
    tinyxml2::XMLDocument doc;
    doc.Parse(DocText(spec).data(), DocText(spec).size());
    tinyxml2::XMLElement* record = doc.RootElement()->FirstChildElement(kRecordName);
    for (unsigned i = 0; i < kRecordIndex; ++i) record = record->NextSiblingElement(kRecordName);
    for (auto _ : state) {
      for (const auto* a = record->FirstAttribute(); a; a = a->Next()) {
        benchmark::DoNotOptimize(a->Name());
        benchmark::DoNotOptimize(a->Value());
      }
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * 10));
  })->Unit(benchmark::kNanosecond);

  Register("attr_read", spec, "libxml2", [spec](benchmark::State& state) {
    xmlDocPtr doc = ParseWithDomOptions(DocText(spec));
    xmlNodePtr record = FirstChildElement(xmlDocGetRootElement(doc), kRecordName);
    for (unsigned i = 0; i < kRecordIndex; ++i) record = xmlNextElementSibling(record);
    for (auto _ : state) {
      xmlAttrPtr attribute = xmlHasProp(record, BAD_CAST kReadAttribute);
      benchmark::DoNotOptimize(attribute->children->content);
    }
    xmlFreeDoc(doc);
  })->Unit(benchmark::kNanosecond);
  Register("attr_write", spec, "libxml2", [spec](benchmark::State& state) {
    xmlDocPtr doc = ParseWithDomOptions(DocText(spec));
    xmlNodePtr record = FirstChildElement(xmlDocGetRootElement(doc), kRecordName);
    for (unsigned i = 0; i < kRecordIndex; ++i) record = xmlNextElementSibling(record);
    unsigned flip = 0;
    for (auto _ : state) xmlSetProp(record, BAD_CAST kWriteAttribute, BAD_CAST kValues[flip ^= 1]);
    xmlFreeDoc(doc);
  })->Unit(benchmark::kNanosecond);
  Register("attr_enum", spec, "libxml2", [spec](benchmark::State& state) {
    xmlDocPtr doc = ParseWithDomOptions(DocText(spec));
    xmlNodePtr record = FirstChildElement(xmlDocGetRootElement(doc), kRecordName);
    for (unsigned i = 0; i < kRecordIndex; ++i) record = xmlNextElementSibling(record);
    for (auto _ : state) {
      for (xmlAttrPtr a = record->properties; a; a = a->next) {
        benchmark::DoNotOptimize(a->name);
        benchmark::DoNotOptimize(a->children->content);
      }
    }
    xmlFreeDoc(doc);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * 10));
  })->Unit(benchmark::kNanosecond);
}

void RegisterAll() {
  RegisterPathValue();
  for (const DocSpec& spec : WideDocs()) RegisterLoops(spec);
  RegisterAttributes();
}

}  // namespace
}  // namespace tkbench

int main(int argc, char** argv) { return tkbench::Main(argc, argv, tkbench::RegisterAll); }
