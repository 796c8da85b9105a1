#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/test_support.h"

namespace tk {
namespace {

using test::Instance;
using test::MessageLog;

std::string Exported(Instance& tk) {
  outputstr out;
  return tk->ExportToStream(out) == 0 ? std::string(out.text()) : std::string("<failed>");
}

TEST(CreateEmpty, MakesTheRootAtHandle100) {
  Instance tk;
  MessageLog log;
  ASSERT_EQ(tk->CreateEmpty("cfg"), 0);
  EXPECT_EQ(tk->GetHandleCount(), 1u);
  EXPECT_EQ(tk->OpenElement("cfg"), 100u);
  EXPECT_EQ(Exported(tk), std::string(test::kDeclaration) + "<cfg/>");
  EXPECT_TRUE(log.messages().empty()) << log.joined();
}

TEST(CreateEmpty, RefusedInput) {
  Instance tk;
  MessageLog log;
  const struct {
    const char* name;
    const char* message;
  } cases[] = {{nullptr, "CreateEmpty NULL point\n"},
               {"", "CreateDOMNode failed\n"},
               {"1abc", "CreateDOMNode failed\n"},
               {"a b", "CreateDOMNode failed\n"},
               {"a/b", "CreateDOMNode failed\n"}};
  for (const auto& c : cases) {
    log.clear();
    EXPECT_EQ(tk->CreateEmpty(c.name), -1) << (c.name ? c.name : "null");
    EXPECT_EQ(log.joined(), c.message);
    EXPECT_EQ(tk->GetHandleCount(), 0u);
  }
  // Nothing was left behind: a valid name still succeeds.
  EXPECT_EQ(tk->CreateEmpty("ok"), 0);
}

TEST(CreateEmpty, RefusedWhileADocumentIsOpen) {
  Instance tk;
  ASSERT_EQ(tk->CreateEmpty("cfg"), 0);
  MessageLog log;
  for (const char* name : {"cfg", "other"}) {
    EXPECT_EQ(tk->CreateEmpty(name), -112);
  }
  EXPECT_EQ(log.joined(),
            "CreateEmpty:  root element exist\nCreateEmpty:  root element exist\n");
  // The null test comes before the table is looked at.
  log.clear();
  EXPECT_EQ(tk->CreateEmpty(nullptr), -1);
  EXPECT_EQ(log.joined(), "CreateEmpty NULL point\n");
  EXPECT_EQ(tk->GetHandleCount(), 1u);
  EXPECT_EQ(Exported(tk), std::string(test::kDeclaration) + "<cfg/>");
}

TEST(CreateEmpty, CreatedRootEndsWithCloseAllElements) {
  Instance tk;
  ASSERT_EQ(tk->CreateEmpty("first"), 0);
  ASSERT_EQ(tk->OpenElement(static_cast<const char*>(nullptr)), 100u);
  tk->CloseAllElements();
  EXPECT_EQ(tk->GetHandleCount(), 0u);

  MessageLog log;
  outputstr out("kept");
  EXPECT_EQ(tk->ExportToStream(out), -1);
  EXPECT_STREQ(out.text(), "kept");
  EXPECT_EQ(log.joined(), "ExportToStream : root NULL error\n");
  EXPECT_EQ(tk->ExportSubTreeToStream(100, out), -102);

  // The same instance starts again; only the new root is exported.
  ASSERT_EQ(tk->CreateEmpty("second"), 0);
  EXPECT_EQ(tk->GetHandleCount(), 1u);
  EXPECT_EQ(Exported(tk), std::string(test::kDeclaration) + "<second/>");
}

TEST(CreateEmpty, LoadedRootOutlivesCloseAllElements) {
  Instance tk;
  const char xml[] = "<cfg><a>1</a></cfg>";
  ASSERT_EQ(tk->ImportFromStream(xml, static_cast<int>(std::strlen(xml)), "mem"), 0);
  tk->CloseAllElements();
  EXPECT_EQ(Exported(tk), std::string(test::kDeclaration) + xml);
  // The closed document doesn't block a new one, and the new one replaces it.
  ASSERT_EQ(tk->CreateEmpty("fresh"), 0);
  EXPECT_EQ(Exported(tk), std::string(test::kDeclaration) + "<fresh/>");
  tk->CloseAllElements();
  EXPECT_EQ(Exported(tk), "<failed>");
}

}  // namespace
}  // namespace tk
