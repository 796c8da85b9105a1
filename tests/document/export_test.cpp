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
    EXPECT_EQ(out.text(), expected);
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

// With nothing to write no file is created or touched; each operation says why.
TEST(ExportToFile, NothingIsTouchedWhenThereIsNothingToWrite) {
  TempDir dir;
  const std::string existing = dir.path("existing.xml");
  const std::string missing = dir.path("missing.xml");
  test::WriteFile(existing, "old bytes\r\n");
  Instance tk;
  MessageLog log;
  EXPECT_EQ(tk->ExportToFile(missing.c_str()), -101);
  EXPECT_EQ(log.joined(), "ExportToStream : root NULL error\nExportToFile : ExportToStream "
                          "failed to export file name " + missing + "\n");
  ASSERT_EQ(tk->CreateEmpty("cfg"), 0);
  log.clear();
  EXPECT_EQ(tk->ExportSubTreeToFile(0xFFFFFFFFu, existing.c_str()), -101);
  EXPECT_EQ(log.joined(), "ERROR!, The file size becomes 0, So it is not over written, Filename: " +
                              existing + "\n");
  log.clear();
  for (const char* name : {static_cast<const char*>(nullptr), ""}) {
    EXPECT_EQ(tk->ExportToFile(name), -101);
    EXPECT_EQ(tk->ExportSubTreeToFile(100, name), -101);
  }
  const std::string invalid =
      "ExportToFile:  file name is invalid\nExportSubTreeToFile:  file name is invalid\n";
  EXPECT_EQ(log.joined(), invalid + invalid);
  EXPECT_EQ(test::ReadFile(existing), "old bytes\r\n");
  EXPECT_FALSE(test::FileExists(missing));
}

TEST(ExportToFile, OpenAndWriteFailures) {
  Instance tk;
  ASSERT_EQ(tk->CreateEmpty("cfg"), 0);
  TempDir dir;
  MessageLog log;
  const std::string nowhere = dir.path("no/such/dir.xml");
  EXPECT_EQ(tk->ExportToFile(nowhere.c_str()), -111);
  EXPECT_EQ(log.joined(), "Failed to open the file to export File name " + nowhere + "\n");

  // The text fits the stream's buffer; the failure shows only when it is flushed.
  if (!test::FileExists("/dev/full")) GTEST_SKIP() << "no /dev/full";
  log.clear();
  EXPECT_EQ(tk->ExportSubTreeToFile(100, "/dev/full"), -111);
  EXPECT_EQ(log.joined(), "Error!!! : Failed to Export the file, Name  /dev/full , Data :  " +
                              kDecl + "<cfg/>\n");
}

}  // namespace
}  // namespace tk
