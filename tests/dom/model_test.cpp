// The library's own model against the engine's tree: a document copied into
// the model and written by the model's serialiser must come out byte for
// byte as the engine's tree does, in both forms of characters above U+FFFF.
// TK_MODEL_CORPUS names one more folder of documents to compare.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "dom/dom.h"
#include "dom_test_util.h"

namespace tk::dom::test {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> Documents() {
  std::vector<fs::path> folders = {fs::path(TK_TEST_DATA_DIR),
                                   fs::path(TK_TEST_DATA_DIR) / "../../fuzz/corpus/import",
                                   fs::path(TK_TEST_DATA_DIR) / "../../examples"};
  if (const char* extra = std::getenv("TK_MODEL_CORPUS")) folders.emplace_back(extra);
  std::vector<fs::path> files;
  for (const fs::path& folder : folders) {
    std::error_code error;
    for (fs::recursive_directory_iterator it(folder, error), end; !error && it != end;
         it.increment(error)) {
      if (it->is_regular_file()) files.push_back(it->path());
    }
  }
  return files;
}

// 1 when the document loaded and the model wrote what the engine's tree
// writes, 0 when it did not load, and a test failure otherwise.
void ExpectSame(const std::string& model, std::string_view expected, const std::string& label,
                const char* how) {
  if (model == expected) return;
  const size_t at = static_cast<size_t>(
      std::mismatch(model.begin(), model.end(), expected.begin(), expected.end()).first -
      model.begin());
  ADD_FAILURE() << label << ": " << how << " differs at byte " << at << ": model \""
                << model.substr(at > 40 ? at - 40 : 0, 80) << "\" engine \""
                << expected.substr(at > 40 ? at - 40 : 0, 80) << "\"";
}

int g_built = 0;  // documents the builder built itself

int Compare(const std::string& bytes, const std::string& label) {
  Document doc = NewDocument();
  const int loaded = doc.loadBytes(bytes.data(), bytes.size());
  std::string built;
  const int status = testing::BuiltModelXml(bytes.data(), bytes.size(), AboveBmp::kFourBytes, built);
  if (loaded != kOk) {
    // Refused alike, or left to the engine's tree.
    if (status != kFalse) {
      ParseError error;
      doc.get_parseError(error);
      EXPECT_EQ(status, error.errorCode) << label;
    }
    return 0;
  }
  Node root, top;
  doc.get_documentElement(root);
  root.get_parentNode(top);
  for (const AboveBmp form : {AboveBmp::kFourBytes, AboveBmp::kSurrogatePairs}) {
    XmlText engine;
    EXPECT_EQ(top.get_xml(engine, form), kOk);
    if (form == AboveBmp::kFourBytes && status != kFalse) {
      EXPECT_EQ(status, kOk) << label;
      ++g_built;
      ExpectSame(built, engine.view(), label, "built");
    }
    std::string model;
    const int status = testing::ModelXml(root, form, model);
    if (status == kFalse) return 1;  // a tree the model leaves to the engine
    EXPECT_EQ(status, kOk) << label;
    ExpectSame(model, engine.view(), label, "copied");
    if (form == AboveBmp::kFourBytes && testing::RoundTripXml(root, model) == kOk) {
      ExpectSame(model, engine.view(), label, "given back to the engine");
    }
  }
  return 1;
}

TEST(DomModel, WritesWhatTheEngineTreeWrites) {
  const std::vector<std::string> documents = {
      "<a x='1&#10;2&#9;&quot;&lt;&amp;\"&gt;&#13;\xc3\xa9\xf0\x9f\x98\x80'><!--c--><?pi?>"
      "<?pi data ?><![CDATA[a]]]]><![CDATA[>b]]><![CDATA[]]>t&amp;&lt;&gt;&#13;]]&gt;"
      "\xc3\xa9\xf0\x9f\x98\x80<b/><c></c></a>",
      "<?top?><!--before--><r xmlns='urn:d' xmlns:p='q\"x' xmlns:s=\"it's\" xmlns:xml="
      "'http://www.w3.org/XML/1998/namespace'><p:c p:a='1' xml:lang='en'><d s:b='2'/>"
      "<p:e xmlns:p='urn:other'/></p:c></r><!--after-->",
      "<!DOCTYPE a [<!ENTITY e 'x<b>&#38;#60;</b>y'><!ENTITY v 'val'>]><a k='&v;'>&e;&v;</a>",
      "<\xf0\x90\x80\x80:e xmlns:\xf0\x90\x80\x80='urn:\xf0\x9f\x98\x80\"&apos;'>"
      "<?p\xf0\x90\x80\x83 \xf0\x9f\x98\x80?>\xf4\x8f\xbf\xbd</\xf0\x90\x80\x80:e>",
  };
  for (const std::string& xml : documents) EXPECT_EQ(Compare(xml, xml), 1) << xml;
  // Texts that arrive in many pieces and outgrow the room they started in.
  std::string pieces = "<r><a>";
  for (int i = 0; i < 30000; ++i) pieces += "text &amp; more &#x1F600; ";
  pieces += "</a><b><![CDATA[" + std::string(300000, 'c') + "]]></b>x</r>";
  EXPECT_EQ(Compare(pieces, "long texts"), 1);
  // More nodes than one block of records holds.
  std::string many = "<r>";
  for (int i = 0; i < 3000; ++i) many += "<a k='" + std::to_string(i) + "'>t</a>";
  EXPECT_EQ(Compare(many + "</r>", "many nodes"), 1);
  // Too deep for the parser: refused alike.
  std::string deep;
  for (int i = 0; i < 300; ++i) deep += "<a>";
  EXPECT_EQ(Compare(deep, "too deep"), 0);
  // A text the engine would have to grow past its limit for one node is
  // left to the engine's own tree, which says what it says about it.
  const std::string huge =
      "<r>" + std::string(5000001, 'x') + "&amp;" + std::string(5000000, 'x') + "</r>";
  std::string out;
  EXPECT_EQ(testing::BuiltModelXml(huge.data(), huge.size(), AboveBmp::kFourBytes, out), kFalse);
  int loaded = 0;
  for (const fs::path& file : Documents()) {
    std::ifstream in(file, std::ios::binary);
    std::stringstream bytes;
    bytes << in.rdbuf();
    loaded += Compare(bytes.str(), file.string());
  }
  EXPECT_GT(loaded, 5);
  std::printf("[ model ] %d documents compared, %d built from events\n", loaded, g_built);
}

}  // namespace
}  // namespace tk::dom::test
