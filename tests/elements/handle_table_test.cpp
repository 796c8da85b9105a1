#include <gtest/gtest.h>

#include <string>

#include "support/handles.h"
#include "support/test_support.h"
#include "support/xml_text.h"

namespace {

using tk::test::DocumentText;
using tk::test::Instance;
using tk::test::LoadText;
using tk::test::MessageLog;
using tk::test::SubTreeText;

constexpr char kConfig[] = "<cfg><a/><a><b/></a>text<c><d/></c></cfg>";
constexpr char kNotLive[] = "<error -102>";  // the export of a handle that isn't live

using Tk = ITreeKeeper*;
char g_buffer[64];
unsigned g_size;
unsigned* Size() { return &(g_size = sizeof g_buffer); }

TEST(HandleTable, ClosingMiddleAndLastEntries) {
  Instance tk;
  ASSERT_EQ(LoadText(tk.tk, kConfig), 0);
  ASSERT_EQ(tk->OpenElement("a"), 101u);
  ASSERT_EQ(tk->OpenElement("c"), 102u);
  MessageLog log;
  // [root, A, B]: closing A leaves a slot and B keeps its handle; closing the
  // slot again while it is in the middle changes nothing.
  for (int i = 0; i < 2; ++i) EXPECT_EQ(tk->CloseElement(101), 0);
  EXPECT_EQ(tk->GetHandleCount(), 3u);
  EXPECT_EQ(SubTreeText(tk.tk, 101), kNotLive);
  EXPECT_EQ(SubTreeText(tk.tk, 102), "<c><d/></c>");
  // Closing the last entry shrinks the table; the slot below it stays.
  EXPECT_EQ(tk->CloseElementHandle(102), 0);
  EXPECT_EQ(tk->GetHandleCount(), 2u);
  EXPECT_EQ(tk->OpenElement("c"), 102u);  // appended, the slot is not reused
  EXPECT_EQ(tk->CloseElement(102), 0);
  // Now the slot is last: closing it removes it. The root is never closed.
  EXPECT_EQ(tk->CloseElement(101), 0);
  EXPECT_EQ(tk->GetHandleCount(), 1u);
  EXPECT_EQ(tk->CloseElement(100), -1);
  EXPECT_EQ(SubTreeText(tk.tk, 100), kConfig);
  EXPECT_TRUE(log.messages().empty()) << log.joined();
}

// What an operation answers: its result, and the message it sends, if any.
std::string Quiet(int result) { return std::to_string(result) + " "; }
std::string BadHandle(int result, const std::string& operation) {
  return Quiet(result) + operation + ": element handle is invalid\n";
}
std::string BadPath(const std::string& operation) {
  return Quiet(-102) + operation + ": element path is invalid\n";
}

// Each operation on a handle outside the table, on a closed slot, and (where
// it takes a path) on a path that names nothing.
TEST(HandleTable, EveryOperationRefusesWhatIsNotLive) {
  const std::string noPath;  // the operation takes no path
  const struct {
    int (*call)(Tk tk, unsigned handle, const char* path);
    std::string outside, closed, badPath;
  } cases[] = {
      {[](Tk tk, auto h, auto p) { return tk->GetElementValue(h, p, 2, Size(), g_buffer); },
       BadHandle(-6, "GetElementValue"), BadHandle(-6, "GetElementValue"), Quiet(-102)},
      {[](Tk tk, auto h, auto p) { return tk->SetElementValue(h, p, 2, 1, "v"); },
       Quiet(-6), Quiet(-6), Quiet(-102)},
      {[](Tk tk, auto h, auto p) { return tk->GetElementCDATAValue(h, p, 2, Size(), g_buffer); },
       Quiet(-6), BadHandle(-6, "GetElementCDATAValue"), BadPath("GetElementCDATAValue")},
      {[](Tk tk, auto h, auto p) { return tk->SetElementCDATAValue(h, p, 2, 1, "v"); },
       Quiet(-6), Quiet(-6), Quiet(-102)},
      {[](Tk tk, auto h, auto p) { return tk->GetAttributeValue(h, p, "a", 2, Size(), g_buffer); },
       Quiet(-6), Quiet(-6), BadPath("GetAttributeValue")},
      {[](Tk tk, auto h, auto p) { return tk->setAttributeValue(h, p, "a", 2, 0, "v"); },
       Quiet(-6), BadHandle(-6, "setAttributeValue"), BadPath("setAttributeValue")},
      {[](Tk tk, auto h, auto p) { return tk->DeleteAttribute(h, p, "a"); },
       BadHandle(-6, "DeleteAttribute"), BadHandle(-6, "DeleteAttribute"),
       BadPath("DeleteAttribute")},
      {[](Tk tk, auto h, auto p) { return tk->EnumAttribute(h, p, Size(), g_buffer, Size()); },
       BadHandle(-6, "EnumAttribute"), BadHandle(-6, "EnumAttribute"), BadPath("EnumAttribute")},
      {[](Tk tk, auto h, auto) { return tk->EnumElement(h, Size()); },
       Quiet(-6), BadHandle(-6, "EnumElement"), noPath},
      {[](Tk tk, auto h, auto p) { return tk->EnumElement(h, p, "a", Size(), nullptr); },
       Quiet(-6), BadHandle(-6, "EnumElement"), BadPath("EnumElement(with same name)")},
      {[](Tk tk, auto h, auto) { return tk->GetElementName(h, g_buffer, Size()); },
       BadHandle(-6, "GetElementName"), BadHandle(-6, "GetElementName"), noPath},
      {[](Tk tk, auto h, auto) { return tk->CreateElement(h, "n", nullptr); },
       Quiet(-6), Quiet(-6), noPath},
      {[](Tk tk, auto h, auto p) { return tk->DeleteElement(h, p ? p : "a"); },
       Quiet(-102), Quiet(-6), Quiet(-102)},
      {[](Tk tk, auto h, auto) { return static_cast<int>(tk->OpenElement(h, 0u)); },
       BadHandle(0, "OpenElement"), BadHandle(0, "OpenElement"), noPath},
      {[](Tk tk, auto h, auto) {
         unsigned outHandle = 7, outType = 7;
         const int result = tk->OpenElement(h, 0u, &outHandle, &outType);
         return outHandle + outType == 14 ? result : 999;  // both left alone
       },
       BadHandle(-1, "OpenElement"), BadHandle(-1, "OpenElement"), noPath},
      {[](Tk tk, auto h, auto) {
         unsigned outHandle = 7;
         const int result = tk->OpenElement(h, 0u, &outHandle);
         return outHandle == 0 ? result : 999;  // set to 0
       },
       BadHandle(-102, "OpenElement"), BadHandle(-102, "OpenElement"), noPath},
      {[](Tk tk, auto h, auto) { return tk->CloseElement(h); }, Quiet(-1), Quiet(0), noPath},
  };
  Instance tk;
  ASSERT_EQ(LoadText(tk.tk, "<r a=\"1\"><a/><x/></r>"), 0);
  const unsigned closed = tk::test::OpenClosedSlot(tk.tk, "x");
  MessageLog log;
  auto outcome = [&](int result) {
    const std::string text = std::to_string(result) + " " + log.joined();
    log.clear();
    return text;
  };
  int row = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << row++);
    // Below the root, past the end, and where a signed comparison would go wrong.
    for (const unsigned outside : {0u, 99u, 103u, 0x80000064u}) {
      EXPECT_EQ(outcome(c.call(tk.tk, outside, nullptr)), c.outside) << outside;
    }
    EXPECT_EQ(outcome(c.call(tk.tk, closed, nullptr)), c.closed);
    if (!c.badPath.empty()) {
      EXPECT_EQ(outcome(c.call(tk.tk, 100, "nowhere")), c.badPath);
    }
  }
  EXPECT_EQ(DocumentText(tk.tk), "<r a=\"1\"><a/><x/></r>");
  EXPECT_EQ(tk->GetHandleCount(), 3u);
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
  ASSERT_EQ(LoadText(tk.tk, kConfig), 0);
  const unsigned c = tk->OpenElement("c");
  const unsigned d = tk->OpenElement(c, 0u);
  // Opening one element twice gives two entries; closing one leaves the other.
  const unsigned again = tk->OpenElement(100u, 3u);
  EXPECT_EQ(tk->CloseElement(c), 0);
  EXPECT_EQ(SubTreeText(tk.tk, again), "<c><d/></c>");
  EXPECT_EQ(SubTreeText(tk.tk, d), "<d/>");
  tk->CloseAllElements();
  EXPECT_EQ(tk->GetHandleCount(), 0u);
  for (unsigned handle : {100u, d, again}) EXPECT_EQ(SubTreeText(tk.tk, handle), kNotLive);
  // The next document numbers from 100 again.
  ASSERT_EQ(LoadText(tk.tk, kConfig), 0);
  EXPECT_EQ(tk->OpenElement("c/d"), 101u);
}

TEST(OpenElementByIndex, CountsEveryChildButOpensOnlyElements) {
  Instance tk;
  ASSERT_EQ(LoadText(tk.tk, "<r>t<!--c--><?p x?><![CDATA[z]]><e>v</e></r>"), 0);
  MessageLog log;
  // "node type: XML" of each child; only the element opens in the short form.
  const char* const children[] = {"3: t", "8: <!--c-->", "7: <?p x?>", "4: <![CDATA[z]]>",
                                  "1: <e>v</e>"};
  for (unsigned index = 0; index < 5; ++index) {
    EXPECT_EQ(tk->OpenElement(100u, index) != 0, index == 4) << index;
    unsigned handle = 0, nodeType = 0;
    ASSERT_EQ(tk->OpenElement(100u, index, &handle, &nodeType), 0);
    EXPECT_EQ(handle, tk->GetHandleCount() + 99);
    EXPECT_EQ(std::to_string(nodeType) + ": " + SubTreeText(tk.tk, handle), children[index]);
  }
  // Past the count, and indexes that compare as huge unsigned numbers; a text
  // node has no children to open.
  for (unsigned index : {5u, 0x80000000u}) {
    unsigned handle = 9, nodeType = 9;
    EXPECT_EQ(tk->OpenElement(100u, index), 0u);
    EXPECT_EQ(tk->OpenElement(100u, index, &handle, &nodeType), -1);
    EXPECT_EQ(handle + nodeType, 18u);
  }
  unsigned handle = 0;
  EXPECT_EQ(tk->OpenElement(101u, 0u, &handle, &handle), -1);  // 101 is the text node
  // Missing out-arguments are refused, not written through.
  EXPECT_EQ(tk->OpenElement(100u, 4u, &handle, nullptr), -1);
  EXPECT_EQ(tk->OpenElement(100u, 4u, nullptr, &handle), -1);
  EXPECT_TRUE(log.messages().empty()) << log.joined();
}

}  // namespace
