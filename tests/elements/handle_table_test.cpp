#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/test_support.h"

namespace tk {
namespace {

using test::Instance;
using test::MessageLog;

constexpr char kConfig[] = "<cfg><a/><a><b/></a>text<c><d/></c></cfg>";
const std::string kBadHandle = "OpenElement: element handle is invalid\n";

void Load(Instance& tk, const char* xml) {
  ASSERT_EQ(tk->ImportFromStream(xml, static_cast<int>(std::strlen(xml)), nullptr), 0);
}

// The subtree text of a handle without the declaration, or "" when dead.
std::string Xml(Instance& tk, unsigned handle) {
  outputstr out;
  if (tk->ExportSubTreeToStream(handle, out) != 0) return "";
  return out.text() + std::strlen(test::kDeclaration);
}

TEST(HandleTable, ClosingMiddleAndLastEntries) {
  Instance tk;
  Load(tk, kConfig);
  const unsigned a = tk->OpenElement("a");
  const unsigned c = tk->OpenElement("c");
  ASSERT_EQ(a, 101u);
  ASSERT_EQ(c, 102u);

  // [root, A, B] -> closing A leaves a slot; B keeps its handle.
  EXPECT_EQ(tk->CloseElement(101), 0);
  EXPECT_EQ(tk->GetHandleCount(), 3u);
  EXPECT_EQ(Xml(tk, 102), "<c><d/></c>");
  EXPECT_EQ(Xml(tk, 101), "");
  // Closing the slot again while it is in the middle changes nothing.
  EXPECT_EQ(tk->CloseElement(101), 0);
  EXPECT_EQ(tk->GetHandleCount(), 3u);

  // Closing the last entry shrinks by one; the slot below stays.
  EXPECT_EQ(tk->CloseElementHandle(102), 0);
  EXPECT_EQ(tk->GetHandleCount(), 2u);
  EXPECT_EQ(tk->OpenElement("c"), 102u);  // the slot at 101 is never reused
  EXPECT_EQ(tk->CloseElement(102), 0);

  // Now the slot is last: closing it removes it.
  EXPECT_EQ(tk->CloseElement(101), 0);
  EXPECT_EQ(tk->GetHandleCount(), 1u);
  EXPECT_EQ(tk->OpenElement("a"), 101u);
}

TEST(HandleTable, OutOfRangeAndRootHandles) {
  Instance tk;
  Load(tk, kConfig);
  ASSERT_EQ(tk->OpenElement("c"), 101u);
  MessageLog log;
  for (unsigned handle : {0u, 1u, 99u, 102u, 0xFFFFFFFFu, 0x80000064u}) {
    SCOPED_TRACE(handle);
    EXPECT_EQ(tk->CloseElement(handle), -1);
    log.clear();
    EXPECT_EQ(tk->OpenElement(handle, 0u), 0u);
    unsigned outHandle = 7, outType = 7;
    EXPECT_EQ(tk->OpenElement(handle, 0u, &outHandle, &outType), -1);
    EXPECT_EQ(outHandle, 7u);
    EXPECT_EQ(outType, 7u);
    EXPECT_EQ(tk->OpenElement(handle, 0u, &outHandle), -102);
    EXPECT_EQ(outHandle, 0u);
    EXPECT_EQ(log.joined(), kBadHandle + kBadHandle + kBadHandle);
  }
  log.clear();
  EXPECT_EQ(tk->CloseElement(100), -1);
  EXPECT_EQ(Xml(tk, 100), kConfig);
  EXPECT_EQ(tk->GetHandleCount(), 2u);
  // A closed slot is refused like a handle out of range, by the open forms.
  ASSERT_EQ(tk->OpenElement("a"), 102u);
  ASSERT_EQ(tk->CloseElement(101), 0);
  EXPECT_EQ(tk->OpenElement(101, 0u), 0u);
  EXPECT_TRUE(log.messages().size() == 1 && log.messages()[0] == kBadHandle);
  log.clear();
  // No close path ever reports.
  tk->CloseElement(101);
  tk->CloseElement(0);
  tk->CloseElement(100);
  EXPECT_TRUE(log.messages().empty()) << log.joined();
}

TEST(HandleTable, NoDocument) {
  Instance tk;
  MessageLog log;
  EXPECT_EQ(tk->OpenElement(static_cast<const char*>(nullptr)), 100u);
  EXPECT_EQ(tk->CloseElement(100), -1);
  EXPECT_TRUE(log.messages().empty());
  for (const char* path : {"", "cfg", "a/b"}) {
    log.clear();
    EXPECT_EQ(tk->OpenElement(path), 0u) << path;
    EXPECT_EQ(log.joined(), "OpenElemnt: root element is invalid\n");
  }
  EXPECT_EQ(tk->GetHandleCount(), 0u);
}

TEST(OpenElementByPath, RootNameIsDroppedIgnoringCase) {
  Instance tk;
  Load(tk, "<cfg><net><ip/></net><cfg><x/></cfg></cfg>");
  MessageLog log;
  for (const char* path : {"", "cfg", "cfg/", "CFG/", "Cfg"}) {
    EXPECT_EQ(tk->OpenElement(path), 100u) << path;
  }
  EXPECT_EQ(tk->GetHandleCount(), 1u);
  const unsigned upper = tk->OpenElement("CFG/net");
  const unsigned bare = tk->OpenElement("net");
  EXPECT_EQ(upper, 101u);
  EXPECT_EQ(bare, 102u);
  EXPECT_EQ(Xml(tk, upper), "<net><ip/></net>");
  EXPECT_EQ(Xml(tk, bare), Xml(tk, upper));
  // Only the first component is forgiven; below it names are exact.
  EXPECT_EQ(tk->OpenElement("CFG/NET"), 0u);
  EXPECT_EQ(tk->OpenElement("cfg/net/ip"), 103u);
  // A child named like the root is reached only behind the root's own name.
  EXPECT_EQ(tk->OpenElement("cfg/cfg"), 104u);
  EXPECT_EQ(Xml(tk, 104), "<cfg><x/></cfg>");
  EXPECT_EQ(tk->OpenElement("cfg/x"), 0u);
  EXPECT_EQ(tk->OpenElement("cfg/cfg/x"), 105u);
  // Misses are silent and add nothing.
  for (const char* path : {"nothing", "/", "//", "/cfg", "cfg//net", "cfgx"}) {
    EXPECT_EQ(tk->OpenElement(path), 0u) << path;
  }
  EXPECT_EQ(tk->OpenElement(std::string(10000, 'n').c_str()), 0u);
  EXPECT_EQ(tk->GetHandleCount(), 6u);
  EXPECT_TRUE(log.messages().empty()) << log.joined();
}

TEST(OpenElementByIndex, CountsEveryChildButOpensOnlyElements) {
  Instance tk;
  Load(tk, "<r>t<!--c--><?p x?><![CDATA[z]]><e>v</e></r>");
  MessageLog log;
  const struct {
    unsigned index;
    unsigned nodeType;
    const char* xml;
  } children[] = {{0, 3, "t"},
                  {1, 8, "<!--c-->"},
                  {2, 7, "<?p x?>"},
                  {3, 4, "<![CDATA[z]]>"},
                  {4, 1, "<e>v</e>"}};
  for (const auto& child : children) {
    SCOPED_TRACE(child.index);
    const unsigned opened = tk->OpenElement(100u, child.index);
    EXPECT_EQ(opened != 0, child.nodeType == 1);
    unsigned handle = 0, nodeType = 0;
    ASSERT_EQ(tk->OpenElement(100u, child.index, &handle, &nodeType), 0);
    EXPECT_EQ(nodeType, child.nodeType);
    EXPECT_EQ(handle, tk->GetHandleCount() + 99);
    EXPECT_EQ(Xml(tk, handle), child.xml);
  }
  // Past the count, and indexes that compare as huge unsigned numbers.
  for (unsigned index : {5u, 6u, 0x80000000u, 0xFFFFFFFFu}) {
    unsigned handle = 9, nodeType = 9;
    EXPECT_EQ(tk->OpenElement(100u, index), 0u);
    EXPECT_EQ(tk->OpenElement(100u, index, &handle, &nodeType), -1);
    EXPECT_EQ(handle + nodeType, 18u);
  }
  // A text node has no children: nothing to open below it.
  const unsigned e = tk->OpenElement("e");
  unsigned handle = 0, nodeType = 0;
  ASSERT_EQ(tk->OpenElement(e, 0u, &handle, &nodeType), 0);
  EXPECT_EQ(tk->OpenElement(handle, 0u), 0u);
  EXPECT_EQ(tk->OpenElement(handle, 0u, &handle, &nodeType), -1);
  // Out-arguments that are missing are refused, not written through.
  EXPECT_EQ(tk->OpenElement(100u, 4u, nullptr, &nodeType), -1);
  EXPECT_EQ(tk->OpenElement(100u, 4u, &handle, nullptr), -1);
  EXPECT_TRUE(log.messages().empty()) << log.joined();
}

TEST(HandleTable, SameElementTwiceAndCloseAll) {
  Instance tk;
  Load(tk, kConfig);
  const unsigned first = tk->OpenElement(100u, 3u);
  const unsigned second = tk->OpenElement("c");
  ASSERT_EQ(first, 101u);
  ASSERT_EQ(second, 102u);
  EXPECT_EQ(tk->CloseElement(first), 0);
  EXPECT_EQ(Xml(tk, second), "<c><d/></c>");
  // A handle opened below another stays usable when its parent closes.
  const unsigned d = tk->OpenElement(second, 0u);
  EXPECT_EQ(tk->CloseElement(second), 0);
  EXPECT_EQ(Xml(tk, d), "<d/>");

  tk->CloseAllElements();
  EXPECT_EQ(tk->GetHandleCount(), 0u);
  for (unsigned handle : {100u, 101u, 102u, 103u}) EXPECT_EQ(Xml(tk, handle), "") << handle;
  tk->CloseAllElements();
  // The next document numbers from 100 again.
  Load(tk, kConfig);
  EXPECT_EQ(tk->OpenElement("c/d"), 101u);
}

}  // namespace
}  // namespace tk
