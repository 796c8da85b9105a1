// set, rm and new: what they write, and where.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include <gtest/gtest.h>

#include "tool_runner.h"

namespace tkcli::test {
namespace {

mode_t Mode(const std::string& path) {
  struct stat info {};
  stat(path.c_str(), &info);
  return info.st_mode & 07777;
}

TEST(WriteCommands, SetEditsInPlaceKeepingPermissions) {
  Scratch dir;
  const std::string file = dir.Copy("config.xml");
  chmod(file.c_str(), 0640);
  // Several pairs in one call; missing elements on the way are made, the
  // root's name may lead a path.
  const ToolRun run = RunTool({"set", file, "net/host", "new.example", "cfg/user/email",
                           "zoe@example.org", "log/level", "3"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out + run.err, "");
  EXPECT_EQ(ReadBytes(file), ReadBytes(DataPath("set_pairs.out")));
  EXPECT_EQ(Mode(file), 0640u);
  EXPECT_EQ(dir.Snapshot().size(), 1u) << "no temporary file stays behind";
}

TEST(WriteCommands, EditThroughASymbolicLinkChangesItsTarget) {
  Scratch dir;
  const std::string file = dir.Copy("config.xml");
  const std::string link = dir.path("link.xml");
  ASSERT_EQ(symlink(file.c_str(), link.c_str()), 0);
  EXPECT_EQ(RunTool({"set", link, "net/host", "linked"}).status, 0);
  struct stat info {};
  ASSERT_EQ(lstat(link.c_str(), &info), 0);
  EXPECT_TRUE(S_ISLNK(info.st_mode));
  EXPECT_EQ(RunTool({"get", file, "net/host"}).out, "linked\n");

  // Onto a link whose file doesn't exist yet, -o makes that file (relative
  // to the link's directory) and keeps the link.
  ASSERT_EQ(mkdir(dir.path("sub").c_str(), 0755), 0);
  const std::string dangling = dir.path("sub/dangling.xml");
  ASSERT_EQ(symlink("made.xml", dangling.c_str()), 0);
  EXPECT_EQ(RunTool({"set", file, "y", "2", "-o", dangling}).status, 0);
  ASSERT_EQ(lstat(dangling.c_str(), &info), 0);
  EXPECT_TRUE(S_ISLNK(info.st_mode));
  EXPECT_EQ(RunTool({"get", dir.path("sub/made.xml"), "y"}).out, "2\n");
}

TEST(WriteCommands, InPlaceSaveKeepsOwnerAndGroupWherePermitted) {
  if (!CanRunAsOthers()) GTEST_SKIP() << "files of other users need root";
  // The file is user 65532's, in group 65533. Root keeps both; user 65534,
  // a member of group 65533, may keep the group only.
  struct Case {
    bool asRoot;
    unsigned uid;
    unsigned gid;
  };
  for (const Case& c : {Case{true, 65532, 65533}, Case{false, 65534, 65533}}) {
    Scratch dir;
    chmod(dir.root().c_str(), 0777);
    const std::string file = dir.Copy("config.xml");
    ASSERT_EQ(chown(file.c_str(), 65532, 65533), 0);
    chmod(file.c_str(), 0666);
    const std::vector<std::string> args = {"set", file, "a", "1"};
    const ToolRun run = c.asRoot ? RunTool(args) : RunToolAs(65534, 65534, 65533, args);
    EXPECT_EQ(run.status, 0) << run.err;
    struct stat info {};
    ASSERT_EQ(stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_uid, c.uid);
    EXPECT_EQ(info.st_gid, c.gid);
    EXPECT_EQ(info.st_mode & 07777, 0666u);
  }
}

TEST(WriteCommands, ValuesReadBackInTheFormTheyWereWritten) {
  struct Case {
    std::vector<std::string> set;  // options after "set FILE"
    std::vector<std::string> get;  // options after "get FILE"
    std::string expected;
  };
  const std::vector<Case> cases = {
      {{"net/host", "a < b & \"c\""}, {"net/host"}, "a < b & \"c\"\n"},
      {{"net/host", ""}, {"net/host"}, "\n"},
      {{"new/leaf", "Grüße"}, {"cfg/new/leaf"}, "Grüße\n"},
      {{"net", "-a", "mode", "single"}, {"net", "-a", "mode"}, "single\n"},
      {{"a/b", "-a", "x", "1"}, {"a/b", "-a", "x"}, "1\n"},
      {{"net/port", "--number", "0042"}, {"net/port"}, "42\n"},
      {{"count", "--number", "4294967295"}, {"count", "--number"}, "4294967295\n"},
      {{"user", "-a", "id", "--number", "7"}, {"user", "-a", "id", "--number"}, "7\n"},
      {{"blob", "--hex", "00FFa0"}, {"blob"}, "00ffa0\n"},
      {{"blob", "--hex", "00FFa0"}, {"blob", "--hex"}, "00ffa0\n"},
      {{"user", "-a", "tag", "--hex", ""}, {"user", "-a", "tag"}, "\n"},
      {{"code", "--cdata", "x < y"}, {"code", "--cdata"}, "x < y\n"},
      {{"--", "neg", "-5"}, {"neg"}, "-5\n"},
  };
  for (const Case& c : cases) {
    Scratch dir;
    const std::string file = dir.Copy("config.xml");
    std::vector<std::string> set = {"set", file};
    set.insert(set.end(), c.set.begin(), c.set.end());
    std::vector<std::string> get = {"get", file};
    get.insert(get.end(), c.get.begin(), c.get.end());
    const ToolRun written = RunTool(set);
    EXPECT_EQ(written.status, 0) << testing::PrintToString(c.set) << written.err;
    const ToolRun read = RunTool(get);
    EXPECT_EQ(read.out, c.expected) << testing::PrintToString(c.set) << read.err;
  }
}

TEST(WriteCommands, CharactersAboveU10000AreWrittenAsFourBytes) {
  // U+1F600 in an attribute as four bytes, and in text as the two 3-byte
  // halves the library's export writes: both forms are read.
  const std::string smile = "\xF0\x9F\x98\x80";
  Scratch dir;
  const std::string file = dir.path("e.xml");
  WriteBytes(file, "<cfg a=\"" + smile + "\"><motd>Hi \xED\xA0\xBD\xED\xB8\x80</motd></cfg>");
  const std::string sheet = dir.path("copy.xsl");
  WriteBytes(sheet,
             "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
             "<xsl:template match='/'><xsl:copy-of select='*'/></xsl:template></xsl:stylesheet>");
  const std::string expected = "<cfg a=\"" + smile + "\"><motd>Hi " + smile + "</motd>";
  const std::vector<std::vector<std::string>> cases = {
      {"cat", file}, {"cat", file, "--crlf"}, {"xslt", file, sheet},
      {"set", file, "port", "81", "--rewrite"}};
  for (const auto& args : cases) {
    const ToolRun run = RunTool(args);
    const std::string written = args[0] == "set" ? ReadBytes(file) : run.out;
    EXPECT_EQ(run.status, 0) << args[0] << run.err;
    EXPECT_NE(written.find(expected), std::string::npos) << args[0] << ": " << written;
  }
}

TEST(WriteCommands, NamesLongerThanALibraryPathComponentAreReached) {
  // 40 x U+00E9 is 80 bytes and 22 x U+4E2D 66: past the 63 bytes of a
  // library path component.
  std::string latin;
  std::string cjk;
  for (int i = 0; i < 40; ++i) latin += "\xC3\xA9";
  for (int i = 0; i < 22; ++i) cjk += "\xE4\xB8\xAD";
  Scratch dir;
  const std::string file = dir.path("long.xml");
  WriteBytes(file, "<r><" + latin + ">v<x/></" + latin + "><" + cjk + ">w</" + cjk + "><" + latin +
                       ">2nd</" + latin + "></r>");
  const std::vector<std::pair<std::vector<std::string>, std::string>> steps = {
      {{"get", file, latin}, "v\n"},
      {{"set", file, latin + "/x", "5", "r/" + cjk, "6"}, ""},
      {{"get", file, latin + "/x"}, "5\n"},
      {{"get", file, cjk}, "6\n"},
      {{"rm", file, latin}, ""},
      {{"get", file, latin}, "2nd\n"},
      {{"rm", file, "r/" + cjk}, ""},
      {{"ls", file}, "0 element " + latin + "\n"},
  };
  for (const auto& [args, expected] : steps) {
    const ToolRun run = RunTool(args);
    EXPECT_EQ(run.status, 0) << args[0] << " " << args[2] << "\n" << run.err;
    EXPECT_EQ(run.out, expected) << args[0] << " " << args[2];
  }
}

TEST(WriteCommands, ValuesAreTypedInTheLocalesCharacterSet) {
  // A Latin-1 locale, made for the test where the system has the tools.
  Scratch dir;
  const std::string locales = dir.path("locales");
  const std::string make = "mkdir " + locales + " && localedef -i en_US -f ISO-8859-1 " +
                           locales + "/en_US.ISO-8859-1 >/dev/null 2>&1";
  if (std::system(make.c_str()) != 0) GTEST_SKIP() << "no Latin-1 locale can be made";
  const std::string file = dir.path("u.xml");
  WriteBytes(file, "<r/>");
  // glibc keeps the search path that LOCPATH gives to the end of the process,
  // where a leak checker would count it against the tool.
  const char* asan = std::getenv("ASAN_OPTIONS");
  const std::string noLeakCheck =
      "ASAN_OPTIONS=" + std::string(asan ? asan : "") + ":detect_leaks=0";
  const ToolRun run = RunTool({"set", file, "x", "-a", "n\xE9", "caf\xE9"}, "", "",
                              {"LOCPATH=" + locales, "LC_ALL=en_US.ISO-8859-1", noLeakCheck});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(ReadBytes(file), "<r><x n\xC3\xA9=\"caf\xC3\xA9\"/></r>");
}

TEST(WriteCommands, OutputGoesWhereAsked) {
  Scratch dir;
  const std::string file = dir.Copy("config.xml");
  const std::string original = ReadBytes(file);

  const ToolRun toStdout = RunTool({"set", file, "net/host", "h", "-o", "-"});
  EXPECT_EQ(toStdout.status, 0);
  EXPECT_NE(toStdout.out.find("<host>h</host>"), std::string::npos) << toStdout.out;

  const std::string copy = dir.path("copy.xml");
  EXPECT_EQ(RunTool({"rm", file, "net/port", "--output", copy}).status, 0);
  EXPECT_EQ(RunTool({"ls", copy, "net"}).out,
            "0 element host\n1 element key\n2 element port\n");
  EXPECT_EQ(RunTool({"get", copy, "net/port"}).out, "9090\n");

  // From standard input, without -o, the result goes to standard output.
  const ToolRun piped = RunTool({"set", "-", "net/host", "p"}, original);
  EXPECT_EQ(piped.status, 0);
  EXPECT_NE(piped.out.find("<host>p</host>"), std::string::npos);

  EXPECT_EQ(ReadBytes(file), original);
}

TEST(WriteCommands, RemoveElementsAndAttributes) {
  Scratch dir;
  const std::string file = dir.Copy("config.xml");
  EXPECT_EQ(RunTool({"rm", file, "user", "-a", "tag"}).status, 0);
  EXPECT_EQ(RunTool({"rm", file, "cfg/script"}).status, 0);
  EXPECT_EQ(RunTool({"ls", "-a", file}).out,
            "0 element net mode=\"dual\"\n1 comment\n2 element user name=\"Zoë\" id=\"42\"\n"
            "3 pi render\n4 element empty\n");
}

TEST(WriteCommands, NewMakesAnEmptyDocument) {
  const std::string expected = "<?xml version='1.0' encoding='UTF-8' ?>\n<settings/>";
  EXPECT_EQ(RunTool({"new", "settings"}).out, expected);
  EXPECT_EQ(RunTool({"new", "settings", "--crlf"}).out,
            "<?xml version='1.0' encoding='UTF-8' ?>\r\n<settings/>\r\r\n");

  Scratch dir;
  const std::string file = dir.path("new.xml");
  EXPECT_EQ(RunTool({"new", "settings", "-o", file}).status, 0);
  EXPECT_EQ(ReadBytes(file), expected);
  const mode_t mask = umask(0);
  umask(mask);
  EXPECT_EQ(Mode(file), 0666u & ~mask);

  // The file form on disk, as the library writes files.
  EXPECT_EQ(RunTool({"set", file, "a", "1", "--crlf"}).status, 0);
  EXPECT_EQ(ReadBytes(file),
            "<?xml version='1.0' encoding='UTF-8' ?>\r\n<settings><a>1</a></settings>\r\r\n");
}

}  // namespace
}  // namespace tkcli::test
