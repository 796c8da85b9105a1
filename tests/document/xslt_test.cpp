#include <atomic>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <treekeeper/treekeeper.h>

#include "robustness/robustness_support.h"
#include "support/test_support.h"
#include "support/xml_text.h"

namespace {

using tk::test::Bound;
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

// The engine's reasons reach the report, never the debug output; each
// ApplyXSLT starts a new report.
TEST(ApplyXslt, ReportSaysWhatTheEngineSaid) {
  MessageLog log;
  Instance instance;
  ASSERT_EQ(LoadText(instance.tk, "<doc/>"), 0);
  ITreeKeeperXsltReport* xslt = TkXsltReport(instance.tk);
  const auto report = [xslt] {
    outputstr text;
    EXPECT_EQ(xslt->GetXsltReport(text), 0);
    return std::string(text.text());
  };
  EXPECT_EQ(report(), "");
  const struct {
    std::string stylesheet;
    int result;
    std::string said;
  } cases[] = {
      {Sheet("<xsl:template match='/'><xsl:message>one</xsl:message>"
             "<xsl:message terminate='yes'>two</xsl:message></xsl:template>"),
       -1, "one\ntwo\n"},
      {Sheet("<xsl:template match='/'><a><xsl:value-of select='1 +'/></a></xsl:template>"), -1,
       "could not compile select expression '1 +'"},
      {Sheet("<xsl:import href='other.xsl'/>"), -1, "imports or includes another one"},
      {Sheet("<xsl:template match='/'><xsl:message>fine</xsl:message><a/></xsl:template>"), 0,
       "fine\n"},
      {Sheet("<xsl:template match='/'><xsl:message>" + std::string(700, 'x') +
             "</xsl:message><a/></xsl:template>"),
       0, std::string(700, 'x') + "\n"},
      {kIdentity, 0, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.stylesheet);
    EXPECT_EQ(Apply(instance, c.stylesheet), c.result);
    const std::string said = report();
    if (c.said.empty()) {
      EXPECT_EQ(said, "");
    } else {
      EXPECT_NE(said.find(c.said), std::string::npos) << said;
    }
  }
  // Chatter past 64 KiB is cut at a line, and says so.
  // (2^13 - 1 messages of 13 bytes, from a recursion 13 calls deep.)
  EXPECT_EQ(Apply(instance, Sheet("<xsl:template match='/'><a/><xsl:call-template name='n'/>"
                                  "</xsl:template><xsl:template name='n'>"
                                  "<xsl:param name='i' select='13'/><xsl:if test='$i &gt; 0'>"
                                  "<xsl:message>twelve chars</xsl:message>"
                                  "<xsl:call-template name='n'><xsl:with-param name='i' "
                                  "select='$i - 1'/></xsl:call-template>"
                                  "<xsl:call-template name='n'><xsl:with-param name='i' "
                                  "select='$i - 1'/></xsl:call-template></xsl:if></xsl:template>")),
            0);
  const std::string long_report = report();
  EXPECT_LE(long_report.size(), 64u * 1024);
  EXPECT_EQ(long_report.substr(long_report.size() - 28), "(further messages left out)\n");
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

// A named template that calls itself twice on n - 1: 2^n calls.
std::string Branching(int n) {
  const std::string call =
      "<xsl:call-template name='t'><xsl:with-param name='n' select='$n - 1'/></xsl:call-template>";
  return Sheet("<xsl:template match='/'><r><xsl:call-template name='t'><xsl:with-param name='n' "
               "select='" + std::to_string(n) + "'/></xsl:call-template></r></xsl:template>"
               "<xsl:template name='t'><xsl:param name='n'/><xsl:if test='$n &gt; 0'>" +
               call + call + "</xsl:if></xsl:template>");
}

// A text doubled n times by concat($s, $s); the result holds its length.
std::string Doubling(int n) {
  return Sheet("<xsl:template match='/'><r><xsl:call-template name='d'><xsl:with-param name='n' "
               "select='" + std::to_string(n) + "'/><xsl:with-param name='s' select='\"x\"'/>"
               "</xsl:call-template></r></xsl:template><xsl:template name='d'><xsl:param "
               "name='n'/><xsl:param name='s'/><xsl:choose><xsl:when test='$n &gt; 0'>"
               "<xsl:call-template name='d'><xsl:with-param name='n' select='$n - 1'/>"
               "<xsl:with-param name='s' select='concat($s, $s)'/></xsl:call-template></xsl:when>"
               "<xsl:otherwise><xsl:value-of select='string-length($s)'/></xsl:otherwise>"
               "</xsl:choose></xsl:template>");
}

const std::string kOutOfTime = "ApplyXSLT: time budget exceeded\n";
const std::string kOutOfMemory = "ApplyXSLT: memory budget exceeded\n";

// Work for days, or for terabytes of text, ends within the default budget:
// -1, the document as it was, and a message that names the budget.
TEST(ApplyXslt, DefaultBudgetEndsRunawayStylesheets) {
  Instance instance;
  ASSERT_EQ(LoadText(instance.tk, "<a/>"), 0);
  for (const std::string& sheet : {Branching(40), Doubling(40)}) {
    MessageLog log;
    {
      Bound bound{"default budget", 5, 512};
      EXPECT_EQ(Apply(instance, sheet), -1);
    }
    EXPECT_EQ(DocumentText(instance.tk), "<a/>");
    EXPECT_TRUE(log.joined() == kOutOfTime || log.joined() == kOutOfMemory) << log.joined();
  }
}

// A client's budgets: each bound alone, lifted, and each counted for its own
// transformation only, whatever runs on other threads.
TEST(ApplyXslt, BudgetsSetByTheClient) {
  Instance instance;
  ASSERT_EQ(LoadText(instance.tk, "<a/>"), 0);
  ITreeKeeperXsltBudget* budget = TkXsltBudget(instance.tk);
  const struct {
    uint32_t milliseconds;
    uint64_t bytes;
    std::string sheet;
    const std::string& message;
  } cases[] = {
      {100, 0, Branching(40), kOutOfTime},
      {0, 1 << 20, Doubling(22), kOutOfMemory},  // 4 MB of text
  };
  for (const auto& c : cases) {
    MessageLog log;
    ASSERT_EQ(budget->SetXsltBudget(c.milliseconds, c.bytes), 0);
    EXPECT_EQ(Apply(instance, c.sheet), -1);
    EXPECT_EQ(log.joined(), c.message);
  }
  ASSERT_EQ(budget->SetXsltBudget(0, 0), 0);
  ASSERT_EQ(Apply(instance, Doubling(22)), 0);
  EXPECT_EQ(DocumentText(instance.tk), "<r>4194304</r>");

  // Small transformations within 4 MB on this thread, while another makes
  // 16 MB of text.
  std::atomic<bool> done{false};
  std::thread large([&done] {
    Instance other;
    EXPECT_EQ(LoadText(other.tk, "<a/>"), 0);
    EXPECT_EQ(TkXsltBudget(other.tk)->SetXsltBudget(0, 0), 0);
    EXPECT_EQ(Apply(other, Doubling(24)), 0);
    done = true;
  });
  ASSERT_EQ(budget->SetXsltBudget(0, 4 << 20), 0);
  int failed = 0;
  while (!done) failed += Apply(instance, kIdentity) != 0;
  large.join();
  EXPECT_EQ(failed, 0);
}

}  // namespace
