// Loads from bytes and files: errors, white space, encodings, the joining of
// surrogate pairs, and what a document may never make the parser read.
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "dom/dom.h"
#include "dom_test_util.h"
#include "support/test_support.h"

namespace tk::dom::test {
namespace {

using tk::test::TempDir;
using tk::test::WriteFile;

int LoadText(Document& doc, std::string_view xml) { return doc.loadBytes(xml.data(), xml.size()); }

TEST(DomLoad, ParseErrorReportsCodeLinePositionUrlAndReason_AndKeepsTheTree) {
  Document doc = Parse("<old/>");
  ::testing::internal::CaptureStderr();
  const int status = LoadText(doc, "<a>\n<b>\n</a>");
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");  // the engine prints nothing
  EXPECT_LT(status, 0);
  ParseError error;
  ASSERT_EQ(doc.get_parseError(error), kOk);
  EXPECT_EQ(error.errorCode, status);
  EXPECT_EQ(error.line, 3);
  EXPECT_GT(error.linepos, 0);
  EXPECT_EQ(error.url, "");
  EXPECT_NE(error.reason.find("mismatch"), std::string::npos) << error.reason;
  EXPECT_EQ(error.reason.back(), '\n');
  EXPECT_EQ(Name(Root(doc)), "old");

  TempDir dir;
  const std::string path = dir.path("bad.xml");
  WriteFile(path, "<a>\n\n<b></a>");
  EXPECT_LT(doc.load(path.c_str()), 0);
  doc.get_parseError(error);
  EXPECT_EQ(error.line, 3);
  EXPECT_EQ(error.url, path);
  EXPECT_EQ(Name(Root(doc)), "old");

  for (std::string_view bad : {std::string_view(), std::string_view("   "),
                               std::string_view("<a/><b/>"), std::string_view("<a>&undef;</a>")}) {
    EXPECT_LT(LoadText(doc, bad), 0) << bad;
    doc.get_parseError(error);
    EXPECT_LT(error.errorCode, 0);
    EXPECT_FALSE(error.reason.empty());
  }
  EXPECT_LT(doc.load(dir.path("missing.xml").c_str()), 0);
  EXPECT_LT(doc.load(dir.root().c_str()), 0);  // a directory reads as nothing

  ASSERT_EQ(LoadText(doc, "<new/>"), kOk);
  doc.get_parseError(error);
  EXPECT_EQ(error.errorCode, 0);
  EXPECT_EQ(Name(Root(doc)), "new");
}

TEST(DomLoad, DocumentWithoutElementIsPossibleOnlyAfterNoLoad) {
  Document doc = NewDocument();
  Node root;
  EXPECT_EQ(doc.get_documentElement(root), kFalse);
  EXPECT_FALSE(root);
}

TEST(DomLoad, WhiteSpaceBetweenElementsGoesUnlessPreservedOrWholeContent) {
  struct Row {
    const char* xml;
    const char* expected;
  };
  const Row rows[] = {
      {"<r>\n  <a/>\n  <b>x</b>\n</r>", "<r><a/><b>x</b></r>"},
      {"<r>  </r>", "<r>  </r>"},
      {"<r><a> </a>\n</r>", "<r><a> </a></r>"},
      {"<r xml:space='preserve'>\n <a/>\n</r>", "<r xml:space=\"preserve\">\n <a/>\n</r>"},
      {"<r>t <a/> u</r>", "<r>t <a/> u</r>"},
  };
  for (const Row& row : rows) {
    Document doc = Parse(row.xml);
    EXPECT_EQ(Xml(Root(doc)), row.expected) << row.xml;
  }
}

TEST(DomLoad, EntitiesAreSubstitutedAndCdataStays) {
  Document doc = Parse("<!DOCTYPE r [<!ENTITY e 'ent<i>x</i>'>]><r>&e;&amp;<![CDATA[<c>]]></r>");
  Node root = Root(doc);
  EXPECT_EQ(Xml(root), "<r>ent<i>x</i>&amp;<![CDATA[<c>]]></r>");
  EXPECT_EQ(Child(root, ChildCount(root) - 1).nodeType(), kCData);
}

TEST(DomLoad, EncodingsFromMarkAndDeclaration) {
  Document latin = Parse("<?xml version='1.0' encoding='ISO-8859-1'?><r a='\xE9'>\xE9</r>");
  EXPECT_EQ(Xml(Root(latin)), "<r a=\"\xC3\xA9\">\xC3\xA9</r>");
  Document cp = Parse("<?xml version='1.0' encoding='windows-1252'?><r>\x80</r>");
  EXPECT_EQ(Xml(Root(cp)), "<r>\xE2\x82\xAC</r>");

  // UTF-16 (little endian, with its mark) from a file.
  const std::string text = "<?xml version=\"1.0\" encoding=\"UTF-16\"?><r>\xC3\xA9</r>";
  std::string utf16 = "\xFF\xFE";
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\xC3') {
      utf16 += "\xE9";
      utf16 += '\0';
      ++i;
    } else {
      utf16 += text[i];
      utf16 += '\0';
    }
  }
  TempDir dir;
  WriteFile(dir.path("u16.xml"), utf16);
  Document doc = NewDocument();
  ASSERT_EQ(doc.load(dir.path("u16.xml").c_str()), kOk);
  EXPECT_EQ(Xml(Root(doc)), "<r>\xC3\xA9</r>");
  // A byte left over at the end is no character.
  WriteFile(dir.path("u16.xml"), utf16 + "\n");
  EXPECT_LT(doc.load(dir.path("u16.xml").c_str()), 0);
  EXPECT_EQ(Xml(Root(doc)), "<r>\xC3\xA9</r>");
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
  for (const std::string& bad : {std::string("<r>\xED\xA0\xBD</r>"),
                                 std::string("<r>\xED\xB8\x80\xED\xA0\xBD</r>")}) {
    EXPECT_LT(LoadText(doc, bad), 0);
  }
  Document latin =
      Parse("<?xml version='1.0' encoding='ISO-8859-1'?><r>" + pair + "</r>");
  EXPECT_EQ(Value(Child(Root(latin), 0)), "\xC3\xAD\xC2\xA0\xC2\xBD\xC3\xAD\xC2\xB8\xC2\x80");
}

TEST(DomLoadSafety, ExternalEntitiesAreNeverRead) {
  TempDir dir;
  const std::string secret = dir.path("secret.txt");
  WriteFile(secret, "TOPSECRET");
  WriteFile(dir.path("pe.dtd"), "<!ENTITY leak 'TOPSECRET'>");
  const std::string general = "<!DOCTYPE r [<!ENTITY x SYSTEM 'file://" + secret +
                              "'>]><r>&x;</r>";
  const std::string parameter = "<!DOCTYPE r [<!ENTITY % p SYSTEM 'file://" +
                                dir.path("pe.dtd") + "'> %p;]><r>&leak;</r>";
  const std::string external = "<!DOCTYPE r SYSTEM 'file://" + dir.path("pe.dtd") +
                               "'><r>&leak;</r>";
  for (const std::string& xml : {general, parameter, external}) {
    Document doc = NewDocument();
    if (LoadText(doc, xml) == kOk) {
      EXPECT_EQ(Xml(Root(doc)).find("TOPSECRET"), std::string::npos) << xml;
    }
    WriteFile(dir.path("doc.xml"), xml);
    if (doc.load(dir.path("doc.xml").c_str()) == kOk) {
      EXPECT_EQ(Xml(Root(doc)).find("TOPSECRET"), std::string::npos) << xml;
    }
  }
  // A reference left unresolved that way doesn't load: its text would read
  // back as an undefined entity.
  Document doc = NewDocument();
  EXPECT_LT(LoadText(doc, external), 0);
  ParseError error;
  doc.get_parseError(error);
  EXPECT_NE(error.reason.find("leak"), std::string::npos) << error.reason;
}

TEST(DomLoadSafety, EntityExpansionIsBounded) {
  std::string xml = "<!DOCTYPE r [<!ENTITY a 'aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa'>";
  char prev = 'a';
  for (char name = 'b'; name <= 'k'; ++name) {
    xml += std::string("<!ENTITY ") + name + " '";
    for (int i = 0; i < 10; ++i) xml += std::string("&") + prev + ";";
    xml += "'>";
    prev = name;
  }
  xml += "]><r>&k;</r>";
  Document doc = Parse("<old/>");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_LT(LoadText(doc, xml), 0);
  // Not a timing assertion: only a guard against an expansion that runs away.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
  EXPECT_EQ(Name(Root(doc)), "old");

  std::string deep;
  for (int i = 0; i < 5000; ++i) deep += "<d>";
  for (int i = 0; i < 5000; ++i) deep += "</d>";
  EXPECT_LT(LoadText(doc, deep), 0);
}

TEST(DomLoadSafety, AttributesPerElementAreBounded) {
  auto element = [](const char* name, int count) {
    std::string xml = std::string("<r><") + name;
    for (int i = 0; i < count; ++i) xml += " a" + std::to_string(i) + "='" + std::to_string(i) + "'";
    return xml + "/></r>";
  };
  Document doc = Parse("<old/>");
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(LoadText(doc, element("e", 10000)), kOk);
  AttrMap map;
  int32_t length = 0;
  ASSERT_EQ(Child(Root(doc), 0).get_attributes(map), kOk);
  map.get_length(length);
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
