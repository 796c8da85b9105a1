#include <gtest/gtest.h>

#include <string>

#include "support/test_support.h"
#include "support/xml_text.h"

namespace tk {
namespace {

using test::Instance;
using test::MessageLog;

std::string Exported(Instance& tk) { return test::DocumentText(tk.tk); }

TEST(CreateEmpty, RootAtHandle100AndRefusedWhileOpen) {
  Instance tk;
  MessageLog log;
  ASSERT_EQ(tk->CreateEmpty("cfg"), 0);
  EXPECT_EQ(tk->GetHandleCount(), 1u);
  EXPECT_EQ(tk->OpenElement("cfg"), 100u);
  EXPECT_EQ(Exported(tk), "<cfg/>");
  EXPECT_TRUE(log.messages().empty()) << log.joined();

  for (const char* name : {"cfg", "other"}) EXPECT_EQ(tk->CreateEmpty(name), -112);
  // The null test comes before the table is looked at.
  EXPECT_EQ(tk->CreateEmpty(nullptr), -1);
  EXPECT_EQ(log.joined(),
            "CreateEmpty:  root element exist\nCreateEmpty:  root element exist\n"
            "CreateEmpty NULL point\n");
  EXPECT_EQ(tk->GetHandleCount(), 1u);
  EXPECT_EQ(Exported(tk), "<cfg/>");
}

TEST(CreateEmpty, RefusedNamesLeaveNothingBehind) {
  Instance tk;
  MessageLog log;
  const struct {
    const char* name;
    const char* message;
  } cases[] = {{nullptr, "CreateEmpty NULL point\n"},
               {"", "CreateDOMNode failed\n"},
               {"1abc", "CreateDOMNode failed\n"},
               {"a/b", "CreateDOMNode failed\n"}};
  for (const auto& c : cases) {
    log.clear();
    EXPECT_EQ(tk->CreateEmpty(c.name), -1) << (c.name ? c.name : "null");
    EXPECT_EQ(log.joined(), c.message);
    EXPECT_EQ(tk->GetHandleCount(), 0u);
  }
  EXPECT_EQ(tk->CreateEmpty("ok"), 0);
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

  ASSERT_EQ(tk->CreateEmpty("second"), 0);
  EXPECT_EQ(Exported(tk), "<second/>");
  tk->CloseAllElements();

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
