#include <gtest/gtest.h>

#include <string>

#include "support/test_support.h"
#include "support/xml_text.h"

namespace tk {
namespace {

using test::Instance;
using test::MessageLog;

std::string Exported(Instance& tk) { return test::DocumentText(tk.tk); }

// A refusal leaves the table as it was: empty, or holding the first root.
// The null test comes before the table is looked at.
TEST(CreateEmpty, Refusals) {
  const std::string exists = "CreateEmpty:  root element exist\n";
  const std::string null = "CreateEmpty NULL point\n";
  const std::string badName = "CreateDOMNode failed\n";
  const struct { bool rooted; const char* name; int result; std::string message; } cases[] = {
      {false, nullptr, -1, null}, {false, "", -1, badName}, {false, "1abc", -1, badName},
      {false, "a/b", -1, badName}, {true, "cfg", -112, exists}, {true, "other", -112, exists},
      {true, nullptr, -1, null}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name == nullptr ? "(null)" : c.name);
    Instance tk;
    ASSERT_EQ(c.rooted ? tk->CreateEmpty("cfg") : 0, 0);
    MessageLog log;
    EXPECT_EQ(tk->CreateEmpty(c.name), c.result);
    EXPECT_EQ(log.joined(), c.message);
    EXPECT_EQ(tk->GetHandleCount(), c.rooted ? 1u : 0u);
    EXPECT_EQ(c.rooted ? Exported(tk) : "", c.rooted ? "<cfg/>" : "");
  }
}

TEST(CreateEmpty, RootLifetimeAcrossCloseAllElements) {
  Instance tk;
  ASSERT_EQ(tk->CreateEmpty("first"), 0);
  tk->CloseAllElements();
  // The created root had no owner but its table entry: it is gone.
  MessageLog log;
  outputstr out("kept");
  EXPECT_EQ(tk->ExportToStream(out), -1);
  EXPECT_STREQ(out.text(), "kept");
  EXPECT_EQ(log.joined(), "ExportToStream : root NULL error\n");
  EXPECT_EQ(tk->ExportSubTreeToStream(100, out), -102);

  // A loaded root lives in the document and survives the close, until a new
  // document takes its place.
  const char xml[] = "<cfg><a>1</a></cfg>";
  ASSERT_EQ(test::LoadText(tk.tk, xml), 0);
  tk->CloseAllElements();
  EXPECT_EQ(Exported(tk), xml);
  ASSERT_EQ(tk->CreateEmpty("fresh"), 0);
  EXPECT_EQ(Exported(tk), "<fresh/>");
  tk->CloseAllElements();
  EXPECT_EQ(Exported(tk), "<error -1>");
}

}  // namespace
}  // namespace tk
