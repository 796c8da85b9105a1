#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "support/test_support.h"
#include "support/xml_text.h"

namespace {

using tk::test::DocumentText;
using tk::test::Instance;
using tk::test::MessageLog;
using tk::test::ReloadText;
using tk::test::ResultText;

constexpr uint32_t kUntouched = 0xA5A5A5A5u;

// Reads a text value the way a client does: ask for the size, then read.
std::string ReadText(ITreeKeeper* tk, const char* path = nullptr) {
  unsigned size = 0;
  const int asked = tk->GetElementValue(100, path, TK_VALUE_TEXT, &size, nullptr);
  if (asked != -105) return ResultText(asked);
  std::vector<char> buffer(size + 1, '#');
  const int read = tk->GetElementValue(100, path, TK_VALUE_TEXT, &size, buffer.data());
  return read != 0 ? ResultText(read) : std::string(buffer.data(), size - 1);
}

int WriteText(ITreeKeeper* tk, const std::string& value) {
  return tk->SetElementValue(100, nullptr, TK_VALUE_TEXT, static_cast<unsigned>(value.size()),
                             value.data());
}

TEST(ElementValueRead, NumbersComeOnlyFromDecimalDigits) {
  const struct {
    const char* text;
    uint32_t value;
  } cases[] = {
      {"1234", 1234}, {"0042", 42}, {"0", 0}, {"4294967295", ~0u}, {"4294967296", ~0u},
      {"123456789012345678901234567890", ~0u},
      // Anything but plain digits reads as success and leaves the buffer alone.
      {"12x", kUntouched}, {"-1", kUntouched}, {"+1", kUntouched}, {" 12", kUntouched},
      {"1 2", kUntouched}, {"0x10", kUntouched}, {"\xD9\xA1", kUntouched},
  };
  Instance tk;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    ASSERT_EQ(ReloadText(tk.tk, std::string("<e>") + c.text + "</e>"), 0);
    uint32_t value = kUntouched;
    unsigned size = 4;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_NUMBER, &size, &value), 0);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(value, c.value);
  }
}

TEST(ElementValueRead, BinaryFromHexDigits) {
  const struct {
    const char* text;
    std::vector<unsigned char> bytes;  // what the read leaves at the buffer's start
    unsigned size;
  } cases[] = {
      {"0aFF", {0x0A, 0xFF}, 2},
      {"abc", {0xAB, 0xC0}, 2},   // a lone last digit is a high nibble
      {"a1zz", {0xA1, 0x00}, 2},  // a bad pair is stored as 0, still success
      {"0g12", {0x00, 0xEE}, 2},  // decoding stops at the bad pair
      {"A", {0xA0}, 1},
  };
  Instance tk;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    ASSERT_EQ(ReloadText(tk.tk, std::string("<e>") + c.text + "</e>"), 0);
    unsigned char buffer[8];
    std::memset(buffer, 0xEE, sizeof buffer);
    unsigned size = sizeof buffer;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_BINARY, &size, buffer), 0);
    EXPECT_EQ(size, c.size);
    EXPECT_EQ(std::vector<unsigned char>(buffer, buffer + c.bytes.size()), c.bytes);
    EXPECT_EQ(buffer[c.bytes.size()], 0xEE);
  }
}

// A null or short buffer is never written and gives the size needed.
TEST(ElementValueRead, SizeProtocol) {
  const struct {
    int type;
    unsigned capacity;
    bool withBuffer;
    int result;
    unsigned size;
  } cases[] = {
      {TK_VALUE_NUMBER, 3, true, -105, 4},  {TK_VALUE_NUMBER, 100, false, -105, 4},
      {TK_VALUE_BINARY, 1, true, -105, 2},  {TK_VALUE_BINARY, 100, false, -105, 2},
      {TK_VALUE_BINARY, 2, true, 0, 2},     {TK_VALUE_TEXT, 3, true, -105, 4},
      {TK_VALUE_TEXT, 100, false, -105, 4}, {TK_VALUE_TEXT, 4, true, 0, 4},
  };
  Instance tk;
  ASSERT_EQ(ReloadText(tk.tk, "<e>abc</e>"), 0);
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "type " << c.type << " capacity " << c.capacity);
    char buffer[8] = "#######";
    unsigned size = c.capacity;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, c.type, &size, c.withBuffer ? buffer : nullptr),
              c.result);
    EXPECT_EQ(size, c.size);
    if (c.result != 0) EXPECT_STREQ(buffer, "#######");
  }
}

// A code page the system refuses gives an empty text.
TEST(ElementValueRead, TextInTheAskedCodePage) {
  const struct {
    const char* value;  // UTF-8 in the document
    unsigned codePage;
    std::string bytes;  // delivered, terminator included
    unsigned asked;     // the size a null buffer hears
  } cases[] = {
      {"\xC3\xA9\xE2\x82\xAC", 65001, std::string("\xC3\xA9\xE2\x82\xAC", 6), 6},
      {"\xC3\xA9\xE2\x82\xAC", 1252, std::string("\xE9\x80", 3), 3},
      {"\xC4\x80", 1252, std::string("?", 2), 2},  // no best-fit letter A
      {"\xF0\x9F\x98\x80", 65001, std::string("\xF0\x9F\x98\x80", 5), 5},
      {"a<b&c", 65001, std::string("a<b&c", 6), 6},
      {"abc", 4242, std::string("", 1), 0},
  };
  Instance tk;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.value);
    ASSERT_EQ(ReloadText(tk.tk, "<e/>"), 0);
    ASSERT_EQ(WriteText(tk.tk, c.value), 0);
    unsigned size = 7;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_TEXT, &size, nullptr, c.codePage), -105);
    EXPECT_EQ(size, c.asked);
    char buffer[16];
    size = sizeof buffer;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_TEXT, &size, buffer, c.codePage), 0);
    ASSERT_EQ(size, c.bytes.size());
    EXPECT_EQ(std::string(buffer, size), c.bytes);
  }
}

TEST(ElementValueRead, OnlyTextChildrenCount) {
  const struct {
    const char* xml;
    int result;
  } cases[] = {
      {"<e/>", -107},                // no children at all
      {"<e><c>1</c></e>", -1},       // an element is no text child
      {"<e><![CDATA[1]]></e>", -1},  // nor is a CDATA section
      {"<e><?pi 1?><!--1--></e>", -1},
  };
  Instance tk;
  for (const auto& c : cases) {
    ASSERT_EQ(ReloadText(tk.tk, c.xml), 0);
    for (const int type : {TK_VALUE_NUMBER, TK_VALUE_BINARY, TK_VALUE_TEXT}) {
      for (const bool withBuffer : {false, true}) {
        SCOPED_TRACE(testing::Message() << c.xml << " type " << type << " buffer " << withBuffer);
        char buffer[16] = "untouched";
        unsigned size = 16;
        EXPECT_EQ(tk->GetElementValue(100, nullptr, type, &size, withBuffer ? buffer : nullptr),
                  c.result);
        EXPECT_EQ(size, 16u);
        EXPECT_STREQ(buffer, "untouched");
      }
    }
  }
}

// Each text child is read in turn; the size one leaves is the capacity for
// the next, and the last decides.
TEST(ElementValueRead, LastTextChildDecides) {
  Instance tk;
  ASSERT_EQ(ReloadText(tk.tk, "<e>one<!--c-->three</e>"), 0);
  for (const unsigned capacity : {100u, 6u}) {
    char buffer[100] = {};
    unsigned size = capacity;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_TEXT, &size, buffer), -105);
    EXPECT_EQ(size, 6u);
    EXPECT_STREQ(buffer, "one");
  }
  ASSERT_EQ(ReloadText(tk.tk, "<e>three<!--c-->one</e>"), 0);
  char buffer[100] = {};
  unsigned size = sizeof buffer;
  EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_TEXT, &size, buffer), 0);
  EXPECT_EQ(size, 4u);
  EXPECT_STREQ(buffer, "one");
  // The later child's bad digits leave the earlier child's number.
  ASSERT_EQ(ReloadText(tk.tk, "<e>12<!--c-->x</e>"), 0);
  uint32_t value = kUntouched;
  size = 4;
  EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_NUMBER, &size, &value), 0);
  EXPECT_EQ(value, 12u);
}

TEST(ElementValue, HandleAndPathFailures) {
  Instance tk;
  ASSERT_EQ(ReloadText(tk.tk, "<r><a><b>v</b></a><x/><y/></r>"), 0);
  ASSERT_EQ(tk->OpenElement("x"), 101u);
  ASSERT_EQ(tk->OpenElement("y"), 102u);
  ASSERT_EQ(tk->CloseElement(101), 0);  // 101 is now a closed slot
  EXPECT_EQ(ReadText(tk.tk, "a/b"), "v");

  char buffer[8];
  unsigned size = sizeof buffer;
  MessageLog log;
  for (const unsigned handle : {0u, 99u, 101u, 103u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(handle);
    log.clear();
    EXPECT_EQ(tk->GetElementValue(handle, nullptr, TK_VALUE_TEXT, &size, buffer), -6);
    EXPECT_EQ(log.joined(), "GetElementValue: element handle is invalid\n");
    log.clear();
    EXPECT_EQ(tk->SetElementValue(handle, nullptr, TK_VALUE_TEXT, 1, "v"), -6);
    EXPECT_EQ(log.joined(), "");
  }
  EXPECT_EQ(tk->GetElementValue(100, "a/c", TK_VALUE_TEXT, &size, buffer), -102);
  EXPECT_EQ(tk->SetElementValue(100, "a/c", TK_VALUE_TEXT, 1, "v"), -102);
  EXPECT_EQ(tk->SetElementValue(100, "b", TK_VALUE_TEXT, 1, "v"), -102);
  EXPECT_EQ(log.joined(), "");
  // A handle on a text node names a node without children: reads find
  // nothing, and writes can't add a child there.
  unsigned text = 0, nodeType = 0;
  ASSERT_EQ(tk->OpenElement(tk->OpenElement("a/b"), 0, &text, &nodeType), 0);
  ASSERT_EQ(nodeType, 3u);
  size = 5;
  EXPECT_EQ(tk->GetElementValue(text, nullptr, TK_VALUE_TEXT, &size, nullptr), -107);
  EXPECT_EQ(tk->GetElementCDATAValue(text, nullptr, TK_VALUE_TEXT, &size, nullptr), -107);
  EXPECT_EQ(size, 5u);
  EXPECT_EQ(tk->SetElementValue(text, nullptr, TK_VALUE_TEXT, 1, "v"), -1);
  EXPECT_EQ(tk->SetElementCDATAValue(text, nullptr, TK_VALUE_TEXT, 1, "v"), -1);
  EXPECT_EQ(DocumentText(tk.tk), "<r><a><b>v</b></a><x/><y/></r>");
}

// The first text child takes the value; the other children stay where they
// are and no second copy of the value is made.
TEST(ElementValueWrite, ValueTypesAndPlace) {
  const uint32_t zero = 0, largest = 0xFFFFFFFFu;
  const unsigned char bytes[] = {0x00, 0x0F, 0xA0};
  const struct {
    const char* before;  // the children of e
    int type;
    unsigned size;
    const void* data;
    const char* after;
  } cases[] = {
      {"", TK_VALUE_NUMBER, 12345, &zero, "0"},  // size is not looked at
      {"", TK_VALUE_NUMBER, 0, &largest, "4294967295"},
      {"", TK_VALUE_BINARY, 3, bytes, "000fa0"},
      {"", TK_VALUE_TEXT, 3, "a\0b", "a"},  // a NUL ends the text
      {"", TK_VALUE_TEXT, 2, "abc", "ab"},  // size bytes, no terminator needed
      {"", 7, 3, "xyz", "xyz"},             // any other type is text
      {"", TK_VALUE_TEXT, 5, "a<b&c", "a&lt;b&amp;c"},
      {"old", TK_VALUE_TEXT, 3, "n\xC3\xA9", "n\xC3\xA9"},
      {"old<!--c-->x", TK_VALUE_TEXT, 3, "new", "new<!--c-->x"},
      {"<c/>", TK_VALUE_TEXT, 1, "v", "<c/>v"},
      {"<![CDATA[c]]><!--k-->", TK_VALUE_TEXT, 1, "v", "<![CDATA[c]]><!--k-->v"},
  };
  Instance tk;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.after);
    ASSERT_EQ(ReloadText(tk.tk, std::string("<r><e>") + c.before + "</e></r>"), 0);
    EXPECT_EQ(tk->SetElementValue(100, "e", c.type, c.size, c.data), 0);
    EXPECT_EQ(DocumentText(tk.tk), std::string("<r><e>") + c.after + "</e></r>");
  }
}

TEST(ElementValueWrite, EmptyValueMakesAnEmptyTextChild) {
  Instance tk;
  for (const int type : {TK_VALUE_TEXT, TK_VALUE_BINARY}) {
    SCOPED_TRACE(type);
    ASSERT_EQ(ReloadText(tk.tk, "<e/>"), 0);
    EXPECT_EQ(tk->SetElementValue(100, nullptr, type, 0, nullptr), 0);
    EXPECT_EQ(ReadText(tk.tk), "");
    uint32_t number = kUntouched;
    unsigned size = 4;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_NUMBER, &size, &number), -107);
    size = 3;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_NUMBER, &size, &number), -105);
    EXPECT_EQ(size, 4u);
    unsigned char binary[4];
    size = sizeof binary;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_BINARY, &size, binary), 0);
    EXPECT_EQ(size, 0u);
  }
  EXPECT_EQ(tk->SetElementValue(100, nullptr, TK_VALUE_NUMBER, 4, nullptr), -1);
}

// A character XML can't hold is refused and nothing is written; bytes that
// are no UTF-8 are replaced. Characters of the outer planes come back whole.
TEST(ElementValueWrite, BadTextAndOuterPlanes) {
  Instance tk;
  for (const char* before : {"<e/>", "<e>old</e>", "<e><c/></e>"}) {
    SCOPED_TRACE(before);
    ASSERT_EQ(ReloadText(tk.tk, before), 0);
    EXPECT_EQ(WriteText(tk.tk, "a\x01z"), -1);
    EXPECT_EQ(DocumentText(tk.tk), before);
    EXPECT_EQ(WriteText(tk.tk, "\xFF\xC3ok\xE2"), 0);
    const std::string read = ReadText(tk.tk);
    EXPECT_NE(read.find("\xEF\xBF\xBDok"), std::string::npos) << read;
    EXPECT_EQ(read.find('\xFF'), std::string::npos) << read;
  }
  // The first and last characters of the first and the last supplementary plane.
  const std::string planes =
      "A\xC3\xA9\xE2\x82\xAC\xEF\xBF\xBD\xF0\x90\x80\x80\xF0\x9F\xBF\xBF"
      "\xF4\x80\x80\x80\xF4\x8F\xBF\xBF";
  ASSERT_EQ(WriteText(tk.tk, planes), 0);
  EXPECT_EQ(ReadText(tk.tk), planes);
}

}  // namespace
