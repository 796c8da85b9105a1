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

// The subtree text of a handle without the declaration, or "" when not live.
std::string Xml(Instance& tk, unsigned handle) {
  outputstr out;
  if (tk->ExportSubTreeToStream(handle, out) != 0) return "";
  return out.text() + std::strlen(test::kDeclaration);
}

TEST(HandleTable, ClosingMiddleAndLastEntries) {
  Instance tk;
  Load(tk, kConfig);
  ASSERT_EQ(tk->OpenElement("a"), 101u);
  ASSERT_EQ(tk->OpenElement("c"), 102u);
  MessageLog log;

  // [root, A, B]: closing A leaves a slot and B keeps its handle; closing the
  // slot again while it is in the middle changes nothing.
  for (int i = 0; i < 2; ++i) EXPECT_EQ(tk->CloseElement(101), 0);
  EXPECT_EQ(tk->GetHandleCount(), 3u);
  EXPECT_EQ(Xml(tk, 101), "");
  EXPECT_EQ(Xml(tk, 102), "<c><d/></c>");

  // Closing the last entry shrinks the table; the slot below it stays.
  EXPECT_EQ(tk->CloseElementHandle(102), 0);
  EXPECT_EQ(tk->GetHandleCount(), 2u);
  EXPECT_EQ(tk->OpenElement("c"), 102u);  // appended, the slot is not reused
  EXPECT_EQ(tk->CloseElement(102), 0);
  // Now the slot is last: closing it removes it.
  EXPECT_EQ(tk->CloseElement(101), 0);
  EXPECT_EQ(tk->GetHandleCount(), 1u);
  EXPECT_TRUE(log.messages().empty()) << log.joined();
}

TEST(HandleTable, HandlesThatAreNotLive) {
  Instance tk;
  Load(tk, kConfig);
  ASSERT_EQ(tk->OpenElement("a"), 101u);
  ASSERT_EQ(tk->OpenElement("c"), 102u);
  ASSERT_EQ(tk->CloseElement(101), 0);
  MessageLog log;
  for (unsigned handle : {0u, 99u, 101u, 103u, 0xFFFFFFFFu, 0x80000064u}) {
    SCOPED_TRACE(handle);
    log.clear();
    EXPECT_EQ(tk->OpenElement(handle, 0u), 0u);
    unsigned outHandle = 7, outType = 7;
    EXPECT_EQ(tk->OpenElement(handle, 0u, &outHandle, &outType), -1);
    EXPECT_EQ(outHandle + outType, 14u);
    EXPECT_EQ(tk->OpenElement(handle, 0u, &outHandle), -102);
    EXPECT_EQ(outHandle, 0u);
    EXPECT_EQ(log.joined(), kBadHandle + kBadHandle + kBadHandle);
    if (handle != 101u) EXPECT_EQ(tk->CloseElement(handle), -1);
  }
  // The root is never closed; no close path reports anything.
  log.clear();
  EXPECT_EQ(tk->CloseElement(100), -1);
  EXPECT_EQ(Xml(tk, 100), kConfig);
  EXPECT_EQ(tk->GetHandleCount(), 3u);
  EXPECT_TRUE(log.messages().empty()) << log.joined();
}

TEST(HandleTable, NoDocumentAndCloseAll) {
  Instance tk;
  MessageLog log;
  EXPECT_EQ(tk->OpenElement(static_cast<const char*>(nullptr)), 100u);
  EXPECT_EQ(tk->CloseElement(100), -1);
  EXPECT_TRUE(log.messages().empty());
  for (const char* path : {"", "cfg"}) {
    log.clear();
    EXPECT_EQ(tk->OpenElement(path), 0u) << path;
    EXPECT_EQ(log.joined(), "OpenElemnt: root element is invalid\n");
  }

  Load(tk, kConfig);
  const unsigned c = tk->OpenElement("c");
  const unsigned d = tk->OpenElement(c, 0u);
  // Opening one element twice gives two entries; closing one leaves the other.
  const unsigned again = tk->OpenElement(100u, 3u);
  EXPECT_EQ(tk->CloseElement(c), 0);
  EXPECT_EQ(Xml(tk, again), "<c><d/></c>");
  EXPECT_EQ(Xml(tk, d), "<d/>");
  tk->CloseAllElements();
  EXPECT_EQ(tk->GetHandleCount(), 0u);
  for (unsigned handle : {100u, d, again}) EXPECT_EQ(Xml(tk, handle), "") << handle;
  // The next document numbers from 100 again.
  Load(tk, kConfig);
  EXPECT_EQ(tk->OpenElement("c/d"), 101u);
}

TEST(OpenElementByPath, RootNameIsDroppedIgnoringCase) {
  Instance tk;
  Load(tk, "<cfg><net><ip/></net><cfg><x/></cfg></cfg>");
  MessageLog log;
  for (const char* path : {"", "cfg", "cfg/", "CFG/", "Cfg"}) {
    EXPECT_EQ(tk->OpenElement(path), 100u) << path;
  }
  const unsigned upper = tk->OpenElement("CFG/net");
  const unsigned bare = tk->OpenElement("net");
  EXPECT_EQ(upper, 101u);
  EXPECT_EQ(bare, 102u);
  EXPECT_EQ(Xml(tk, bare), "<net><ip/></net>");
  EXPECT_EQ(Xml(tk, upper), Xml(tk, bare));
  // Below the first component names are exact; a child named like the root is
  // reached only behind the root's own name.
  EXPECT_EQ(tk->OpenElement("CFG/NET"), 0u);
  EXPECT_EQ(tk->OpenElement("cfg/cfg"), 103u);
  EXPECT_EQ(Xml(tk, 103), "<cfg><x/></cfg>");
  EXPECT_EQ(tk->OpenElement("cfg/x"), 0u);
  // Misses are silent and add nothing.
  for (const char* path : {"nothing", "/", "//", "/cfg", "cfg//net", "cfgx"}) {
    EXPECT_EQ(tk->OpenElement(path), 0u) << path;
  }
  EXPECT_EQ(tk->OpenElement(std::string(10000, 'n').c_str()), 0u);
  EXPECT_EQ(tk->GetHandleCount(), 4u);
  EXPECT_TRUE(log.messages().empty()) << log.joined();
}

TEST(OpenElementByIndex, CountsEveryChildButOpensOnlyElements) {
  Instance tk;
  Load(tk, "<r>t<!--c--><?p x?><![CDATA[z]]><e>v</e></r>");
  MessageLog log;
  const struct {
    unsigned nodeType;
    const char* xml;
  } children[] = {{3, "t"}, {8, "<!--c-->"}, {7, "<?p x?>"}, {4, "<![CDATA[z]]>"}, {1, "<e>v</e>"}};
  for (unsigned index = 0; index < 5; ++index) {
    SCOPED_TRACE(index);
    EXPECT_EQ(tk->OpenElement(100u, index) != 0, children[index].nodeType == 1);
    unsigned handle = 0, nodeType = 0;
    ASSERT_EQ(tk->OpenElement(100u, index, &handle, &nodeType), 0);
    EXPECT_EQ(nodeType, children[index].nodeType);
    EXPECT_EQ(handle, tk->GetHandleCount() + 99);
    EXPECT_EQ(Xml(tk, handle), children[index].xml);
  }
  // Past the count, and indexes that compare as huge unsigned numbers; a text
  // node has no children to open.
  const unsigned text = 101;
  for (unsigned index : {5u, 0x80000000u, 0xFFFFFFFFu}) {
    unsigned handle = 9, nodeType = 9;
    EXPECT_EQ(tk->OpenElement(100u, index), 0u);
    EXPECT_EQ(tk->OpenElement(100u, index, &handle, &nodeType), -1);
    EXPECT_EQ(handle + nodeType, 18u);
    EXPECT_EQ(tk->OpenElement(text, 0u, &handle, &nodeType), -1);
  }
  // Missing out-arguments are refused, not written through.
  unsigned handle = 0;
  EXPECT_EQ(tk->OpenElement(100u, 4u, &handle, nullptr), -1);
  EXPECT_EQ(tk->OpenElement(100u, 4u, nullptr, &handle), -1);
  EXPECT_TRUE(log.messages().empty()) << log.joined();
}

}  // namespace
}  // namespace tk
