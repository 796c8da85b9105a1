#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <regex>
#include <string>

#include "support/test_support.h"
#include "support/xml_text.h"

namespace {

using tk::test::DocumentText;
using tk::test::Instance;
using tk::test::LoadText;
using tk::test::MessageLog;
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

// A name that is no readable local file never reaches the loader (no parse
// report, and a pipe or device can't block the call); a file too large to be
// a document is refused unread; a file that doesn't parse is reported on
// stderr. Either way the instance stays empty and usable.
TEST(ImportFromFile, Failures) {
  TempDir dir;
  ASSERT_EQ(mkfifo(dir.path("fifo").c_str(), 0600), 0);
  ASSERT_EQ(truncate((tk::test::WriteFile(dir.path("huge.xml"), "<r/>"), dir.path("huge.xml")).c_str(),
                     3LL << 30), 0);  // sparse: no disk used
  const std::string invalid = "ImportFromFile:  file name is invalid\n";
  const std::string unopened = "ImportFromFile:  file open failed\n";
  const std::string unloaded = "ImportFromFile : load failed\n";
  const std::string syntax = DataFile("import_syntax_error.xml");
  const struct { std::string name; int result; std::string message; } cases[] = {
      {"(null)", -101, invalid}, {"", -101, invalid}, {dir.root(), -101, unopened},
      {"/dev/null", -101, unopened}, {"http://example.invalid/a.xml", -101, unopened},
      {dir.path("fifo"), -101, unopened}, {dir.path("huge.xml"), -1, unloaded},
      {DataFile("import_unknown_encoding.xml"), -1, unloaded}, {syntax, -1, unloaded}};
  std::string report;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Instance tk;
    MessageLog log;
    testing::internal::CaptureStderr();
    EXPECT_EQ(tk->ImportFromFile(c.name == "(null)" ? nullptr : c.name.c_str()), c.result);
    report = testing::internal::GetCapturedStderr();
    EXPECT_EQ(log.joined(), c.message);
    EXPECT_EQ(report.empty(), c.result == -101) << report;
    EXPECT_EQ(LoadText(tk.tk, kGoodText), 0);  // nothing was left open
  }
  // The last report names the place and the file.
  const std::regex form("[^\\n]+\\n?Error on line 3, position [0-9]+ in \"" +
                        std::regex_replace(syntax, std::regex("[.^$|()\\[\\]{}*+?\\\\]"), "\\$&") +
                        "\"\\.\\n");
  EXPECT_TRUE(std::regex_match(report, form)) << report;
}

// The bytes are read in the encoding the declaration names, from a file as
// from text.
TEST(Import, FollowsTheDeclaredEncoding) {
  Instance tk;
  ASSERT_EQ(tk->ImportFromFile(DataFile("import_utf16.xml").c_str()), 0);
  EXPECT_EQ(tk->OpenElement(nullptr), 100u);
  EXPECT_EQ(DocumentText(tk.tk), "<cfg>\xC3\xA9\xE2\x82\xAC</cfg>");
  tk->CloseAllElements();
  ASSERT_EQ(LoadText(tk.tk, "<?xml version='1.0' encoding='ISO-8859-1'?>\n<e a='\xE9'>caf\xE9</e>"),
            0);
  EXPECT_EQ(DocumentText(tk.tk), "<e a=\"\xC3\xA9\">caf\xC3\xA9</e>");
}

// With handles open, text is refused outright; a file still replaces the tree
// that whole-document export writes, while the handles keep the old elements.
TEST(Import, RefusedWhileHandlesAreOpen) {
  Instance tk;
  ASSERT_EQ(tk->CreateEmpty("old"), 0);
  MessageLog log;
  EXPECT_EQ(tk->ImportFromStream(kGoodText, 1, "label"), -1);
  EXPECT_EQ(DocumentText(tk.tk), "<old/>");
  EXPECT_EQ(tk->ImportFromFile(DataFile("import_sample.xml").c_str()), -1);
  EXPECT_EQ(log.joined(), "ImportFromStream:  incorrect usage\nImportFromFile:  uncorrect usage\n");
  EXPECT_EQ(tk->GetHandleCount(), 1u);
  const std::string loaded = DocumentText(tk.tk);
  EXPECT_EQ(loaded.rfind("<cfg ", 0), 0u) << loaded;
  unsigned made = 0;
  ASSERT_EQ(tk->CreateElement(100, "a", &made), 0);
  EXPECT_EQ(SubTreeText(tk.tk, 100), "<old><a/></old>");
  tk->CloseAllElements();
  EXPECT_EQ(DocumentText(tk.tk), loaded);
}

// A size below 1 is refused before anything is read; any other size reads
// the text up to its NUL.
TEST(ImportFromStream, Failures) {
  const std::string loadFailed = "ImportFromStream :  loadXML failed\n";
  const std::string utf16("\xFF\xFE<\0c\0f\0g\0/\0>\0", 14);
  const struct { const char* text; int size; int result; std::string message; } cases[] = {
      {kGoodText, 0, -105, ""}, {kGoodText, INT_MIN, -105, ""},
      {"<cfg>\n<a></b>\n</cfg>", 100, -1, loadFailed}, {"", 1, -1, loadFailed},
      {nullptr, 1, -1, loadFailed}, {"<a>\xC3\x28</a>", 1, -1, loadFailed},
      {"<?xml version='1.0' encoding='x-no-such-encoding'?><cfg/>", 1, -1, loadFailed},
      {utf16.c_str(), 14, -1, loadFailed},  // stops at its first zero byte
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text == nullptr ? "(null)" : c.text);
    Instance tk;
    MessageLog log;
    testing::internal::CaptureStderr();
    EXPECT_EQ(tk->ImportFromStream(c.text, c.size, "label"), c.result);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(log.joined(), c.message);
    EXPECT_EQ(LoadText(tk.tk, kGoodText), 0);  // nothing was left open
  }
}

// What the export writes to a file reads back to the same document.
TEST(ImportRoundTrip, ExportedTextAndFilesReadBack) {
  Instance tk;
  ASSERT_EQ(LoadText(tk.tk, kRichText), 0);
  EXPECT_EQ(tk->OpenElement("mixed"), 101u);  // the whole text was read
  const std::string first = DocumentText(tk.tk);
  TempDir dir;
  const std::string one = dir.path("one.xml"), two = dir.path("two.xml");
  ASSERT_EQ(tk->ExportToFile(one.c_str()), 0);
  tk->CloseAllElements();
  ASSERT_EQ(tk->ImportFromFile(one.c_str()), 0);
  ASSERT_EQ(tk->ExportToFile(two.c_str()), 0);
  EXPECT_EQ(tk::test::ReadFile(two), tk::test::ReadFile(one));
  EXPECT_EQ(DocumentText(tk.tk), first);
}

}  // namespace
