// Every failure ends with its status and one line on standard error, and
// leaves every input file as it was.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include <gtest/gtest.h>

#include "tool_runner.h"

namespace tkcli::test {
namespace {

struct FailureCase {
  std::vector<std::string> args;  // {NAME} is NAME in the test's directory
  std::string input;              // standard input
  int status;
  std::string message;            // a part of the line on standard error
};

const char* const kInputs[] = {"config.xml", "broken.xml", "rename.xsl", "broken.xsl",
                               "failing.xsl"};

std::string Placed(const Scratch& dir, std::string arg) {
  const size_t open = arg.find('{');
  if (open == std::string::npos) return arg;
  const size_t close = arg.find('}', open);
  const std::string name = arg.substr(open + 1, close - open - 1);
  return arg.replace(open, close - open + 1, name == "dir" ? dir.root() : dir.path(name));
}

void ExpectFailure(const FailureCase& c) {
  Scratch dir;
  for (const char* input : kInputs) dir.Copy(input);
  const auto before = dir.Snapshot();
  std::vector<std::string> args;
  for (const std::string& arg : c.args) args.push_back(Placed(dir, arg));

  const ToolRun run = RunTool(args, c.input, dir.root());
  const std::string shown = testing::PrintToString(c.args);
  EXPECT_EQ(run.status, c.status) << shown << "\n" << run.err;
  EXPECT_EQ(run.err.rfind("treekeeper: ", 0), 0u) << shown << "\n" << run.err;
  EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << shown << "\n" << run.err;
  EXPECT_NE(run.err.find(c.message), std::string::npos) << shown << "\n" << run.err;
  EXPECT_EQ(dir.Snapshot(), before) << shown;
}

TEST(Failures, InputThatCantBeRead) {
  const std::string garbage("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\xff\xfe", 18);
  const std::vector<FailureCase> cases = {
      {{"cat", "{missing.xml}"}, "", 3, "missing.xml: cannot read: No such file or directory"},
      {{"set", "{missing.xml}", "a", "1"}, "", 3, "missing.xml: cannot read"},
      {{"get", "{dir}", "a"}, "", 3, ": cannot read: Is a directory"},
      {{"cat", "{broken.xml}"}, "", 3, "broken.xml:3:"},
      {{"set", "{broken.xml}", "a", "1"}, "", 3, "broken.xml:3:"},
      {{"ls", "-"}, garbage, 3, "<stdin>:1:"},
      {{"cat", "-"}, "", 3, "<stdin>"},
      {{"get", "-", "a"}, "<a><b></a>", 3, "not well-formed XML"},
      {{"xslt", "{config.xml}", "{missing.xsl}"}, "", 3, "missing.xsl: cannot read"},
      {{"xslt", "{config.xml}", "{broken.xsl}"}, "", 3, "broken.xsl:4:"},
  };
  for (const FailureCase& c : cases) ExpectFailure(c);
}

TEST(Failures, InputLargerThanTheLibraryImports) {
  // A regular file is refused by its size before a byte is read; a device
  // is read no further than the limit.
  Scratch dir;
  const std::string sparse = dir.path("huge.xml");
  WriteBytes(sparse, "<a>");
  ASSERT_EQ(truncate(sparse.c_str(), 3LL << 30), 0);
  const auto start = std::chrono::steady_clock::now();
  const ToolRun file = RunTool({"cat", sparse});
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  const ToolRun device = RunTool({"get", "/dev/zero", "a"});
  for (const ToolRun& run : {file, device}) {
    EXPECT_EQ(run.status, 3);
    EXPECT_NE(run.err.find(": too large: a document may have at most 2147483647 bytes"),
              std::string::npos)
        << run.err;
  }
}

TEST(Failures, PathsAndAttributesThatAreNotThere) {
  const std::vector<FailureCase> cases = {
      {{"get", "{config.xml}", "net/nothing"}, "", 1, "config.xml: no element at 'net/nothing'"},
      {{"cat", "{config.xml}", "nothing"}, "", 1, "no element at 'nothing'"},
      {{"ls", "{config.xml}", "net/host/x"}, "", 1, "no element at 'net/host/x'"},
      {{"rm", "{config.xml}", "net/nothing"}, "", 1, "no element at 'net/nothing'"},
      {{"get", "{config.xml}", "net", "-a", "nope"}, "", 1, "no attribute 'nope' of 'net'"},
      {{"rm", "{config.xml}", "net", "-a", "nope"}, "", 1, "no attribute 'nope' of 'net'"},
      {{"batch", "{config.xml}"}, "set a 1\nget nothing\n", 1, "batch line 2: "},
      {{"get", "{config.xml}", "net/port[3]"}, "", 1, "no element at 'net/port[3]'"},
      {{"set", "{config.xml}", "net/port[@id='x']/a", "1"}, "", 1,
       "no element at 'net/port[@id='x']'"},
      {{"rm", "{config.xml}", "net/host[last()]/x"}, "", 1, "no element at"},
      {{"batch", "{config.xml}"}, "set a 1\nrm empty[2]\n", 1, "batch line 2: "},
  };
  for (const FailureCase& c : cases) ExpectFailure(c);
}

TEST(Failures, UsageErrors) {
  const std::vector<FailureCase> cases = {
      {{}, "", 2, "required"},
      {{"frobnicate", "{config.xml}"}, "", 2, "'frobnicate' is not a treekeeper command"},
      {{"get", "{config.xml}", "net", "--frob"}, "", 2, "--frob"},
      {{"get", "{config.xml}"}, "", 2, "PATH is required"},
      {{"get", "{config.xml}", "a", "--number", "--hex"}, "", 2, "xcludes"},
      {{"get", "{config.xml}", "a", "--cdata", "-a", "x"}, "", 2, "xcludes"},
      {{"set", "{config.xml}", "a", "1", "b"}, "", 2, "'b' has no value"},
      {{"set", "{config.xml}", "a", "--number", "12x"}, "", 2, "'12x' is not a number"},
      {{"set", "{config.xml}", "a", "--number", "4294967296"}, "", 2, "is not a number"},
      {{"set", "{config.xml}", "a", "--hex", "abc"}, "", 2, "not hexadecimal"},
      {{"set", "{config.xml}", "a", "caf\xE9"}, "", 2,
       "cannot set 'a': not valid text in the locale's character set"},
      {{"set", "{config.xml}", "a", "x\x01"}, "", 2,
       "cannot set 'a': the value holds U+0001, a character XML can't hold"},
      {{"set", "{config.xml}", "a", "-a", "b", "\xEF\xBF\xBE"}, "", 2,
       "attribute 'b' of 'a': the value holds U+FFFE"},
      {{"set", "{config.xml}", "/a", "1"}, "", 2, "empty path component"},
      {{"set", "{config.xml}", "net/a b", "1"}, "", 2, "not a valid element name"},
      {{"set", "{config.xml}", std::string(64, 'x'), "1"}, "", 2, "longer than 63 bytes"},
      {{"rm", "{config.xml}", "cfg"}, "", 2, "the root element can't be removed"},
      {{"new", "1x"}, "", 2, "'1x' is not a valid element name"},
      {{"get", "{config.xml}", "user", "--codepage", "12345"}, "", 2, "code page 12345"},
      {{"batch", "-"}, "", 2, "FILE can't be -"},
      {{"batch", "{config.xml}"}, "set a 1\nfrob\n", 2, "batch line 2: 'frob' is not a batch"},
      {{"batch", "{config.xml}"}, "set a 'open\n", 2, "batch line 1: the ' quote is not closed"},
      {{"batch", "{config.xml}"}, "get a -o x\n", 2, "batch line 1: "},
      {{"get", "{config.xml}", "net/port[0]"}, "", 2, "'port[0]' is no step"},
      {{"set", "{config.xml}", "net[x]/port", "1"}, "", 2, "'net[x]' is no step"},
      {{"rm", "{config.xml}", "net/port[@id=1]"}, "", 2, "'port[@id=1]' is no step"},
      {{"batch", "{config.xml}"}, "get 'net[1'\n", 2, "batch line 1: 'net[1' is no step"},
      {{"cat", "{config.xml}", "--keep", "--pretty"}, "", 2, "xcludes"},
  };
  for (const FailureCase& c : cases) ExpectFailure(c);
}

TEST(Failures, OutputThatCantBeWritten) {
  const std::vector<FailureCase> cases = {
      {{"set", "{config.xml}", "a", "1", "-o", "{no/such/dir/out.xml}"}, "", 4,
       "out.xml: cannot write in the directory '"},
      {{"set", "{config.xml}", "a", "1", "-o", "/proc/treekeeper.xml"}, "", 4,
       "/proc/treekeeper.xml: cannot write"},
      {{"new", "a", "-o", "{dir}"}, "", 4, "cannot write: Is a directory"},
      {{"batch", "{config.xml}", "-o", "{none/out.xml}"}, "set a 1\n", 4, "cannot write"},
  };
  for (const FailureCase& c : cases) ExpectFailure(c);
}

TEST(Failures, ReadOnlyDirectoryIsNamedAndKeepsTheFile) {
  // A writable file in a directory that takes no new file.
  const bool asOther = CanRunAsOthers();
  if (geteuid() == 0 && !asOther) GTEST_SKIP() << "permissions don't bind root";
  Scratch dir;
  const std::string file = dir.Copy("config.xml");
  chmod(file.c_str(), 0666);
  chmod(dir.root().c_str(), 0555);
  const std::vector<std::string> args = {"set", file, "a", "1"};
  const ToolRun run = asOther ? RunToolAs(65534, 65534, 65534, args) : RunTool(args);
  chmod(dir.root().c_str(), 0755);
  EXPECT_EQ(run.status, 4);
  EXPECT_NE(run.err.find("config.xml: cannot write in the directory '" + dir.root() +
                         "': Permission denied"),
            std::string::npos)
      << run.err;
  EXPECT_EQ(ReadBytes(file), ReadBytes(DataPath("config.xml")));
}

TEST(Failures, EditTheFileCantShowIsNotWritten) {
  // The element comes from an entity: the file's text has no place for it.
  const std::string made = "<!DOCTYPE r [<!ENTITY e '<b>x</b>'>]><r>&e;</r>";
  const std::vector<FailureCase> cases = {
      {{"set", "-", "b", "y", "-o", "{out.xml}"}, made, 5, "'b' can't be found in the file's own "
                                                           "text; nothing was written (--rewrite"},
      {{"cat", "-", "b", "--keep"}, made, 5, "'b' can't be found in the file's own text"},
  };
  for (const FailureCase& c : cases) ExpectFailure(c);
}

TEST(Failures, StylesheetThatFails) {
  const std::string head =
      "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
      "<xsl:template match='/'>";
  const std::string tail = "</xsl:template></xsl:stylesheet>";
  const std::vector<FailureCase> cases = {
      // The engine's reason, and the text of the message that stopped it.
      {{"xslt", "{config.xml}", "{failing.xsl}"}, "", 5,
       "failing.xsl: the transformation failed: no hosts to list\n"},
      {{"xslt", "{config.xml}", "-"}, head + "<a><xsl:value-of select='1 +'/></a>" + tail, 5,
       "could not compile select expression '1 +'"},
      {{"xslt", "-", "-"}, "", 2, "can't both be standard input"},
      {{"xslt", "{config.xml}", "{config.xml}"}, "", 5,
       "config.xml: not a stylesheet: the root element <cfg> is no xsl:stylesheet"},
      {{"xslt", "{config.xml}", "-"}, head + "<a/><b/>" + tail, 5,
       "<stdin>: the result is not one element but 2 elements (--fragment"},
      {{"xslt", "{config.xml}", "-"}, head + "<a/>text" + tail, 5,
       "<stdin>: the result is not one element but 1 element and 1 text"},
  };
  for (const FailureCase& c : cases) ExpectFailure(c);
}

}  // namespace
}  // namespace tkcli::test
