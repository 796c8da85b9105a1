// The raw libxml2 peer has to build the tree the library builds from the same
// bytes, and the export check has to know the library's form of characters
// above U+FFFF; otherwise the comparisons compare different work.
#include <gtest/gtest.h>

#include "common.h"

namespace tkbench {
namespace {

TEST(SurrogateForm, RewritesOnlyFourByteSequences) {
  const struct {
    const char* in;
    const char* out;
  } cases[] = {
      {"plain <a/> text", "plain <a/> text"},
      {"caf\xC3\xA9 \xE2\x82\xAC", "caf\xC3\xA9 \xE2\x82\xAC"},             // 2 and 3 bytes stay
      {"\xF0\x9F\x98\x80", "\xED\xA0\xBD\xED\xB8\x80"},                     // U+1F600
      {"a\xF0\x90\x80\x80z", "a\xED\xA0\x80\xED\xB0\x80z"},                 // U+10000
      {"\xF4\x8F\xBF\xBF", "\xED\xAF\xBF\xED\xBF\xBF"},                     // U+10FFFF
      {"\xF0\x9F\x98\x80\xF0\x9F\x8C\xB2",
       "\xED\xA0\xBD\xED\xB8\x80\xED\xA0\xBC\xED\xBC\xB2"},                 // two in a row
  };
  for (const auto& c : cases) EXPECT_EQ(SurrogateForm(c.in), c.out) << c.in;
}

TEST(Libxml2Peer, SerialisesWithoutDeclarationOrIndentation) {
  xmlDocPtr doc = ParseWithDomOptions(
      "<?xml version=\"1.0\"?>\n<a x=\"1 &amp; 2\">\n  <b/>\n  <c>t&lt;&#233;</c>\n</a>\n");
  ASSERT_NE(doc, nullptr);
  // Blank-only text between elements is dropped and references resolved.
  EXPECT_EQ(SerializeElement(xmlDocGetRootElement(doc)),
            "<a x=\"1 &amp; 2\"><b/><c>t&lt;\xC3\xA9</c></a>");
  EXPECT_EQ(FirstChildElement(xmlDocGetRootElement(doc), "c"),
            xmlDocGetRootElement(doc)->children->next);
  EXPECT_EQ(FirstChildElement(xmlDocGetRootElement(doc), "d"), nullptr);
  xmlFreeDoc(doc);
}

// For every shape, the library's export of a document equals what the raw
// peer writes for its own parse of the same bytes.
TEST(Libxml2Peer, BuildsTheTreeTheLibraryBuilds) {
  const DocSpec specs[] = {{Shape::kConfig, 20'000, "20KB"},
                           {Shape::kAttributes, 20'000, "20KB"},
                           {Shape::kText, 20'000, "20KB"},
                           {Shape::kMixed, 20'000, "20KB"},
                           {Shape::kWide, 500, "n500"}};
  for (const DocSpec& spec : specs) {
    SCOPED_TRACE(DocLabel(spec));
    const std::string text = Generate(spec);
    TkInstance tk;
    ASSERT_EQ(tk->ImportFromStream(text.c_str(), 1, nullptr), 0);
    outputstr exported;
    ASSERT_EQ(tk->ExportToStream(exported), 0);
    xmlDocPtr doc = ParseWithDomOptions(text);
    ASSERT_NE(doc, nullptr);
    const std::string raw = SerializeElement(xmlDocGetRootElement(doc));
    xmlFreeDoc(doc);
    EXPECT_EQ(std::string(exported.text()),
              "<?xml version='1.0' encoding='UTF-8' ?>\n" + SurrogateForm(raw));
  }
}

}  // namespace
}  // namespace tkbench
