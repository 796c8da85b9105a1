#include <gtest/gtest.h>

#include <string>

#include "support/handles.h"
#include "support/test_support.h"
#include "support/xml_text.h"

namespace {

using tk::test::DocumentText;
using tk::test::Instance;
using tk::test::MessageLog;
using tk::test::ReloadText;
using tk::test::SubTreeText;

TEST(CreateElement, Shapes) {
  const std::string longest(63, 'n');
  const struct {
    const char* before;
    const char* path;
    const char* after;
    const char* made;  // the new handle's element
  } cases[] = {
      {"<r/>", "a/b", "<r><a><b/></a></r>", "<b/>"},
      {"<r/>", "a/", "<r><a/></r>", "<a/>"},
      // The last component is always made new, beside one of the same name;
      // the way there takes the first match.
      {"<r><a/></r>", "a", "<r><a/><a/></r>", "<a/>"},
      {"<r><a/><a/></r>", "a/b", "<r><a><b/></a><a/></r>", "<b/>"},
      // New elements go behind all other children; only elements match.
      {"<r><a/>t<!--c--></r>", "b", "<r><a/>t<!--c--><b/></r>", "<b/>"},
      {"<r><?a x?></r>", "a/c", "<r><?a x?><a><c/></a></r>", "<c/>"},
      {"<r/>", "p:x", "<r><p:x/></r>", "<p:x/>"},
      {"<r/>", longest.c_str(), nullptr, nullptr},  // a component of 63 bytes
  };
  Instance tk;
  MessageLog log;
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.before) + " " + c.path);
    ASSERT_EQ(ReloadText(tk.tk, c.before), 0);
    unsigned handle = 0;
    ASSERT_EQ(tk->CreateElement(100, c.path, &handle), 0);
    EXPECT_EQ(handle, 101u);
    if (c.after == nullptr) continue;
    EXPECT_EQ(DocumentText(tk.tk), c.after);
    EXPECT_EQ(SubTreeText(tk.tk, handle), c.made);
  }
  EXPECT_EQ(log.joined(), "");
}

TEST(CreateElement, Failures) {
  const std::string longName(64, 'n');
  const std::string afterMade = "m/" + longName;
  const char* base = "<r><x/>tt</r>";
  const std::string badNode = "CreateDOMNode failed\n";
  const std::string badPath = "CreateElement: element path is invalid\n";
  const struct {
    const char* path;
    unsigned handle;  // 101 is a text node
    int result;
    std::string message;
    const char* after;  // nothing is undone
  } cases[] = {
      // An invalid path is refused before the handle is looked at.
      {nullptr, 100, -102, badPath, base}, {"", 55, -102, badPath, base},
      // An empty component or no XML name: what was made on the way stays.
      {"x//y", 100, -1, badNode, base}, {"n//y", 100, -1, badNode, "<r><x/>tt<n/></r>"},
      {"x/1bad", 100, -1, badNode, base},
      // Components past 63 bytes are refused, never truncated.
      {longName.c_str(), 100, -1, "", base}, {afterMade.c_str(), 100, -1, "", "<r><x/>tt<m/></r>"},
      // A text node takes no child.
      {"n", 101, -113, "CreateElement: element create failed\n", base},
  };
  Instance tk;
  MessageLog log;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path == nullptr ? "(null)" : c.path);
    ASSERT_EQ(ReloadText(tk.tk, base), 0);
    ASSERT_EQ(tk::test::OpenChildNode(tk.tk, 100, 1), 101u);
    log.clear();
    unsigned handle = 4242;
    EXPECT_EQ(tk->CreateElement(c.handle, c.path, &handle), c.result);
    EXPECT_EQ(handle, 4242u);
    EXPECT_EQ(log.joined(), c.message);
    EXPECT_EQ(tk->GetHandleCount(), 2u);
    EXPECT_EQ(DocumentText(tk.tk), c.after);
  }
}

TEST(CreateElement, RootRequest) {
  Instance tk;
  MessageLog log;
  unsigned handle = 0;
  EXPECT_EQ(tk->CreateElement(0xFFFFFFFFu, "a/b", &handle), -1);  // taken as one name
  EXPECT_EQ(log.joined(), "CreateDOMNode failed\n");
  EXPECT_EQ(tk->CreateElement(0xFFFFFFFFu, nullptr, &handle), -1);
  EXPECT_EQ(handle, 0u);
  EXPECT_EQ(tk->CreateElement(0xFFFFFFFFu, "cfg", &handle), 0);
  EXPECT_EQ(handle, 100u);
  EXPECT_EQ(DocumentText(tk.tk), "<cfg/>");
  handle = 4242;
  EXPECT_EQ(tk->CreateElement(0xFFFFFFFFu, "cfg", &handle), -112);
  EXPECT_EQ(handle, 4242u);
}

TEST(DeleteElement, OneAtATimeAndFailures) {
  Instance tk;
  ASSERT_EQ(ReloadText(tk.tk, "<r><a>1</a><b/><a>2</a></r>"), 0);
  MessageLog log;
  // Never the handle's own element; no empty component.
  for (const char* path : {static_cast<const char*>(nullptr), "", "c", "a//"}) {
    EXPECT_EQ(tk->DeleteElement(100, path), -102) << (path ? path : "(null)");
  }
  // One element goes per call: the first that matches.
  EXPECT_EQ(tk->DeleteElement(100, "a"), 0);
  EXPECT_EQ(DocumentText(tk.tk), "<r><b/><a>2</a></r>");
  EXPECT_EQ(tk->DeleteElement(100, "a/"), 0);
  EXPECT_EQ(tk->DeleteElement(100, "a"), -102);
  EXPECT_EQ(DocumentText(tk.tk), "<r><b/></r>");
  EXPECT_EQ(log.joined(), "");
}

TEST(DeleteElement, HandlesOnTheRemovedElementKeepWorking) {
  Instance tk;
  ASSERT_EQ(ReloadText(tk.tk, "<r><a><b>v</b></a></r>"), 0);
  const unsigned a = tk->OpenElement("a"), b = tk->OpenElement("a/b");
  ASSERT_EQ(tk->DeleteElement(100, "a"), 0);
  EXPECT_EQ(DocumentText(tk.tk), "<r/>");
  EXPECT_EQ(tk->OpenElement("a"), 0u);

  ASSERT_EQ(tk->SetElementValue(b, nullptr, TK_VALUE_TEXT, 1, "w"), 0);
  ASSERT_EQ(tk->CreateElement(a, "c", nullptr), 0);
  ASSERT_EQ(tk->DeleteElement(a, "b"), 0);
  EXPECT_EQ(SubTreeText(tk.tk, a), "<a><c/></a>");
  EXPECT_EQ(SubTreeText(tk.tk, b), "<b>w</b>");
  EXPECT_EQ(DocumentText(tk.tk), "<r/>");
}

}  // namespace
