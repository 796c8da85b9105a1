#include <gtest/gtest.h>

#include <string>

#include "support/recording_text.h"
#include "support/test_support.h"
#include "support/xml_text.h"

namespace tk {
namespace {

using test::Instance;
using test::MessageLog;
using test::TempDir;

const std::string kDecl = test::kDeclaration;

void Load(Instance& tk, const std::string& xml) { ASSERT_EQ(test::LoadText(tk.tk, xml), 0); }

// Only the element is written, behind the library's own declaration, through
// the client's clear() and append(); a character above U+FFFF becomes two
// 3-byte halves.
TEST(ExportToStream, TextForm) {
  Instance tk;
  Load(tk, "<?xml version=\"1.0\"?><!--x--><cfg a=\"1\"><v>\xC3\xA9\n\xF0\x9F\x98\x80</v></cfg>");
  test::RecordingText out("stale");
  const std::string expected =
      kDecl + "<cfg a=\"1\"><v>\xC3\xA9\n\xED\xA0\xBD\xED\xB8\x80</v></cfg>";
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(tk->ExportToStream(out), 0);
    EXPECT_EQ(out.written, expected);
    EXPECT_EQ(out.count("clear"), i + 1);
  }
}

TEST(ExportSubTreeToStream, AnyLiveHandle) {
  Instance tk;
  Load(tk, "<cfg><a><b>t</b></a>loose</cfg>");
  const unsigned a = tk->OpenElement("a");
  EXPECT_EQ(test::SubTreeText(tk.tk, a), "<a><b>t</b></a>");
  unsigned text = 0, nodeType = 0;
  ASSERT_EQ(tk->OpenElement(100, 1, &text, &nodeType), 0);
  EXPECT_EQ(test::SubTreeText(tk.tk, text), "loose");

  MessageLog log;
  ASSERT_EQ(tk->CloseElement(a), 0);
  for (unsigned handle : {0u, 99u, a, 103u, 0xFFFFFFFFu}) {
    outputstr kept("kept");
    EXPECT_EQ(tk->ExportSubTreeToStream(handle, kept), -102) << handle;
    EXPECT_STREQ(kept.text(), "kept");
  }
  EXPECT_TRUE(log.messages().empty()) << log.joined();
}

// The file holds the text form with every LF as CR LF, then CR CR LF. Long
// runs without a line feed and long stretches of nothing else make the file
// be written in several pieces.
TEST(ExportToFile, FileFormByteForByte) {
  std::string value = "x\ny\n";
  for (int i = 0; i < 300; ++i) {
    value += std::string(static_cast<size_t>(i * 97 % 1500), static_cast<char>('a' + i % 26));
    value += std::string(static_cast<size_t>(i % 7), '\n');
  }
  value += std::string(70000, '\n');
  Instance tk;
  Load(tk, "<cfg><v>" + value + "</v><w>\xC3\xA9</w></cfg>");
  TempDir dir;
  const std::string path = dir.path("out.xml");
  test::WriteFile(path, std::string(500000, 'z'));  // replaced, not added to
  outputstr text;
  ASSERT_EQ(tk->ExportToStream(text), 0);
  ASSERT_EQ(tk->ExportToFile(path.c_str()), 0);
  std::string expected;
  for (const char ch : std::string(text.text())) {
    expected += ch == '\n' ? "\r\n" : std::string(1, ch);
  }
  EXPECT_EQ(test::ReadFile(path), expected + "\r\r\n");

  ASSERT_EQ(tk->ExportSubTreeToFile(tk->OpenElement("w"), path.c_str()), 0);
  EXPECT_EQ(test::ReadFile(path), kDecl.substr(0, 39) + "\r\n<w>\xC3\xA9</w>\r\r\n");
}

// Each failure names its cause; with nothing to write no file is created or
// touched, and a file that can't be opened or written gives -111.
TEST(ExportToFile, Failures) {
  TempDir dir;
  const std::string existing = dir.path("existing.xml"), nowhere = dir.path("no/such/dir.xml");
  test::WriteFile(existing, "old bytes\r\n");
  Instance empty, tk;
  ASSERT_EQ(tk->CreateEmpty("cfg"), 0);
  const std::string nothing = "ExportToFile : ExportToStream failed to export file name ";
  const std::string zero = "ERROR!, The file size becomes 0, So it is not over written, Filename: ";
  const std::string full = "Error!!! : Failed to Export the file, Name  /dev/full , Data :  ";
  const unsigned kWhole = 0;  // ExportToFile rather than a subtree
  const struct { ITreeKeeper* on; unsigned handle; std::string file; int result; std::string log; }
      cases[] = {
          {empty.tk, kWhole, existing, -101,
           "ExportToStream : root NULL error\n" + nothing + existing + "\n"},
          {tk.tk, 0xFFFFFFFFu, existing, -101, zero + existing + "\n"},
          {tk.tk, kWhole, "(null)", -101, "ExportToFile:  file name is invalid\n"},
          {tk.tk, 100, "", -101, "ExportSubTreeToFile:  file name is invalid\n"},
          {tk.tk, kWhole, nowhere, -111,
           "Failed to open the file to export File name " + nowhere + "\n"},
          // The text fits the stream's buffer; the failure shows only when it is flushed.
          {tk.tk, 100, "/dev/full", -111, full + kDecl + "<cfg/>\n"},
      };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.log);
    MessageLog log;
    const char* file = c.file == "(null)" ? nullptr : c.file.c_str();
    EXPECT_EQ(c.handle == kWhole ? c.on->ExportToFile(file)
                                 : c.on->ExportSubTreeToFile(c.handle, file),
              c.result);
    EXPECT_EQ(log.joined(), c.log);
  }
  EXPECT_EQ(test::ReadFile(existing), "old bytes\r\n");
  EXPECT_FALSE(test::FileExists(dir.path("no")));
}

}  // namespace
}  // namespace tk
