#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <treekeeper/treekeeper.h>

#include "support/test_support.h"

namespace {

using tk::test::Instance;
using tk::test::kDeclaration;
using tk::test::MessageLog;
using Messages = std::vector<std::string>;

std::string Sheet(const std::string& body, const std::string& extraNamespaces = "") {
  return "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'" +
         extraNamespaces + ">" + body + "</xsl:stylesheet>";
}

// Copies the root element under the name "new", with its attributes and
// content. Its output settings don't reach the library's export.
const std::string kRename =
    Sheet("<xsl:output encoding='ISO-8859-1' omit-xml-declaration='yes'/>"
          "<xsl:template match='/*'><new><xsl:copy-of select='@*|node()'/></new></xsl:template>");
const std::string kIdentity = Sheet(
    "<xsl:template match='@*|node()'><xsl:copy><xsl:apply-templates select='@*|node()'/>"
    "</xsl:copy></xsl:template>");

int Apply(const Instance& instance, const std::string& stylesheet, int size = 1) {
  return instance.xslt()->ApplyXSLT(stylesheet.c_str(), size);
}

int Import(const Instance& instance, const char* xml) {
  return instance->ImportFromStream(xml, static_cast<int>(std::strlen(xml)), "source.xml");
}

std::string Export(const Instance& instance) {
  outputstr out;
  const int result = instance->ExportToStream(out);
  return result == 0 ? std::string(out.text()) : "error " + std::to_string(result);
}

std::string Name(const Instance& instance, unsigned handle) {
  char buffer[64];
  unsigned size = sizeof buffer;
  const int result = instance->GetElementName(handle, buffer, &size);
  return result == 0 ? std::string(buffer) : "error " + std::to_string(result);
}

TEST(ApplyXslt, RefusedWithoutRoot) {
  MessageLog log;
  Instance fresh;
  EXPECT_EQ(Apply(fresh, kIdentity), -1);
  EXPECT_EQ(log.messages(), Messages{"ApplyXSLT: root element is invalid\n"});

  // A created root dies with its handle, so after CloseAllElements there is none.
  log.clear();
  Instance created;
  ASSERT_EQ(created->CreateEmpty("root"), 0);
  created->CloseAllElements();
  EXPECT_EQ(Apply(created, kIdentity), -1);
  EXPECT_EQ(log.messages(), Messages{"ApplyXSLT: root element is invalid\n"});
}

TEST(ApplyXslt, OpenHandlesAndTheTrim) {
  MessageLog log;
  Instance instance;
  ASSERT_EQ(Import(instance, "<r><a/><b/><c/></r>"), 0);
  const unsigned a = instance->OpenElement(100, 0);
  const unsigned b = instance->OpenElement(100, 1);
  const unsigned c = instance->OpenElement(100, 2);
  ASSERT_EQ(c, 103u);

  // [root, a, closed, closed]: the trailing slots go even though a refuses.
  EXPECT_EQ(instance->CloseElement(b), 0);
  EXPECT_EQ(instance->CloseElement(c), 0);
  EXPECT_EQ(Apply(instance, kIdentity), -1);
  EXPECT_EQ(log.messages(), Messages{"ApplyXSLT: open handles present\n"});
  EXPECT_EQ(instance->GetHandleCount(), 2u);

  // [root, closed, live]: refused and unchanged.
  const unsigned d = instance->OpenElement(100, 1);
  EXPECT_EQ(instance->CloseElement(a), 0);
  EXPECT_EQ(Apply(instance, kIdentity), -1);
  EXPECT_EQ(instance->GetHandleCount(), 3u);
  EXPECT_EQ(Name(instance, d), "b");

  // [root, closed] after closing the last one: trimmed to [root], and it runs.
  EXPECT_EQ(instance->CloseElement(d), 0);
  log.clear();
  EXPECT_EQ(Apply(instance, kRename), 0);
  EXPECT_TRUE(log.messages().empty()) << log.joined();
  EXPECT_EQ(instance->GetHandleCount(), 1u);
  EXPECT_EQ(Name(instance, 100), "new");
}

TEST(ApplyXslt, RenameCarriesValuesAndAttributes) {
  Instance instance;
  ASSERT_EQ(Import(instance, "<old a='1'><v>text \xC3\xA9</v></old>"), 0);
  ASSERT_EQ(Apply(instance, kRename, 0), 0);  // size has no effect
  EXPECT_EQ(instance->GetHandleCount(), 1u);
  EXPECT_EQ(Export(instance),
            std::string(kDeclaration) + "<new a=\"1\"><v>text \xC3\xA9</v></new>");

  const unsigned v = instance->OpenElement("new/v");
  ASSERT_NE(v, 0u);
  char value[32];
  unsigned size = sizeof value;
  EXPECT_EQ(instance->GetElementValue(v, nullptr, TK_VALUE_TEXT, &size, value), 0);
  EXPECT_STREQ(value, "text \xC3\xA9");
  size = sizeof value;
  EXPECT_EQ(instance->GetAttributeValue(100, nullptr, "a", TK_VALUE_TEXT, &size, value), 0);
  EXPECT_STREQ(value, "1");
}

TEST(ApplyXslt, FailuresLeaveTheDocumentAsItWas) {
  const std::string failing[] = {
      "<xsl:stylesheet",                                      // not well-formed
      "<notxsl/>",                                            // no stylesheet
      "",                                                     // nothing
      Sheet("<xsl:template match='/'><xsl:message terminate='yes'>stop</xsl:message>"
            "</xsl:template>"),                               // stops the transformation
      Sheet("<xsl:template match='/'><xsl:value-of select='no-such-function()'/>"
            "</xsl:template>"),                               // fails to compile
  };
  const char* xml = "<doc k=\"v\"><item>1</item></doc>";
  for (const std::string& stylesheet : failing) {
    SCOPED_TRACE(stylesheet);
    MessageLog log;
    Instance instance;
    ASSERT_EQ(Import(instance, xml), 0);
    EXPECT_EQ(Apply(instance, stylesheet), -1);
    EXPECT_TRUE(log.messages().empty()) << log.joined();
    EXPECT_EQ(instance->GetHandleCount(), 1u);
    EXPECT_EQ(Name(instance, 100), "doc");
    EXPECT_EQ(Export(instance), std::string(kDeclaration) + xml);
  }
  Instance instance;
  ASSERT_EQ(Import(instance, xml), 0);
  EXPECT_EQ(instance.xslt()->ApplyXSLT(nullptr, 0), -1);
  EXPECT_EQ(Name(instance, 100), "doc");
}

TEST(ApplyXslt, FreeStandingCreatedRoot) {
  Instance instance;
  ASSERT_EQ(instance->CreateEmpty("root"), 0);
  ASSERT_EQ(instance->SetElementValue(100, nullptr, TK_VALUE_TEXT, 5, "hello"), 0);
  unsigned child = 0;
  ASSERT_EQ(instance->CreateElement(100, "child", &child), 0);
  ASSERT_EQ(instance->CloseElement(child), 0);
  // The stylesheet sees the root as the document's element: "/" matches above it.
  const std::string sheet =
      Sheet("<xsl:template match='/'><top><xsl:copy-of select='root/node()'/></top>"
            "</xsl:template>");
  ASSERT_EQ(Apply(instance, sheet), 0);
  EXPECT_EQ(Export(instance), std::string(kDeclaration) + "<top>hello<child/></top>");
}

TEST(ApplyXslt, ImportedDocumentStillRunsAfterCloseAll) {
  Instance instance;
  ASSERT_EQ(Import(instance, "<old><x/></old>"), 0);
  instance->CloseAllElements();
  ASSERT_EQ(Apply(instance, kRename), 0);
  EXPECT_EQ(instance->GetHandleCount(), 1u);
  EXPECT_EQ(Name(instance, 100), "new");
  EXPECT_EQ(Export(instance), std::string(kDeclaration) + "<new><x/></new>");
}

TEST(ApplyXslt, ResultWithoutElementLeavesAClosedSlot) {
  MessageLog log;
  Instance instance;
  ASSERT_EQ(Import(instance, "<a>text</a>"), 0);
  ASSERT_EQ(Apply(instance, Sheet("<xsl:template match='/'>only text</xsl:template>")), 0);
  EXPECT_EQ(instance->GetHandleCount(), 1u);
  EXPECT_EQ(Export(instance), "error -1");
  EXPECT_EQ(Name(instance, 100), "error -6");
  EXPECT_EQ(instance->OpenElement(100, 0), 0u);
  outputstr out("kept");
  EXPECT_EQ(instance->ExportSubTreeToStream(100, out), -102);
  EXPECT_STREQ(out.text(), "kept");
  EXPECT_EQ(instance->CreateEmpty("x"), -112);  // the table isn't empty

  log.clear();
  EXPECT_EQ(Apply(instance, kIdentity), -1);
  EXPECT_EQ(log.messages(), Messages{"ApplyXSLT: root element is invalid\n"});

  instance->CloseAllElements();
  EXPECT_EQ(instance->GetHandleCount(), 0u);
  ASSERT_EQ(Import(instance, "<again/>"), 0);
  EXPECT_EQ(Export(instance), std::string(kDeclaration) + "<again/>");
  instance->CloseAllElements();
  ASSERT_EQ(instance->CreateEmpty("made"), 0);
  EXPECT_EQ(Name(instance, 100), "made");
}

// Stylesheets can neither write files nor read them.
TEST(ApplyXslt, Sandbox) {
  tk::test::TempDir dir;
  const std::string written[] = {dir.path("exsl.xml"), dir.path("xsl11.xml")};
  const std::string writers[] = {
      Sheet("<xsl:template match='/'><r><exsl:document href='" + written[0] +
                "'><leak/></exsl:document></r></xsl:template>",
            " xmlns:exsl='http://exslt.org/common' extension-element-prefixes='exsl'"),
      "<xsl:stylesheet version='1.1' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
      "<xsl:template match='/'><r><xsl:document href='" + written[1] +
          "'><leak/></xsl:document></r></xsl:template></xsl:stylesheet>",
  };
  for (const std::string& sheet : writers) {
    Instance instance;
    ASSERT_EQ(Import(instance, "<a/>"), 0);
    const int result = Apply(instance, sheet);
    if (result != 0) {
      EXPECT_EQ(Export(instance), std::string(kDeclaration) + "<a/>");
    }
  }
  for (const std::string& path : written) EXPECT_FALSE(tk::test::FileExists(path)) << path;

  const std::string secret = dir.path("secret.xml");
  tk::test::WriteFile(secret, "<s>SECRET</s>");
  for (const std::string& uri : {secret, "file://" + secret}) {
    Instance instance;
    ASSERT_EQ(Import(instance, "<a/>"), 0);
    const std::string reader = Sheet("<xsl:template match='/'><r><xsl:value-of select=\"document('" +
                                     uri + "')/s\"/></r></xsl:template>");
    Apply(instance, reader);
    EXPECT_EQ(Export(instance).find("SECRET"), std::string::npos) << uri;
  }
}

}  // namespace
