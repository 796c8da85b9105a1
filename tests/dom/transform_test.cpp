// Transformations: where they start, what they make, and what they leave alone.
#include <gtest/gtest.h>
#include <libexslt/exslt.h>
#include <libxml/globals.h>

#include <cstdlib>
#include <string>

#include "dom/dom.h"
#include "dom_test_util.h"

namespace tk::dom::test {
namespace {

std::string Sheet(const std::string& body) {
  return "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>" +
         body + "</xsl:stylesheet>";
}

const std::string kRootName = Sheet(
    "<xsl:template match='/'><out n='{name(/*)}'><xsl:copy-of select='/*/*'/></out>"
    "</xsl:template>");
const std::string kUnknownFunction =
    Sheet("<xsl:template match='/'><xsl:value-of select='nosuch()'/></xsl:template>");

int Transform(const Node& source, const std::string& sheet, Document& result) {
  Document style = Parse(sheet);
  ::testing::internal::CaptureStderr();
  const int status = Document::transformNodeToObject(source, style, result);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");  // the engine prints nothing
  return status;
}

TEST(DomTransform, RootTemplateFiresForLoadedAndFreeStandingElements) {
  Document loaded = Parse("<!--c--><r><a>1</a></r>");
  Document created = NewDocument();
  Node free = Element(created, "free"), parent;
  Append(free, Element(created, "k"));
  Document result;
  ASSERT_EQ(Transform(Root(loaded), kRootName, result), kOk);
  EXPECT_EQ(Xml(Root(result)), "<out n=\"r\"><a>1</a></out>");
  ASSERT_EQ(Transform(free, kRootName, result), kOk);
  // The source is as it was.
  EXPECT_EQ(free.get_parentNode(parent), kFalse);
  EXPECT_EQ(Xml(free), "<free><k/></free>");
  EXPECT_EQ(ChildCount(Child(Root(loaded), 0)), 1);
  // The result is a document like any other.
  Append(Root(result), Element(result, "made"));
  EXPECT_EQ(Xml(Root(result)), "<out n=\"free\"><k/><made/></out>");
  ASSERT_EQ(LoadText(result, "<again/>"), kOk);

  // No source, an attribute as source, a stylesheet document without a tree.
  const Document style = Parse(kRootName);
  EXPECT_LT(Document::transformNodeToObject(Node(), style, result), 0);
  EXPECT_LT(Document::transformNodeToObject(Attribute(created, "a"), style, result), 0);
  EXPECT_LT(Document::transformNodeToObject(free, NewDocument(), result), 0);
}

// A tree deeper than an import reads back is refused before the engine's
// copies and walks (one call per level) run out of stack; the deepest tree
// an import gives goes through.
TEST(DomTransform, DepthIsCheckedBeforeTheEngineRuns) {
  const std::string copy = "<xsl:template match='/'><xsl:copy-of select='.'/></xsl:template>";
  const std::string sheets[] = {Sheet(""), Sheet(copy),
                                Sheet("<xsl:strip-space elements='*'/>" + copy)};
  for (const int depth : {kMaxDepth, 100000}) {
    Document doc = Parse("<a/>");
    Node leaf = Root(doc);
    for (int level = 1; level < depth; ++level) leaf = Append(leaf, Element(doc, "a"));
    for (const std::string& sheet : sheets) {
      Document result;
      EXPECT_EQ(Transform(Root(doc), sheet, result), depth == kMaxDepth ? kOk : kFail) << sheet;
    }
  }
}

// No stylesheet makes the engine load a plugin, not even in a process whose
// own extensions (here: EXSLT's) wake the engine's search at compile time:
// extension namespaces are refused, foreign top-level elements are never
// looked up, and at run time only the engine's built-ins exist.
TEST(DomTransform, NoStylesheetLoadsAPlugin) {
  ASSERT_EQ(setenv("LIBXSLT_PLUGINS_PATH", TK_XSLT_PLUGIN_DIR, 1), 0);
  exsltRegisterAll();
  const std::string ns = "<xsl:stylesheet version='1.0' xmlns:p='http://example.com/plugin' "
                         "xmlns:xsl='http://www.w3.org/1999/XSL/Transform'";
  const std::string lookups =
      "<xsl:template match='/'><r><xsl:value-of select=\"concat(function-available('p:f'), "
      "element-available('p:e'), element-available('e'), function-available('x:node-set'), "
      "element-available('xsl:for-each'), element-available('x:debug'), "
      "count(x:node-set(document('')/*/p:*)), name(document('')/*/*[3]))\"/></r>"
      "</xsl:template>";
  const struct {
    std::string sheet;
    const char* result;  // null: refused
  } cases[] = {
      {ns + " extension-element-prefixes='p'><xsl:template match='/'><r/></xsl:template>"
            "</xsl:stylesheet>",
       nullptr},
      {ns + "><xsl:template match='/'><p:e xsl:extension-element-prefixes='p'/></xsl:template>"
            "</xsl:stylesheet>",
       nullptr},
      {ns + "><xsl:template match='/'><r><xsl:value-of select='p:f()'/></r></xsl:template>"
            "</xsl:stylesheet>",
       nullptr},
      {ns + " xmlns='http://example.com/plugin' xmlns:x='http://xmlsoft.org/XSLT/namespace'>"
            "<p:one/>" + lookups + "<p:two/></xsl:stylesheet>",
       "falsefalsefalsetruetruetrue2p:two"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.sheet);
    Document result;
    const int status = Transform(Root(Parse("<a/>")), c.sheet, result);
    EXPECT_EQ(status, c.result != nullptr ? kOk : kFail);
    if (c.result != nullptr && status == kOk) {
      EXPECT_EQ(Value(Child(Root(result), 0)), c.result);
    }
    EXPECT_EQ(std::getenv("TK_XSLT_PLUGIN_LOADED"), nullptr);
  }
  unsetenv("LIBXSLT_PLUGINS_PATH");
}

// A handler of the calling thread is neither called nor lost.
int g_reports = 0;
void CountReport(void*, xmlErrorPtr) { ++g_reports; }

TEST(DomTransform, ThreadErrorHandlerIsLeftAlone) {
  xmlSetStructuredErrorFunc(nullptr, CountReport);
  Document doc = Parse("<r/>");
  Document result;
  EXPECT_LT(Transform(Root(doc), kUnknownFunction, result), 0);
  EXPECT_LT(LoadText(doc, "<a>"), 0);
  EXPECT_EQ(g_reports, 0);
  EXPECT_EQ(xmlStructuredError, &CountReport);
  xmlSetStructuredErrorFunc(nullptr, nullptr);
}

TEST(DomTransformLifetime, ResultTreeMixesWithNodesOfOtherDocuments) {
  Document plain = NewDocument();  // a tree without a dictionary
  Node host = Element(plain, "host");
  Node fromResult;
  {
    Document doc = Parse("<r><a>ab</a><b>x</b></r>");
    Document result;
    ASSERT_EQ(Transform(Root(doc), Sheet("<xsl:template match='/'><out><xsl:copy-of "
                                         "select='/r/*'/><lit>ab</lit></out></xsl:template>"),
                        result),
              kOk);
    Node out = Root(result);
    Append(out, Element(plain, "plainChild"));
    Append(Child(out, 2), TextNode(plain, "ab"));
    fromResult = Append(host, Child(out, 0));
    Append(host, Child(out, 0));
    EXPECT_EQ(Xml(out), "<out><lit>abab</lit><plainChild/></out>");
    // result, doc and their trees go here except what host took.
  }
  EXPECT_EQ(Xml(host), "<host><a>ab</a><b>x</b></host>");
  ASSERT_EQ(Child(fromResult, 0).put_nodeValue("changed"), kOk);
  EXPECT_EQ(Xml(fromResult), "<a>changed</a>");
}

TEST(DomTransformLifetime, StrippingWhiteSpaceLeavesTheSourceAlone) {
  const std::string strip = Sheet("<xsl:strip-space elements='*'/><xsl:template match='/'>"
                                  "<out><xsl:copy-of select='/*/*'/></out></xsl:template>");
  Document doc = Parse("<r><a> </a><b> </b></r>");
  Node blank = Child(Child(Root(doc), 0), 0);
  Document created = NewDocument();
  Node free = Element(created, "free");
  Node kept = Append(Append(free, Element(created, "c")), Child(Child(Root(doc), 1), 0));
  Document result;
  for (const Node& source : {free, Root(doc).ptr().ref(), Root(doc)}) {
    ASSERT_EQ(Transform(source, strip, result), kOk);
  }
  EXPECT_EQ(Xml(Root(result)), "<out><a/><b/></out>");
  EXPECT_EQ(Value(blank), " ");
  EXPECT_EQ(Xml(Root(doc)), "<r><a> </a><b/></r>");
  EXPECT_EQ(Xml(free), "<free><c> </c></free>");
  EXPECT_EQ(Value(kept), " ");
}

}  // namespace
}  // namespace tk::dom::test
