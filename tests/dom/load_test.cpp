// Loads from bytes and files: errors, white space, entities, the joining of
// surrogate pairs, and what a document may never make the parser read.
#include <gtest/gtest.h>

#include <string>

#include "dom/dom.h"
#include "dom_test_util.h"
#include "support/test_support.h"

namespace tk::dom::test {
namespace {

using tk::test::TempDir;
using tk::test::WriteFile;
using namespace std::literals;

TEST(DomLoad, ParseErrorReportsCodeLinePositionUrlAndReason_AndKeepsTheTree) {
  Document doc = Parse("<old/>");
  ParseError error;
  ::testing::internal::CaptureStderr();
  const int status = LoadText(doc, "<a>\n<b>\n</a>");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");  // the engine prints nothing
  EXPECT_LT(status, 0);
  ASSERT_EQ(doc.get_parseError(error), kOk);
  EXPECT_EQ(error.errorCode, status);
  EXPECT_EQ(error.line, 3);
  EXPECT_GT(error.linepos, 0);
  EXPECT_EQ(error.url, "");
  EXPECT_NE(error.reason.find("mismatch"), std::string::npos) << error.reason;
  EXPECT_EQ(error.reason.back(), '\n');

  // The last: an external subset is never read, so its entities stay undefined.
  for (std::string_view bad : {""sv, "   "sv, "<a/><b/>"sv, "<a>&undef;</a>"sv,
                               "<!DOCTYPE r SYSTEM 'unread.dtd'><r>&e;</r>"sv}) {
    EXPECT_LT(LoadText(doc, bad), 0) << bad;
    doc.get_parseError(error);
    EXPECT_LT(error.errorCode, 0);
    EXPECT_FALSE(error.reason.empty());
  }
  TempDir dir;
  EXPECT_LT(doc.load(dir.path("missing.xml").c_str()), 0);
  EXPECT_LT(doc.load(dir.root().c_str()), 0);  // a directory reads as nothing
  EXPECT_EQ(Name(Root(doc)), "old");

  ASSERT_EQ(LoadText(doc, "<new/>"), kOk);
  doc.get_parseError(error);
  EXPECT_EQ(error.errorCode, 0);
  EXPECT_EQ(Name(Root(doc)), "new");
}

TEST(DomLoad, WhiteSpaceEntitiesAndCdata) {
  struct Row {
    const char* xml;
    const char* expected;
  };
  const Row rows[] = {
      // White space between elements goes unless preserved or the whole content.
      {"<r>\n  <a/>\n  <b>x</b>\n</r>", "<r><a/><b>x</b></r>"},
      {"<r>  </r>", "<r>  </r>"},
      {"<r><a> </a>\n</r>", "<r><a> </a></r>"},
      {"<r xml:space='preserve'>\n <a/>\n</r>", "<r xml:space=\"preserve\">\n <a/>\n</r>"},
      {"<r>t <a/> u</r>", "<r>t <a/> u</r>"},
      // Entities are substituted, CDATA stays.
      {"<!DOCTYPE r [<!ENTITY e 'ent<i>x</i>'>]><r>&e;&amp;<![CDATA[<c>]]></r>",
       "<r>ent<i>x</i>&amp;<![CDATA[<c>]]></r>"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.xml);
    EXPECT_EQ(Xml(Root(Parse(row.xml))), row.expected);
  }
}

TEST(DomLoad, SurrogatePairsInUtf8InputBecomeOneCharacter) {
  const std::string pair = "\xED\xA0\xBD\xED\xB8\x80";  // U+1F600 as two 3-byte halves
  const std::string joined = "\xF0\x9F\x98\x80";
  for (const std::string& head : {std::string(), std::string("<?xml version='1.0'?>"),
                                  std::string("<?xml version='1.0' encoding='utf-8'?>"),
                                  std::string("\xEF\xBB\xBF")}) {
    Document doc = Parse(head + "<r a='" + pair + "'>" + pair + "x" + pair + "</r>");
    EXPECT_EQ(Xml(Root(doc)), "<r a=\"" + joined + "\">" + joined + "x" + joined + "</r>");
  }
  TempDir dir;
  WriteFile(dir.path("s.xml"), "<r>" + pair + "</r>");
  Document doc = NewDocument();
  ASSERT_EQ(doc.load(dir.path("s.xml").c_str()), kOk);
  EXPECT_EQ(Value(Child(Root(doc), 0)), joined);

  // Lone or reversed halves stay invalid; a single-byte encoding is never touched.
  EXPECT_LT(LoadText(doc, "<r>\xED\xA0\xBD</r>"), 0);
  EXPECT_LT(LoadText(doc, "<r>\xED\xB8\x80\xED\xA0\xBD</r>"), 0);
  Document latin = Parse("<?xml version='1.0' encoding='ISO-8859-1'?><r>" + pair + "</r>");
  EXPECT_EQ(Value(Child(Root(latin), 0)), "\xC3\xAD\xC2\xA0\xC2\xBD\xC3\xAD\xC2\xB8\xC2\x80");
}

TEST(DomLoadSafety, AttributesPerElementAreBounded) {
  auto element = [](const char* name, int count) {
    std::string xml = std::string("<r><") + name;
    for (int i = 0; i < count; ++i) xml += " a" + std::to_string(i) + "='1'";
    return xml + "/></r>";
  };
  Document doc = NewDocument();
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(LoadText(doc, element("e", 10000)), kOk);
  int32_t length = 0;
  Attributes(Child(Root(doc), 0)).get_length(length);
  EXPECT_EQ(length, 10000);

  for (const char* name : {"e", "p:e xmlns:p='urn:p'"}) {
    const int status = LoadText(doc, element(name, 10001));
    EXPECT_LT(status, 0) << name;
    ParseError error;
    doc.get_parseError(error);
    EXPECT_EQ(error.errorCode, status);
    EXPECT_EQ(error.line, 1);
    EXPECT_GT(error.linepos, 0);
    EXPECT_EQ(error.reason, std::string("Element ") + (name[0] == 'p' ? "p:e" : "e") +
                                " has more than 10000 attributes\n");
    EXPECT_EQ(ChildCount(Root(doc)), 1);  // the earlier tree stays
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

}  // namespace
}  // namespace tk::dom::test
