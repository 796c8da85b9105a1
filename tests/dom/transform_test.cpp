// Transformations: where they start, what they make, and the sandbox.
#include <gtest/gtest.h>
#include <libxml/globals.h>

#include <string>

#include "dom/dom.h"
#include "dom_test_util.h"
#include "support/test_support.h"

namespace tk::dom::test {
namespace {

using tk::test::FileExists;
using tk::test::TempDir;
using tk::test::WriteFile;

std::string Sheet(const std::string& body, const std::string& extra = "") {
  return "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'" +
         extra + ">" + body + "</xsl:stylesheet>";
}

const std::string kRootName = Sheet(
    "<xsl:template match='/'><out n='{name(/*)}'><xsl:copy-of select='/*/*'/></out>"
    "</xsl:template>");

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
  Node free = Element(created, "free");
  Append(free, Element(created, "k"));
  Document result;
  ASSERT_EQ(Transform(Root(loaded), kRootName, result), kOk);
  EXPECT_EQ(Xml(Root(result)), "<out n=\"r\"><a>1</a></out>");
  ASSERT_EQ(Transform(free, kRootName, result), kOk);
  EXPECT_EQ(Xml(Root(result)), "<out n=\"free\"><k/></out>");
  // The source is as it was.
  Node parent;
  EXPECT_EQ(free.get_parentNode(parent), kFalse);
  EXPECT_EQ(Xml(free), "<free><k/></free>");
  EXPECT_EQ(ChildCount(Child(Root(loaded), 0)), 1);

  // The result is a document like any other.
  Node made = Element(result, "made");
  Append(Root(result), made);
  EXPECT_EQ(Xml(Root(result)), "<out n=\"free\"><k/><made/></out>");
  ASSERT_EQ(result.loadBytes("<again/>", 8), kOk);
  EXPECT_EQ(Name(Root(result)), "again");
}

TEST(DomTransform, ResultWithoutElementAndFailures) {
  Document doc = Parse("<r>text</r>");
  Document result;
  ASSERT_EQ(Transform(Root(doc), Sheet("<xsl:output method='text'/>"
                                       "<xsl:template match='/'>plain</xsl:template>"),
                      result),
            kOk);
  Node none;
  EXPECT_EQ(result.get_documentElement(none), kFalse);
  EXPECT_FALSE(none);

  Document untouched = Parse("<keep/>");
  const std::string bad[] = {
      Sheet("<xsl:template match='/'><xsl:value-of select='1+'/></xsl:template>"),
      Sheet("<xsl:template match='/'><xsl:value-of select='nosuch()'/></xsl:template>"),
      Sheet("<xsl:template match='/'><xsl:message terminate='yes'>x</xsl:message>"
            "</xsl:template>"),
      "<notastylesheet/>",
  };
  for (const std::string& sheet : bad) {
    Document out = untouched;
    EXPECT_LT(Transform(Root(doc), sheet, out), 0) << sheet;
    EXPECT_EQ(Name(Root(out)), "keep");
  }
  Document empty = NewDocument();
  EXPECT_LT(Document::transformNodeToObject(Root(doc), empty, result), 0);
  EXPECT_LT(Document::transformNodeToObject(Node(), Parse(kRootName), result), 0);
  Node attr;
  ASSERT_EQ(doc.createAttribute("a", attr), kOk);
  EXPECT_LT(Document::transformNodeToObject(attr, Parse(kRootName), result), 0);
}

// A handler of the calling thread is neither called nor lost.
int g_reports = 0;
void CountReport(void*, xmlErrorPtr) { ++g_reports; }

TEST(DomTransform, ThreadErrorHandlerIsLeftAlone) {
  xmlSetStructuredErrorFunc(nullptr, CountReport);
  Document doc = Parse("<r/>");
  Document result;
  EXPECT_LT(Transform(Root(doc), Sheet("<xsl:template match='/'><xsl:value-of "
                                       "select='nosuch()'/></xsl:template>"), result),
            0);
  EXPECT_LT(doc.loadBytes("<a>", 3), 0);
  EXPECT_EQ(g_reports, 0);
  EXPECT_EQ(xmlStructuredError, &CountReport);
  xmlSetStructuredErrorFunc(nullptr, nullptr);
}

TEST(DomTransformSafety, StylesheetCanNeitherReadNorWriteFiles) {
  TempDir dir;
  const std::string secret = dir.path("secret.xml");
  WriteFile(secret, "<s>TOPSECRET</s>");
  WriteFile(dir.path("inc.xsl"), Sheet("<xsl:template match='/'><s>TOPSECRET</s></xsl:template>"));
  Document doc = Parse("<r/>");

  const std::string written = dir.path("written.xml");
  Document result;
  const int status = Transform(
      Root(doc),
      Sheet("<xsl:template match='/'><xsl:document href='" + written +
            "'><w/></xsl:document><done/></xsl:template>", " xmlns:x='urn:x'"),
      result);
  EXPECT_FALSE(FileExists(written));
  if (status == kOk) {
    EXPECT_EQ(Xml(Root(result)).find("<w/>"), std::string::npos);
  }

  const std::string readers[] = {
      Sheet("<xsl:template match='/'><o><xsl:copy-of select=\"document('file://" + secret +
            "')\"/></o></xsl:template>"),
      Sheet("<xsl:include href='file://" + dir.path("inc.xsl") + "'/>"),
      Sheet("<xsl:import href='file://" + dir.path("inc.xsl") + "'/>"),
  };
  for (const std::string& sheet : readers) {
    Document out;
    if (Transform(Root(doc), sheet, out) == kOk && Root(out)) {
      EXPECT_EQ(Xml(Root(out)).find("TOPSECRET"), std::string::npos) << sheet;
    }
  }
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
    Node text;
    ASSERT_EQ(plain.createTextNode("ab", text), kOk);
    Append(Child(out, 2), text);
    fromResult = Child(out, 0);
    Append(host, fromResult);
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
  for (const Node& source : {Root(doc), free, Root(doc).ptr().ref()}) {
    Document result;
    ASSERT_EQ(Transform(source, strip, result), kOk);
  }
  Document result;
  ASSERT_EQ(Transform(Root(doc), strip, result), kOk);
  EXPECT_EQ(Xml(Root(result)), "<out><a/><b/></out>");
  EXPECT_EQ(Value(blank), " ");
  EXPECT_EQ(Xml(Root(doc)), "<r><a> </a><b/></r>");
  EXPECT_EQ(Xml(free), "<free><c> </c></free>");
  EXPECT_EQ(Value(kept), " ");
}

}  // namespace
}  // namespace tk::dom::test
