// File faults around export and import: full devices, directories, places
// that can't be written, files that vanish or shrink between calls. Each
// gives its code, and an existing target keeps its content wherever nothing
// was produced to write.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "robustness/robustness_support.h"
#include "support/test_support.h"

namespace tk::test {
namespace {

constexpr const char* kDocument = "<config><net host=\"h\">text</net></config>";

bool Contains(const std::string& all, const std::string& part) {
  return all.find(part) != std::string::npos;
}

class IoFaults : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(tk->ImportFromStream(kDocument, 1, nullptr), 0);
    net = tk->OpenElement("config/net");
    ASSERT_NE(net, 0u);
  }
  Instance tk;
  MessageLog log;
  TempDir dir;
  unsigned net = 0;
};

// Places where the open or the write fails: the code is -111 and the message
// names the file, for the document and for a subtree alike.
TEST_F(IoFaults, UnwritablePlacesGiveTheWriteCode) {
  struct Case {
    std::string path;
    const char* message;
  };
  const Case cases[] = {
      {"/dev/full", "Error!!! : Failed to Export the file, Name  /dev/full , Data :  "},
      {dir.root(), "Failed to open the file to export File name "},
      {dir.path("missing/out.xml"), "Failed to open the file to export File name "},
      // Read-only for every user, root included.
      {"/sys/tk-export.xml", "Failed to open the file to export File name "},
      {"/proc/self/tk-export.xml", "Failed to open the file to export File name "},
      {"/proc/self/status", "Error!!! : Failed to Export the file, Name  /proc/self/status"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    log.clear();
    EXPECT_EQ(tk->ExportToFile(c.path.c_str()), -111);
    ASSERT_EQ(log.messages().size(), 1u) << log.joined();
    EXPECT_TRUE(Contains(log.messages()[0], c.message)) << log.joined();
    EXPECT_TRUE(Contains(log.messages()[0], c.path)) << log.joined();
    EXPECT_EQ(tk->ExportSubTreeToFile(net, c.path.c_str()), -111);
  }
  EXPECT_FALSE(FileExists(dir.path("missing")));
  // The instance is untouched by all that.
  EXPECT_EQ(ExportText(tk.tk), std::string(kDeclaration) + kDocument);
}

TEST_F(IoFaults, ReadOnlyFileKeepsItsContent) {
  if (geteuid() == 0) GTEST_SKIP() << "root writes read-only files; covered by /sys and /proc";
  const std::string file = dir.path("locked.xml");
  WriteFile(file, "<old/>");
  ASSERT_EQ(chmod(file.c_str(), 0444), 0);
  EXPECT_EQ(tk->ExportToFile(file.c_str()), -111);
  EXPECT_EQ(ReadFile(file), "<old/>");
  const std::string lockedDir = dir.path("locked");
  ASSERT_EQ(mkdir(lockedDir.c_str(), 0555), 0);
  EXPECT_EQ(tk->ExportToFile((lockedDir + "/out.xml").c_str()), -111);
  EXPECT_FALSE(FileExists(lockedDir + "/out.xml"));
}

// Nothing to write: an existing file keeps its bytes, a missing one stays
// missing, whatever the reason the text is empty.
TEST_F(IoFaults, ExportThatProducesNothingLeavesFilesAlone) {
  const std::string existing = dir.path("existing.xml");
  const std::string absent = dir.path("absent.xml");
  WriteFile(existing, "<keep>me</keep>");
  ASSERT_EQ(tk->CloseElement(net), 0);
  EXPECT_EQ(tk->ExportSubTreeToFile(net, existing.c_str()), -101);        // closed handle
  EXPECT_EQ(tk->ExportSubTreeToFile(0xFFFFFFFFu, absent.c_str()), -101);  // out of range
  Instance created;
  ASSERT_EQ(created->CreateEmpty("gone"), 0);
  created->CloseAllElements();  // a created root dies with its handle
  EXPECT_EQ(created->ExportToFile(existing.c_str()), -101);
  EXPECT_EQ(created->ExportToFile(absent.c_str()), -101);
  EXPECT_EQ(ReadFile(existing), "<keep>me</keep>");
  EXPECT_FALSE(FileExists(absent));
}

TEST_F(IoFaults, ImportOfAFileThatVanishedOrShrank) {
  const std::string file = dir.path("doc.xml");
  ASSERT_EQ(tk->ExportToFile(file.c_str()), 0);
  tk->CloseAllElements();
  ASSERT_EQ(tk->ImportFromFile(file.c_str()), 0);
  tk->CloseAllElements();

  std::filesystem::remove(file);
  log.clear();
  EXPECT_EQ(tk->ImportFromFile(file.c_str()), -101);
  EXPECT_EQ(log.joined(), "ImportFromFile:  file open failed\n");

  // Cut in the middle of an element, and cut to nothing: the parse fails.
  const std::string whole = std::string(kDeclaration) + kDocument;
  for (const size_t keep : {whole.size() / 2, size_t{0}}) {
    SCOPED_TRACE(keep);
    WriteFile(file, whole.substr(0, keep));
    log.clear();
    EXPECT_EQ(tk->ImportFromFile(file.c_str()), -1);
    EXPECT_EQ(log.joined(), "ImportFromFile : load failed\n");
    EXPECT_EQ(tk->GetHandleCount(), 0u);
  }
  // The instance still holds the last good tree, and takes a new one.
  EXPECT_EQ(ExportText(tk.tk), whole);
  WriteFile(file, whole);
  EXPECT_EQ(tk->ImportFromFile(file.c_str()), 0);
}

// A file shortened or replaced behind the library's back between two
// exports: the next export writes the whole text again from the start.
TEST_F(IoFaults, ExportOverAFileThatWasTruncated) {
  const std::string file = dir.path("out.xml");
  ASSERT_EQ(tk->ExportToFile(file.c_str()), 0);
  const std::string first = ReadFile(file);
  ASSERT_GT(first.size(), 20u);
  ASSERT_EQ(truncate(file.c_str(), 7), 0);
  ASSERT_EQ(tk->ExportToFile(file.c_str()), 0);
  EXPECT_EQ(ReadFile(file), first);
  // A longer file is cut to the new text, with no tail of the old one.
  WriteFile(file, first + std::string(4096, 'x'));
  ASSERT_EQ(tk->ExportToFile(file.c_str()), 0);
  EXPECT_EQ(ReadFile(file), first);
  // Through a link whose target was removed: a new file at the target.
  const std::string target = dir.path("target.xml");
  const std::string link = dir.path("link.xml");
  ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
  ASSERT_EQ(tk->ExportToFile(link.c_str()), 0);
  EXPECT_EQ(ReadFile(target), first);
}

}  // namespace
}  // namespace tk::test
