#include <string>

#include <gtest/gtest.h>
#include <treekeeper/treekeeper.h>

#include "support/test_support.h"
#include "support/xml_text.h"

namespace {

using tk::test::DocumentText;
using tk::test::Instance;
using tk::test::LoadText;
using tk::test::MessageLog;
using tk::test::SubTreeText;

std::string Sheet(const std::string& body, const std::string& attributes = "") {
  return "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'" +
         attributes + ">" + body + "</xsl:stylesheet>";
}

// Copies the root element under the name "new", with its attributes and
// content. Its output settings don't reach the library's export.
const std::string kRename =
    Sheet("<xsl:output encoding='ISO-8859-1' omit-xml-declaration='yes'/>"
          "<xsl:template match='/*'><new><xsl:copy-of select='@*|node()'/></new></xsl:template>");
const std::string kIdentity = Sheet(
    "<xsl:template match='@*|node()'><xsl:copy><xsl:apply-templates select='@*|node()'/>"
    "</xsl:copy></xsl:template>");
const std::string kNoRoot = "ApplyXSLT: root element is invalid\n";

int Apply(const Instance& instance, const std::string& stylesheet, int size = 1) {
  return instance.xslt()->ApplyXSLT(stylesheet.c_str(), size);
}

TEST(ApplyXslt, OpenHandlesAndTheTrim) {
  MessageLog log;
  Instance instance;
  ASSERT_EQ(LoadText(instance.tk, "<r><a/><b/><c/></r>"), 0);
  for (unsigned i = 0; i < 3; ++i) ASSERT_EQ(instance->OpenElement(100, i), 101 + i);

  // [root, a, closed, closed]: the trailing slots go even though a refuses.
  EXPECT_EQ(instance->CloseElement(102), 0);
  EXPECT_EQ(instance->CloseElement(103), 0);
  EXPECT_EQ(Apply(instance, kIdentity), -1);
  EXPECT_EQ(log.joined(), "ApplyXSLT: open handles present\n");
  EXPECT_EQ(instance->GetHandleCount(), 2u);

  // [root, closed, live]: refused and unchanged.
  const unsigned d = instance->OpenElement(100, 1);
  EXPECT_EQ(instance->CloseElement(101), 0);
  EXPECT_EQ(Apply(instance, kIdentity), -1);
  EXPECT_EQ(instance->GetHandleCount(), 3u);
  EXPECT_EQ(SubTreeText(instance.tk, d), "<b/>");

  // [root, closed] after closing the last one: trimmed to [root], and it runs.
  EXPECT_EQ(instance->CloseElement(d), 0);
  EXPECT_EQ(Apply(instance, kRename), 0);
  EXPECT_EQ(instance->GetHandleCount(), 1u);
  EXPECT_EQ(SubTreeText(instance.tk, 100), "<new><a/><b/><c/></new>");
}

TEST(ApplyXslt, ResultReplacesTheDocument) {
  Instance instance;
  ASSERT_EQ(LoadText(instance.tk, "<old a='1'><v>text \xC3\xA9</v></old>"), 0);
  instance->CloseAllElements();  // a loaded root outlives its handle
  ASSERT_EQ(Apply(instance, kRename, 0), 0);  // size has no effect
  EXPECT_EQ(DocumentText(instance.tk), "<new a=\"1\"><v>text \xC3\xA9</v></new>");

  // A created root is the document's element to the stylesheet: "/" is above it.
  Instance created;
  ASSERT_EQ(created->CreateEmpty("root"), 0);
  ASSERT_EQ(created->SetElementValue(100, nullptr, TK_VALUE_TEXT, 5, "hello"), 0);
  ASSERT_EQ(Apply(created, Sheet("<xsl:template match='/'><top><xsl:copy-of "
                                 "select='root/node()'/></top></xsl:template>")),
            0);
  EXPECT_EQ(DocumentText(created.tk), "<top>hello</top>");
}

// Neither the stylesheet's nor the transformation's failure is reported.
TEST(ApplyXslt, FailuresLeaveTheDocumentAsItWas) {
  const std::string failing[] = {
      "<xsl:stylesheet", "<notxsl/>", "",
      Sheet("<xsl:template match='/'><xsl:message terminate='yes'>stop</xsl:message>"
            "</xsl:template>"),
      Sheet("<xsl:template match='/'><xsl:value-of select='no-such-function()'/>"
            "</xsl:template>"),  // fails to compile
  };
  const char* xml = "<doc k=\"v\"><item>1</item></doc>";
  MessageLog log;
  Instance instance;
  ASSERT_EQ(LoadText(instance.tk, xml), 0);
  EXPECT_EQ(instance.xslt()->ApplyXSLT(nullptr, 0), -1);
  for (const std::string& stylesheet : failing) {
    SCOPED_TRACE(stylesheet);
    EXPECT_EQ(Apply(instance, stylesheet), -1);
    EXPECT_EQ(SubTreeText(instance.tk, 100), xml);
    EXPECT_EQ(DocumentText(instance.tk), xml);
  }
  EXPECT_TRUE(log.messages().empty()) << log.joined();
}

// Without a root nothing runs: in a fresh instance, and after a result that
// had no element, which leaves a closed slot at index 0.
TEST(ApplyXslt, RefusedWithoutRoot) {
  MessageLog log;
  Instance instance;
  EXPECT_EQ(Apply(instance, kIdentity), -1);
  EXPECT_EQ(log.joined(), kNoRoot);
  ASSERT_EQ(LoadText(instance.tk, "<a>text</a>"), 0);
  ASSERT_EQ(Apply(instance, Sheet("<xsl:template match='/'>only text</xsl:template>")), 0);
  EXPECT_EQ(instance->GetHandleCount(), 1u);
  EXPECT_EQ(DocumentText(instance.tk), "<error -1>");
  EXPECT_EQ(SubTreeText(instance.tk, 100), "<error -102>");
  log.clear();
  EXPECT_EQ(Apply(instance, kIdentity), -1);
  EXPECT_EQ(instance->CreateEmpty("x"), -112);  // the table isn't empty
  EXPECT_EQ(log.joined(), kNoRoot + "CreateEmpty:  root element exist\n");

  instance->CloseAllElements();
  ASSERT_EQ(instance->CreateEmpty("made"), 0);
  EXPECT_EQ(SubTreeText(instance.tk, 100), "<made/>");
}

// Stylesheets can't write files.
TEST(ApplyXslt, Sandbox) {
  tk::test::TempDir dir;
  const std::string written = dir.path("written.xml");
  Instance instance;
  ASSERT_EQ(LoadText(instance.tk, "<a/>"), 0);
  const int applied = Apply(
      instance, Sheet("<xsl:template match='/'><r><exsl:document href='" + written +
                          "'><leak/></exsl:document></r></xsl:template>",
                      " xmlns:exsl='http://exslt.org/common' extension-element-prefixes='exsl'"));
  EXPECT_TRUE(applied == 0 || DocumentText(instance.tk) == "<a/>");
  EXPECT_FALSE(tk::test::FileExists(written));
}

}  // namespace
