// Loads from bytes and files: errors, white space, entities, the joining of
// surrogate pairs, and what a document may never make the parser read.
#include <gtest/gtest.h>

#include <algorithm>
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

std::string Times(int count, const std::string& piece) {
  std::string out;
  for (int i = 0; i < count; ++i) out += piece;
  return out;
}

std::string AttributeList(int count, const std::string& prefix = "") {
  std::string out;
  for (int i = 0; i < count; ++i) out += " " + prefix + "a" + std::to_string(i) + "='1'";
  return out;
}

std::string Declarations(int count, const std::string& stem) {
  std::string out;
  for (int i = 0; i < count; ++i) out += " xmlns:" + stem + std::to_string(i) + "='urn:x'";
  return out;
}

std::string Utf16(const std::string& ascii) {
  std::string out = "\xFF\xFE";
  for (char c : ascii) out += std::string{c, '\0'};
  return out;
}

// Crowded and repetitive documents: each is refused before it can cost more
// than its size, with a reason that says what was too many; those at the
// bounds load whole.
TEST(DomLoadSafety, CrowdedDocumentsAreBounded) {
  const std::string bigEntity = "<!DOCTYPE r [<!ENTITY e '" + std::string(100000, 'A') + "'>]>";
  auto defaults = [](int count) {
    std::string out;
    for (int i = 0; i < count; ++i) out += " a" + std::to_string(i) + " CDATA '1'";
    return out;
  };
  std::string names;
  for (int i = 0; i <= 100000; ++i) names += "<n" + std::to_string(i) + "/>";
  struct Case {
    std::string xml;
    std::string reason;  // empty: loads
  } cases[] = {
      {"<r><e" + AttributeList(1000) + "/></r>", ""},
      {"<r><e" + AttributeList(1001) + "/></r>",
       "Element e has more than 1000 attributes and namespace declarations\n"},
      {"<r xmlns:p='urn:p'><p:e" + Declarations(100, "q") + AttributeList(901, "p:") + "/></r>",
       "Element p:e has more than 1000 attributes and namespace declarations\n"},
      {Utf16("<r><e" + AttributeList(1001) + "/></r>"),
       "Element e has more than 1000 attributes and namespace declarations\n"},
      {"<r" + Declarations(100, "p") + "><a" + Declarations(28, "q") + "/></r>", ""},
      {"<r" + Declarations(100, "p") + "><a" + Declarations(29, "q") + "/></r>",
       "Element a has more than 128 namespace declarations in scope\n"},
      // What only looks like attributes is not counted.
      {"<!DOCTYPE r [<!-- " + AttributeList(2000) + " -->]><r><!--" + AttributeList(2000) + "--><![CDATA[<x" +
           AttributeList(2000) + ">]]><?pi " + AttributeList(2000) + "?><e a=\"" + AttributeList(2000) + "\"/></r>",
       ""},
      {"<!DOCTYPE r [<!ENTITY e \"<x" + AttributeList(1001) + "/>\">]><r>&e;</r>",
       "In entity 'e': Element x has more than 1000 attributes and namespace declarations\n"},
      {bigEntity + "<r a='" + Times(120, "&e;") + "'/>",
       "Entity references and attribute defaults expand to more than "},
      {bigEntity.substr(0, bigEntity.size() - 2) + "<!ATTLIST x xmlns:p CDATA '&e;'>]><r>" +
           Times(100, "<x/>") + "</r>",
       "Entity references and attribute defaults expand to more than "},
      {"<!DOCTYPE r [<!ATTLIST t" + defaults(1000) + ">]><r><t/></r>", ""},
      {"<!DOCTYPE r [<!ATTLIST t" + defaults(1001) + ">]><r/>",
       "Element t has more than 1000 attribute defaults\n"},
      {"<!DOCTYPE r [<!ATTLIST t" + defaults(100) + ">]><r>" + Times(100000, "<t/>") + "</r>",
       "Entity references and attribute defaults expand to more than "},
      {"<!DOCTYPE r [<!ENTITY e SYSTEM 'e.xml'>]><r>&e;</r>",
       "Entity 'e' is external; its text is never read, so the document is refused\n"},
      {"<r>" + names + "</r>", "The document uses more than 100000 distinct names\n"},
      // One text the engine won't grow that far: refused, not cut short.
      {"<r>" + std::string(5000001, 'x') + "&amp;" + std::string(5000000, 'x') + "</r>",
       "A text is longer than 10000000 bytes\n"},
  };
  Document doc = NewDocument();
  for (const Case& c : cases) {
    const int status = LoadText(doc, c.xml);
    ParseError error;
    doc.get_parseError(error);
    if (c.reason.empty()) {
      EXPECT_EQ(status, kOk) << c.xml.substr(0, 80) << " " << error.reason;
      continue;
    }
    EXPECT_LT(status, 0) << c.xml.substr(0, 80);
    EXPECT_EQ(error.errorCode, status);
    EXPECT_EQ(error.line, 1);
    EXPECT_GT(error.linepos, 0);
    EXPECT_EQ(error.reason.substr(0, c.reason.size()), c.reason);
  }
  // An element crowded up to the bound keeps its attributes in order.
  ASSERT_EQ(LoadText(doc, "<r" + AttributeList(1000) + "/>"), kOk);
  int32_t length = 0;
  Attributes(Root(doc)).get_length(length);
  EXPECT_EQ(length, 1000);
  std::string written = "<r" + AttributeList(1000) + "/>";
  std::replace(written.begin(), written.end(), '\'', '"');
  EXPECT_EQ(Xml(Root(doc)), written);
}

// Replacement text without markup joins the text around each reference.
TEST(DomLoadSafety, PlainEntityTextJoinsItsNeighbours) {
  Document doc =
      Parse("<!DOCTYPE r [<!ENTITY e 'v'><!ENTITY f '&#60;b/>'>]><r>a&e;&e;b&f;&e;<c>&e;</c></r>");
  EXPECT_EQ(Xml(Root(doc)), "<r>avvb<b/>v<c>v</c></r>");
}

}  // namespace
}  // namespace tk::dom::test
