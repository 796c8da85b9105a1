// set, rm and batch change the bytes of what they change and no others.
#include <algorithm>

#include <gtest/gtest.h>

#include "tool_runner.h"

namespace tkcli::test {
namespace {

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t begin = 0; begin < text.size();) {
    size_t end = text.find('\n', begin);
    if (end == std::string::npos) end = text.size();
    lines.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

// The lines a line diff shows between two texts, "-" for a line only in
// before, "+" for one only in after, each ending in "\n"; a CR at a line's
// end is left out.
std::string LineDiff(const std::string& before, const std::string& after) {
  const std::vector<std::string> a = Lines(before);
  const std::vector<std::string> b = Lines(after);
  std::vector<std::vector<unsigned>> common(a.size() + 1, std::vector<unsigned>(b.size() + 1));
  for (size_t i = a.size(); i-- > 0;) {
    for (size_t j = b.size(); j-- > 0;) {
      common[i][j] = a[i] == b[j] ? common[i + 1][j + 1] + 1
                                  : std::max(common[i + 1][j], common[i][j + 1]);
    }
  }
  std::string diff;
  const auto show = [&](char sign, std::string line) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    diff += sign + line + "\n";
  };
  for (size_t i = 0, j = 0; i < a.size() || j < b.size();) {
    if (i < a.size() && j < b.size() && a[i] == b[j]) {
      ++i;
      ++j;
    } else if (i < a.size() && (j == b.size() || common[i + 1][j] >= common[i][j + 1])) {
      show('-', a[i++]);
    } else {
      show('+', b[j++]);
    }
  }
  return diff;
}

struct EditCase {
  std::vector<std::string> args;  // after the command and FILE
  std::string batch;              // the lines for a batch (args empty)
  std::string diff;               // as LineDiff shows it
};

// A file of CR LF lines in Latin-1, with tabs, a document type with an
// internal subset, comments and references.
TEST(Lossless, EditsChangeOnlyTheirLines) {
  const std::vector<EditCase> cases = {
      {{"set", "port", "8081"}, "", "-\t<port>8080</port>\n+\t<port>8081</port>\n"},
      {{"set", "site/limits/max", "10"}, "", "+\t<limits>\n+\t\t<max>10</max>\n+\t</limits>\n"},
      {{"set", "mirror[@id=\"b\"]", "-a", "id", "B"}, "",
       "-\t<mirror id='b'>two</mirror>\n+\t<mirror id='B'>two</mirror>\n"},
      {{"set", "mirror[last()]", "-a", "w", "'\"<\xC3\xA9\xE2\x82\xAC"}, "",
       "-\t<mirror id='c'>three</mirror>\n"
       "+\t<mirror id='c' w='&apos;\"&lt;\xE9&#x20AC;'>three</mirror>\n"},
      {{"set", "empty", "a\nb"}, "", "-\t<empty/>\n+\t<empty>a\n+b</empty>\n"},
      {{"rm", "mirror[2]"}, "", "-\t<mirror id='b'>two</mirror>\n"},
      {{"rm", "", "-a", "version"}, "",
       "-<site name='caf\xE9' version='1'>\n+<site name='caf\xE9'>\n"},
      {{},
       "set host new.example\n"
       "set mirror[1] uno\n"
       "set 'mirror[@id=\"c\"]' -a id C\n"
       "set mirror[last()]/note n\n"
       "rm mirror[2]\n"
       "rm port\n"
       "set limits/max 10 limits/min 1\n"
       "set script --cdata 'x ]]> y'\n"
       "get mirror[last()]\n"
       "set empty -a on yes\n",
       "-\t<host>example.org</host>\n+\t<host>new.example</host>\n"
       "-\t<port>8080</port>\n"
       "-\t<mirror id='a'>one</mirror>\n-\t<mirror id='b'>two</mirror>\n"
       "-\t<mirror id='c'>three</mirror>\n"
       "-\t<script><![CDATA[if (a < b) run();]]></script>\n-\t<empty/>\n"
       "+\t<mirror id='a'>uno</mirror>\n+\t<mirror id='C'>three<note>n</note></mirror>\n"
       "+\t<script><![CDATA[x ]]]]><![CDATA[> y]]></script>\n+\t<empty on='yes'/>\n"
       "+\t<limits>\n+\t\t<max>10</max>\n+\t\t<min>1</min>\n+\t</limits>\n"},
  };
  for (const EditCase& c : cases) {
    Scratch dir;
    const std::string file = dir.Copy("lossless.xml");
    std::vector<std::string> args = c.args.empty() ? std::vector<std::string>{"batch"} : c.args;
    args.insert(args.begin() + 1, file);
    const ToolRun run = RunTool(args, c.batch);
    const std::string shown = testing::PrintToString(args);
    EXPECT_EQ(run.status, 0) << shown << "\n" << run.err;
    const std::string after = ReadBytes(file);
    EXPECT_EQ(LineDiff(ReadBytes(DataPath("lossless.xml")), after), c.diff) << shown;
    EXPECT_EQ(std::count(after.begin(), after.end(), '\n'),
              std::count(after.begin(), after.end(), '\r'))
        << shown << ": every line ends in CR LF";
  }
}

TEST(Lossless, RewriteWritesTheLibrarysXml) {
  Scratch dir;
  const std::string file = dir.Copy("lossless.xml");
  EXPECT_EQ(RunTool({"set", file, "port", "1", "--rewrite"}).status, 0);
  const std::string written = ReadBytes(file);
  EXPECT_EQ(written.rfind("<?xml version='1.0' encoding='UTF-8' ?>\n<site name=\"caf\xC3\xA9\"", 0),
            0u)
      << written;
  EXPECT_EQ(written.find('\r'), std::string::npos);
}

// The system's own configuration files, where they are installed.
TEST(Lossless, SystemConfigurationFiles) {
  struct RealCase {
    std::vector<std::string> args;  // after FILE; {X} is the root's first child element
    std::string batch;
    size_t removed;  // lines; npos: at least one
    size_t added;
    std::string shows;  // in the lines added
  };
  const size_t some = std::string::npos;
  const std::vector<RealCase> cases = {
      {{"set", "{X}[1]", "edited"}, "", 1, 1, ">edited<"},
      {{"set", "{X}", "-a", "edited", "yes"}, "", 1, 1, "edited=\"yes\""},
      {{"set", "lossless/inner", "v"}, "", 0, 3, "<inner>v</inner>"},
      {{"rm", "{X}[last()]"}, "", some, 0, ""},
      {{}, "set {X} -a edited yes\nset lossless/inner v\n", 1, 4, "<lossless>"},
  };
  int tried = 0;
  for (const char* system : {"/etc/fonts/fonts.conf", "/usr/share/dbus-1/system.conf"}) {
    const std::string original = ReadBytes(system);
    if (original.empty()) continue;
    ++tried;
    const ToolRun listed = RunTool({"ls", system});
    const size_t at = listed.out.find(" element ");
    ASSERT_NE(at, std::string::npos) << system;
    const std::string first = listed.out.substr(at + 9, listed.out.find('\n', at) - at - 9);
    for (const RealCase& c : cases) {
      Scratch dir;
      const std::string file = dir.path("copy.conf");
      WriteBytes(file, original);
      std::vector<std::string> args = c.args.empty() ? std::vector<std::string>{"batch"} : c.args;
      args.insert(args.begin() + 1, file);
      std::string batch = c.batch;
      args.push_back(batch);
      for (std::string& text : args) {
        for (size_t x = text.find("{X}"); x != std::string::npos; x = text.find("{X}")) {
          text.replace(x, 3, first);
        }
      }
      batch = args.back();
      args.pop_back();
      const ToolRun run = RunTool(args, batch);
      const std::string shown = system + testing::PrintToString(args);
      ASSERT_EQ(run.status, 0) << shown << "\n" << run.err;
      const std::string diff = LineDiff(original, ReadBytes(file));
      size_t removed = 0;
      size_t added = 0;
      for (const std::string& line : Lines(diff)) ++(line[0] == '-' ? removed : added);
      EXPECT_EQ(added, c.added) << shown << "\n" << diff;
      if (c.removed == some) {
        EXPECT_GE(removed, 1u) << shown << "\n" << diff;
      } else {
        EXPECT_EQ(removed, c.removed) << shown << "\n" << diff;
      }
      EXPECT_NE(diff.find(c.shows), std::string::npos) << shown << "\n" << diff;
    }
  }
  if (tried == 0) GTEST_SKIP() << "no system configuration file to edit";
}

}  // namespace
}  // namespace tkcli::test
