// batch and xslt: many steps in one load and save, and transformations.
#include <gtest/gtest.h>

#include "tool_runner.h"

namespace tkcli::test {
namespace {

TEST(Batch, AppliesEveryLineAndSavesOnce) {
  Scratch dir;
  const std::string file = dir.Copy("config.xml");
  const std::string lines =
      "# quoting works as in a shell\n"
      "set net/host mirror.example  net/mirror \"a b\"\n"
      "set user -a note 'it said \"hi\"'\n"
      "\n"
      "get net/mirror\n"
      "rm net/key\n"
      "ls net\n"
      "get user -a note   # a comment after the words\n"
      "set '' -a version 3\n"
      "set empty \"\" user/x \\#1\n";
  const ToolRun run = RunTool({"batch", file}, lines);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out,
            "a b\n0 element host\n1 element port\n2 element port\n3 element mirror\n"
            "it said \"hi\"\n");
  EXPECT_EQ(ReadBytes(file), ReadBytes(DataPath("batch_edit.out")));
}

TEST(Batch, ManyLines) {
  Scratch dir;
  const std::string file = dir.Copy("config.xml");
  std::string lines;
  for (int i = 0; i < 1000; ++i) {
    lines += "set list/n" + std::to_string(i) + " " + std::to_string(i * 7) + "\n";
  }
  lines += "get list/n999\n";
  const ToolRun run = RunTool({"batch", file}, lines);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "6993\n");
  EXPECT_EQ(RunTool({"get", file, "list/n500"}).out, "3500\n");
}

TEST(Batch, ReadsAloneLeaveTheFileAsItWas) {
  Scratch dir;
  const std::string file = dir.Copy("config.xml");
  const ToolRun run = RunTool({"batch", file}, "get net/host\nls empty\n");
  EXPECT_EQ(run.out, "example.org\n");
  EXPECT_EQ(ReadBytes(file), ReadBytes(DataPath("config.xml")));
}

TEST(Xslt, PrintsOrWritesTheTransformedDocument) {
  const std::string expected = ReadBytes(DataPath("xslt_hosts.out"));
  const ToolRun run = RunTool({"xslt", DataPath("config.xml"), DataPath("rename.xsl")});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, expected);

  Scratch dir;
  const std::string out = dir.path("hosts.xml");
  const std::string stylesheet = ReadBytes(DataPath("rename.xsl"));
  EXPECT_EQ(RunTool({"xslt", DataPath("config.xml"), "-", "-o", out}, stylesheet).status, 0);
  EXPECT_EQ(ReadBytes(out), expected);

  // A result of several top-level nodes, when asked for; comments and
  // processing instructions outside the one element are no part of a
  // document, as everywhere in the tool.
  const std::string head =
      "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
      "<xsl:template match='/'>";
  const std::string tail = "</xsl:template></xsl:stylesheet>";
  const ToolRun fragment = RunTool({"xslt", DataPath("config.xml"), "-", "--fragment"},
                                   head + "t&lt;<a/><xsl:comment>c</xsl:comment><b>x</b>" + tail);
  EXPECT_EQ(fragment.status, 0) << fragment.err;
  EXPECT_EQ(fragment.out, "t&lt;<a/><!--c--><b>x</b>");
  const ToolRun commented = RunTool({"xslt", DataPath("config.xml"), "-"},
                                    head + "<xsl:comment>c</xsl:comment><a/>" + tail);
  EXPECT_EQ(commented.out, "<?xml version='1.0' encoding='UTF-8' ?>\n<a/>") << commented.err;

  // What the stylesheet says goes to standard error, also when it succeeds.
  const ToolRun noted = RunTool({"xslt", DataPath("config.xml"), "-"},
                                head + "<xsl:message>half way</xsl:message><a/>" + tail);
  EXPECT_EQ(noted.status, 0);
  EXPECT_EQ(noted.err, "half way\n");
}

}  // namespace
}  // namespace tkcli::test
