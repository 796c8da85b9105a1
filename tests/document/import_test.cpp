#include <gtest/gtest.h>

#include <climits>
#include <regex>
#include <string>

#include "support/test_support.h"
#include "support/xml_text.h"

namespace {

using tk::test::DocumentText;
using tk::test::LoadText;
using tk::test::Instance;
using tk::test::MessageLog;
using tk::test::ReadFile;
using tk::test::SubTreeText;
using tk::test::TempDir;

std::string DataFile(const char* name) { return std::string(TK_TEST_DATA_DIR) + "/" + name; }

const char* const kGoodText = "<cfg><net port=\"80\">up</net></cfg>";

// A document with every kind of content the export writes.
const char* const kRichText =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<cfg version=\"2\" name=\"caf\xC3\xA9\" q='a\"b'>"
    "<!-- settings --><net host=\"example\" port=\"80\">up &amp; running</net>"
    "<blob><![CDATA[a<b&c]]></blob><smile>\xF0\x9F\x98\x80 \xE2\x82\xAC</smile>"
    "<empty/><?pi data?><mixed>one<!--c-->two<![CDATA[three]]></mixed></cfg>";

TEST(ImportFromFile, NameAndProbeFailures) {
  TempDir dir;
  struct Case {
    std::string name;
    bool null;
    const char* message;
  } const cases[] = {
      {"", true, "ImportFromFile:  file name is invalid\n"},
      {"", false, "ImportFromFile:  file name is invalid\n"},
      {dir.path("missing.xml"), false, "ImportFromFile:  file open failed\n"},
      {dir.root(), false, "ImportFromFile:  file open failed\n"},
      {"/dev/null", false, "ImportFromFile:  file open failed\n"},
      {"http://example.invalid/a.xml", false, "ImportFromFile:  file open failed\n"},
  };
  Instance tk;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.null ? "(null)" : c.name);
    MessageLog log;
    testing::internal::CaptureStderr();
    EXPECT_EQ(tk->ImportFromFile(c.null ? nullptr : c.name.c_str()), -101);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(log.joined(), c.message);
    EXPECT_EQ(tk->GetHandleCount(), 0u);
  }
  EXPECT_EQ(tk->ImportFromFile(DataFile("import_sample.xml").c_str()), 0);
}

TEST(ImportFromFile, LoadFailuresReportTheParseError) {
  const char* const files[] = {"import_empty.xml", "import_truncated.xml", "import_not_xml.txt",
                               "import_unknown_encoding.xml", "import_syntax_error.xml"};
  for (const char* file : files) {
    SCOPED_TRACE(file);
    Instance tk;
    MessageLog log;
    testing::internal::CaptureStderr();
    EXPECT_EQ(tk->ImportFromFile(DataFile(file).c_str()), -1);
    const std::string report = testing::internal::GetCapturedStderr();
    EXPECT_EQ(log.joined(), "ImportFromFile : load failed\n");
    EXPECT_FALSE(report.empty());
    EXPECT_EQ(tk->GetHandleCount(), 0u);
    // The instance stays usable.
    EXPECT_EQ(tk->ImportFromStream(kGoodText, 1, nullptr), 0);
    EXPECT_EQ(DocumentText(tk.tk), kGoodText);
  }

  Instance tk;
  const std::string path = DataFile("import_syntax_error.xml");
  testing::internal::CaptureStderr();
  EXPECT_EQ(tk->ImportFromFile(path.c_str()), -1);
  const std::string report = testing::internal::GetCapturedStderr();
  const std::regex form("[^\\n]+\\n?Error on line 3, position [0-9]+ in \"" +
                        std::regex_replace(path, std::regex("[.^$|()\\[\\]{}*+?\\\\]"), "\\$&") +
                        "\"\\.\\n");
  EXPECT_TRUE(std::regex_match(report, form)) << report;
}

TEST(ImportFromFile, LoadsTheTree) {
  Instance tk;
  MessageLog log;
  testing::internal::CaptureStderr();
  ASSERT_EQ(tk->ImportFromFile(DataFile("import_sample.xml").c_str()), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr() + log.joined(), "");
  EXPECT_EQ(tk->GetHandleCount(), 1u);
  EXPECT_EQ(tk->OpenElement(nullptr), 100u);
  const std::string text = DocumentText(tk.tk);
  for (const char* part : {"name=\"caf\xC3\xA9\"", "<net host=\"example\" port=\"80\">up",
                           "<blob><![CDATA[a<b&c]]></blob>"}) {
    EXPECT_NE(text.find(part), std::string::npos) << text;
  }
  Instance wide;
  ASSERT_EQ(wide->ImportFromFile(DataFile("import_utf16.xml").c_str()), 0);
  EXPECT_EQ(DocumentText(wide.tk), "<cfg>\xC3\xA9\xE2\x82\xAC</cfg>");
}

// With handles open the file still replaces the tree that whole-document
// export writes, while the handles keep the old elements.
TEST(ImportFromFile, OpenHandlesSplitTheInstance) {
  Instance tk;
  ASSERT_EQ(tk->CreateEmpty("old"), 0);
  MessageLog log;
  EXPECT_EQ(tk->ImportFromFile(DataFile("import_sample.xml").c_str()), -1);
  EXPECT_EQ(log.joined(), "ImportFromFile:  uncorrect usage\n");
  EXPECT_EQ(tk->GetHandleCount(), 1u);
  const std::string loaded = DocumentText(tk.tk);
  EXPECT_EQ(loaded.rfind("<cfg ", 0), 0u) << loaded;
  EXPECT_EQ(SubTreeText(tk.tk, 100), "<old/>");
  unsigned made = 0;
  ASSERT_EQ(tk->CreateElement(100, "a", &made), 0);
  EXPECT_EQ(SubTreeText(tk.tk, 100), "<old><a/></old>");
  EXPECT_EQ(DocumentText(tk.tk), loaded);

  tk->CloseAllElements();
  EXPECT_EQ(tk->GetHandleCount(), 0u);
  EXPECT_EQ(DocumentText(tk.tk), loaded);
  EXPECT_EQ(tk->ImportFromStream(kGoodText, 1, "again"), 0);
  EXPECT_EQ(DocumentText(tk.tk), kGoodText);
}

TEST(ImportFromStream, SizeIsAGate) {
  for (const int size : {0, -1, INT_MIN}) {
    SCOPED_TRACE(size);
    Instance tk;
    MessageLog log;
    EXPECT_EQ(tk->ImportFromStream(kGoodText, size, "label"), -105);
    EXPECT_EQ(log.joined(), "");
    EXPECT_EQ(tk->GetHandleCount(), 0u);
  }
  // Any size of 1 or more reads the whole text up to its NUL.
  Instance tk;
  EXPECT_EQ(tk->ImportFromStream(kRichText, 1, nullptr), 0);
  EXPECT_EQ(tk->OpenElement("mixed"), 101u);
}

TEST(ImportFromStream, Failures) {
  const std::string utf16("\xFF\xFE<\0c\0f\0g\0/\0>\0", 14);
  struct Case {
    const char* text;
    const char* label;
  } const cases[] = {
      {"<cfg>\n<a></b>\n</cfg>", "syntax error"},
      {"<cfg><a", "truncated"},
      {"not xml at all", "not XML"},
      {"", "empty"},
      {nullptr, "null"},
      {"<?xml version='1.0' encoding='x-no-such-encoding'?><cfg/>", "unknown encoding"},
      {utf16.c_str(), "UTF-16 stops at its first zero byte"},
      {"<a>\xC3\x28</a>", "invalid UTF-8"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.label);
    Instance tk;
    MessageLog log;
    testing::internal::CaptureStderr();
    EXPECT_EQ(tk->ImportFromStream(c.text, 100, "label"), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(log.joined(), "ImportFromStream :  loadXML failed\n");
    EXPECT_EQ(tk->GetHandleCount(), 0u);
    EXPECT_EQ(tk->ImportFromStream(kGoodText, 1, nullptr), 0);
    EXPECT_EQ(DocumentText(tk.tk), kGoodText);
  }
}

TEST(ImportFromStream, RefusesOpenHandlesAndFollowsTheDeclaration) {
  Instance tk;
  ASSERT_EQ(tk->CreateEmpty("made"), 0);
  MessageLog log;
  EXPECT_EQ(tk->ImportFromStream(kGoodText, 1, "label"), -1);
  EXPECT_EQ(log.joined(), "ImportFromStream:  incorrect usage\n");
  EXPECT_EQ(DocumentText(tk.tk), "<made/>");
  EXPECT_EQ(tk->GetHandleCount(), 1u);

  tk->CloseAllElements();
  ASSERT_EQ(LoadText(tk.tk, "<?xml version='1.0' encoding='ISO-8859-1'?>\n<e a='\xE9'>caf\xE9</e>"),
            0);
  EXPECT_EQ(DocumentText(tk.tk), "<e a=\"\xC3\xA9\">caf\xC3\xA9</e>");
}

// What the export writes reads back to the same document.
TEST(ImportRoundTrip, ExportedTextAndFilesReadBack) {
  Instance tk;
  ASSERT_EQ(LoadText(tk.tk, kRichText), 0);
  const std::string first = DocumentText(tk.tk);
  tk->CloseAllElements();
  ASSERT_EQ(LoadText(tk.tk, tk::test::kDeclaration + first), 0);
  EXPECT_EQ(DocumentText(tk.tk), first);

  TempDir dir;
  const std::string one = dir.path("one.xml"), two = dir.path("two.xml");
  ASSERT_EQ(tk->ExportToFile(one.c_str()), 0);
  tk->CloseAllElements();
  ASSERT_EQ(tk->ImportFromFile(one.c_str()), 0);
  ASSERT_EQ(tk->ExportToFile(two.c_str()), 0);
  EXPECT_EQ(ReadFile(two), ReadFile(one));
  EXPECT_EQ(DocumentText(tk.tk), first);
}

}  // namespace
