// File faults around export: directories and places that can't be written,
// devices that refuse the write, targets cut short or left dangling behind
// the library's back. Each gives its code, and an existing target keeps its
// content wherever nothing could be written.
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <iterator>
#include <string>

#include "robustness/robustness_support.h"
#include "support/test_support.h"

namespace tk::test {
namespace {

constexpr const char* kDocument = "<config><net host=\"h\">text</net></config>";

// The open or the write fails: -111, with a message that names the file,
// for the document and for a subtree alike.
TEST(IoFaults, UnwritablePlacesGiveTheWriteCode) {
  Instance tk;
  MessageLog log;
  TempDir dir;
  ASSERT_EQ(tk->ImportFromStream(kDocument, 1, nullptr), 0);
  const unsigned net = tk->OpenElement("config/net");
  const std::string open = "Failed to open the file to export File name ";
  const std::string write = "Error!!! : Failed to Export the file, Name  ";
  struct Case {
    std::string path;
    std::string message;
  } const cases[] = {
      {dir.root(), open},
      {"/sys/tk-export.xml", open},  // read-only for every user, root included
      {"/proc/self/status", write},  // opens, refuses the text
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    log.clear();
    EXPECT_EQ(tk->ExportToFile(c.path.c_str()), -111);
    ASSERT_EQ(log.messages().size(), 1u) << log.joined();
    EXPECT_EQ(log.messages()[0].rfind(c.message + c.path, 0), 0u) << log.joined();
    EXPECT_EQ(tk->ExportSubTreeToFile(net, c.path.c_str()), -111);
  }
  if (geteuid() != 0) {  // root writes read-only files
    const std::string locked = dir.path("locked.xml");
    WriteFile(locked, "<old/>");
    ASSERT_EQ(chmod(locked.c_str(), 0444), 0);
    EXPECT_EQ(tk->ExportToFile(locked.c_str()), -111);
    EXPECT_EQ(ReadFile(locked), "<old/>");
  }
  EXPECT_EQ(ExportText(tk.tk), std::string(kDeclaration) + kDocument);
}

// A write that fails part way, or at the very last byte (a file-size limit
// stands for a full disk), gives -111 and leaves the previous file byte for
// byte, with nothing left beside it. One that succeeds keeps its mode and owner.
TEST(IoFaults, FailedWriteKeepsThePreviousFile) {
  Instance tk;
  MessageLog log;
  TempDir dir;
  std::string document = "<r>";
  for (int i = 0; i < 50; ++i) document += "<v>0123456789</v>";
  ASSERT_EQ(tk->ImportFromStream((document + "</r>").c_str(), 1, nullptr), 0);
  const std::string file = dir.path("out.xml");
  ASSERT_EQ(tk->ExportToFile(file.c_str()), 0);
  const std::string exported = ReadFile(file);
  const std::string old = "<old/>\r\n";
  WriteFile(file, old);
  ASSERT_EQ(chmod(file.c_str(), 0640), 0);
  const bool root = geteuid() == 0;
  ASSERT_TRUE(!root || chown(file.c_str(), 4321, 4321) == 0);
  auto entries = [&dir] {
    const std::filesystem::directory_iterator list(dir.root());
    return std::distance(begin(list), end(list));
  };

  std::signal(SIGXFSZ, SIG_IGN);  // a write past the limit fails with EFBIG
  rlimit saved{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
  for (const rlim_t limit : {exported.size() / 2, exported.size() - 1}) {
    SCOPED_TRACE(limit);
    log.clear();
    rlimit lowered = saved;
    lowered.rlim_cur = limit;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &lowered), 0);
    const int results[] = {tk->ExportToFile(file.c_str()),
                           tk->ExportSubTreeToFile(100, file.c_str())};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &saved), 0);
    EXPECT_EQ(results[0], -111);
    EXPECT_EQ(results[1], -111);
    EXPECT_EQ(ReadFile(file), old);
    EXPECT_EQ(entries(), 1);
    ASSERT_EQ(log.messages().size(), 2u) << log.joined();
    for (const std::string& m : log.messages()) {
      EXPECT_EQ(m.rfind("Error!!! : Failed to Export the file, Name  " + file, 0), 0u) << m;
    }
  }
  ASSERT_EQ(tk->ExportToFile(file.c_str()), 0);
  EXPECT_EQ(ReadFile(file), exported);
  struct stat after {};
  ASSERT_EQ(stat(file.c_str(), &after), 0);
  EXPECT_EQ(after.st_mode & 07777, 0640u);
  EXPECT_TRUE(!root || (after.st_uid == 4321 && after.st_gid == 4321));
  EXPECT_EQ(entries(), 1);
}

// A target shortened behind the library's back gets the whole text again
// from the start; through a link whose target was removed, a new file
// appears at the target.
TEST(IoFaults, ExportOverATruncatedFileAndADanglingLink) {
  Instance tk;
  TempDir dir;
  ASSERT_EQ(tk->ImportFromStream(kDocument, 1, nullptr), 0);
  const std::string file = dir.path("out.xml");
  ASSERT_EQ(tk->ExportToFile(file.c_str()), 0);
  const std::string first = ReadFile(file);
  ASSERT_EQ(truncate(file.c_str(), 7), 0);
  ASSERT_EQ(tk->ExportToFile(file.c_str()), 0);
  EXPECT_EQ(ReadFile(file), first);
  const std::string target = dir.path("target.xml");
  const std::string link = dir.path("link.xml");
  ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
  ASSERT_EQ(tk->ExportToFile(link.c_str()), 0);
  EXPECT_EQ(ReadFile(target), first);
  struct stat linkStat {};
  ASSERT_EQ(lstat(link.c_str(), &linkStat), 0);
  EXPECT_TRUE(S_ISLNK(linkStat.st_mode));
}

}  // namespace
}  // namespace tk::test
