// cat, ls and get, and the options every command has.
#include <gtest/gtest.h>

#include "tool_runner.h"

namespace tkcli::test {
namespace {

struct ReadCase {
  std::vector<std::string> args;  // "@" stands for the data file config.xml
  std::string expected;           // expected standard output; "file:NAME" for a data file
};

std::vector<std::string> WithConfig(std::vector<std::string> args) {
  for (std::string& arg : args) {
    if (arg == "@") arg = DataPath("config.xml");
  }
  return args;
}

std::string Expected(const std::string& expected) {
  return expected.rfind("file:", 0) == 0 ? ReadBytes(DataPath(expected.substr(5))) : expected;
}

TEST(ReadCommands, PrintWhatTheDocumentHolds) {
  const std::vector<ReadCase> cases = {
      {{"cat", "@"}, "file:cat_config.out"},
      {{"cat", "@", "net"}, "file:cat_net.out"},
      {{"cat", "@", "CFG/net"}, "file:cat_net.out"},  // the root's name may lead the path
      {{"ls", "@", "-a"}, "file:ls_root.out"},
      {{"ls", "@", "net"}, "0 element host\n1 element port\n2 element key\n3 element port\n"},
      {{"ls", "@", "user"}, "0 text\n"},
      {{"ls", "@", "script"}, "0 cdata\n"},
      {{"ls", "@", "empty"}, ""},
      {{"get", "@", "net/host"}, "example.org\n"},
      {{"get", "@", "net/port"}, "8080\n"},  // the first of two
      {{"get", "@", "user"}, "Zoë Müller\n"},
      {{"get", "@", "empty"}, "\n"},
      {{"get", "@", "net"}, "\n"},  // elements only, no text
      {{"get", "@", "user", "-a", "name"}, "Zoë\n"},
      {{"get", "@", "user", "--attribute", "id", "--number"}, "42\n"},
      {{"get", "@", "user", "-a", "tag", "--hex"}, "c0ffee\n"},
      {{"get", "@", "", "-a", "version"}, "2\n"},
      {{"get", "@", "net/port", "--number"}, "8080\n"},
      {{"get", "@", "net/key", "--hex"}, "0aff\n"},
      {{"get", "@", "script", "--cdata"}, "if (a < b) run();\n"},
      {{"get", "@", "user", "--codepage", "28591"}, "Zo\xEB M\xFCller\n"},
      {{"--codepage", "28591", "ls", "-a", "@", "user"}, "0 text\n"},
      {{"get", "@", "user", "-a", "name", "--codepage", "28591"}, "Zo\xEB\n"},
      {{"get", "@", "net/port[2]"}, "9090\n"},
      {{"get", "@", "cfg/net[1]/port[last()]"}, "9090\n"},
      {{"get", "@", "net[@mode='dual']/host[last()]"}, "example.org\n"},
      {{"get", "@", "user[@name=\"Zo\xC3\xAB\"]", "-a", "id"}, "42\n"},
      {{"ls", "@", "net[@mode=\"dual\"]"}, "0 element host\n1 element port\n2 element key\n"
                                             "3 element port\n"},
      {{"cat", "@", "--keep"}, "file:config.xml"},
      {{"cat", "@", "user", "--keep"},
       "<user name=\"Zo\xC3\xAB\" id=\"42\" tag=\"c0ffee\">Zo\xC3\xAB M\xC3\xBCller</user>"},
      {{"cat", "@", "net", "--pretty"},
       "<?xml version='1.0' encoding='UTF-8' ?>\n<net mode=\"dual\">\n  <host>example.org</host>\n"
       "  <port>8080</port>\n  <key>0aFF</key>\n  <port>9090</port>\n</net>\n"},
  };
  for (const ReadCase& c : cases) {
    const ToolRun run = RunTool(WithConfig(c.args));
    const std::string shown = testing::PrintToString(c.args);
    EXPECT_EQ(run.status, 0) << shown << "\n" << run.err;
    EXPECT_EQ(run.out, Expected(c.expected)) << shown;
    EXPECT_EQ(run.err, "") << shown;
  }
}

TEST(ReadCommands, ReadStandardInputForDash) {
  const std::string config = ReadBytes(DataPath("config.xml"));
  EXPECT_EQ(RunTool({"cat", "-"}, config).out, ReadBytes(DataPath("cat_config.out")));
  EXPECT_EQ(RunTool({"get", "-", "net/host"}, config).out, "example.org\n");
  EXPECT_EQ(RunTool({"ls", "-", "net"}, config).out.substr(0, 15), "0 element host\n");
}

TEST(ReadCommands, FileNamesAreBytesNotText) {
  // A Latin-1 byte in the name is no text in a UTF-8 locale; the file is
  // opened all the same, for reading and for saving.
  Scratch dir;
  const std::string file = dir.path("caf\xE9.xml");
  WriteBytes(file, "<a><x>1</x></a>");
  EXPECT_EQ(RunTool({"set", file, "x", "2"}).status, 0);
  const ToolRun run = RunTool({"get", file, "x"});
  EXPECT_EQ(run.out + run.err, "2\n");
}

TEST(ReadCommands, ValueIsTheLastTextChildAtAnyLength) {
  // Texts before the last one that are shorter than it, in mixed content.
  struct Case {
    std::string xml;
    std::vector<std::string> options;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"<a><p>short<b>x</b>a much longer tail</p></a>", {}, "a much longer tail\n"},
      {"<a><p>s<!--c-->t &amp; &lt;u&gt;&#13;\xC3\xA9\xF0\x9F\x98\x80</p></a>", {},
       "t & <u>\r\xC3\xA9\xF0\x9F\x98\x80\n"},
      {"<a><p>x<b/>Zo\xC3\xAB M\xC3\xBCller</p></a>", {"--codepage", "28591"},
       "Zo\xEB M\xFCller\n"},
      {"<a><p>1<b/>123456</p></a>", {"--number"}, "123456\n"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args = {"get", "-", "p"};
    args.insert(args.end(), c.options.begin(), c.options.end());
    const ToolRun run = RunTool(args, c.xml);
    EXPECT_EQ(run.status, 0) << c.xml << "\n" << run.err;
    EXPECT_EQ(run.out, c.expected) << c.xml;
  }
}

TEST(ReadCommands, ValuesNotInTheAskedFormAreRefused) {
  // A number or hex read of a value that isn't one fails instead of
  // printing something made up.
  const std::string values = "<r n='99999999999' h='abc'><n>99999999999</n><h>abc</h></r>";
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{"get", "@", "net/host", "--number"}, ""},
      {{"get", "@", "empty", "--number"}, ""},
      {{"get", "@", "net/host", "--hex"}, ""},
      {{"get", "@", "user", "-a", "name", "--number"}, ""},
      {{"get", "@", "user", "-a", "name", "--hex"}, ""},
      {{"get", "-", "n", "--number"}, values},
      {{"get", "-", "h", "--hex"}, values},
      {{"get", "-", "", "-a", "n", "--number"}, values},
      {{"get", "-", "", "-a", "h", "--hex"}, values},
  };
  for (const auto& [args, input] : cases) {
    const ToolRun run = RunTool(WithConfig(args), input);
    EXPECT_EQ(run.status, 5) << testing::PrintToString(args);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find(", not "), std::string::npos) << run.err;
  }
}

TEST(ReadCommands, CrlfGivesTheFileForm) {
  std::string expected;
  for (const char c : ReadBytes(DataPath("cat_net.out"))) {
    if (c == '\n') expected += '\r';
    expected += c;
  }
  expected += "\r\r\n";
  EXPECT_EQ(RunTool({"cat", DataPath("config.xml"), "net", "--crlf"}).out, expected);
}

TEST(ReadCommands, HelpVersionAndVerbose) {
  const ToolRun version = RunTool({"--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.out.rfind("treekeeper ", 0), 0u) << version.out;

  for (const char* command : {"cat", "ls", "get", "set", "rm", "new", "xslt", "batch"}) {
    const ToolRun help = RunTool({command, "--help"});
    EXPECT_EQ(help.status, 0) << command;
    EXPECT_NE(help.out.find(std::string("Usage: treekeeper ") + command), std::string::npos)
        << help.out;
  }

  // The library's own messages appear only when asked for.
  const std::string broken = DataPath("broken.xml");
  EXPECT_EQ(RunTool({"cat", broken}).err.find("ImportFromFile"), std::string::npos);
  const ToolRun verbose = RunTool({"cat", broken, "-v"});
  EXPECT_EQ(verbose.status, 3);
  EXPECT_NE(verbose.err.find("ImportFromFile : load failed\n"), std::string::npos) << verbose.err;
}

}  // namespace
}  // namespace tkcli::test
