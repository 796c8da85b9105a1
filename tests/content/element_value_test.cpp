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
using tk::test::LoadText;
using tk::test::MessageLog;

constexpr uint32_t kUntouched = 0xA5A5A5A5u;
const int kAllTypes[] = {TK_VALUE_NUMBER, TK_VALUE_BINARY, TK_VALUE_TEXT};

// Reads a text value the way a client does: ask for the size, then read.
std::string ReadText(ITreeKeeper* tk, const char* path = nullptr, unsigned codePage = 65001) {
  unsigned size = 0;
  const int asked = tk->GetElementValue(100, path, TK_VALUE_TEXT, &size, nullptr, codePage);
  if (asked != -105) return "<result " + std::to_string(asked) + ">";
  std::vector<char> buffer(size + 1, '#');
  const int read = tk->GetElementValue(100, path, TK_VALUE_TEXT, &size, buffer.data(), codePage);
  if (read != 0) return "<result " + std::to_string(read) + ">";
  return std::string(buffer.data(), size - 1);
}

TEST(ElementValueRead, NumbersComeOnlyFromDecimalDigits) {
  struct Case {
    const char* text;
    uint32_t value;
  } const cases[] = {
      {"1234", 1234},        {"0042", 42},          {"0", 0},
      {"4294967295", 0xFFFFFFFFu}, {"4294967296", 0xFFFFFFFFu},
      {"123456789012345678901234567890", 0xFFFFFFFFu},
      // Anything but plain digits reads as success and leaves the buffer alone.
      {"12x", kUntouched},   {"-1", kUntouched},    {"+1", kUntouched},
      {" 12", kUntouched},   {"1 2", kUntouched},   {"0x10", kUntouched},
      {"\xD9\xA1", kUntouched},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    Instance tk;
    ASSERT_EQ(LoadText(tk.tk, std::string("<e>") + c.text + "</e>"), 0);
    uint32_t value = kUntouched;
    unsigned size = 4;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_NUMBER, &size, &value), 0);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(value, c.value);
  }
}

TEST(ElementValueRead, BinaryFromHexDigits) {
  struct Case {
    const char* text;
    std::vector<unsigned char> bytes;  // what the read leaves at the buffer's start
    unsigned size;
  } const cases[] = {
      {"0aFF", {0x0A, 0xFF}, 2},
      {"abc", {0xAB, 0xC0}, 2},        // a lone last digit is a high nibble
      {"a1zz", {0xA1, 0x00}, 2},       // a bad pair is stored as 0, still success
      {"0g12", {0x00, 0xEE}, 2},       // decoding stops at the bad pair
      {"A", {0xA0}, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    Instance tk;
    ASSERT_EQ(LoadText(tk.tk, std::string("<e>") + c.text + "</e>"), 0);
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
  struct Case {
    int type;
    unsigned capacity;
    bool withBuffer;
    int result;
    unsigned size;
  } const cases[] = {
      {TK_VALUE_NUMBER, 3, true, -105, 4},  {TK_VALUE_NUMBER, 100, false, -105, 4},
      {TK_VALUE_BINARY, 1, true, -105, 2},  {TK_VALUE_BINARY, 100, false, -105, 2},
      {TK_VALUE_BINARY, 2, true, 0, 2},     {TK_VALUE_TEXT, 3, true, -105, 4},
      {TK_VALUE_TEXT, 100, false, -105, 4}, {TK_VALUE_TEXT, 4, true, 0, 4},
  };
  Instance tk;
  ASSERT_EQ(LoadText(tk.tk, "<e>abc</e>"), 0);
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "type " << c.type << " capacity " << c.capacity);
    char buffer[8] = "#######";
    unsigned size = c.capacity;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, c.type, &size, c.withBuffer ? buffer : nullptr),
              c.result);
    EXPECT_EQ(size, c.size);
    if (c.result != 0) {
      EXPECT_STREQ(buffer, "#######");
    }
  }
  char text[4];
  unsigned size = sizeof text;
  ASSERT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_TEXT, &size, text), 0);
  EXPECT_STREQ(text, "abc");
}

TEST(ElementValueRead, TextInTheAskedCodePage) {
  struct Case {
    const char* value;  // UTF-8 in the document
    unsigned codePage;
    std::string bytes;  // delivered, terminator included
  } const cases[] = {
      {"\xC3\xA9\xE2\x82\xAC", 65001, std::string("\xC3\xA9\xE2\x82\xAC", 6)},
      {"\xC3\xA9\xE2\x82\xAC", 1252, std::string("\xE9\x80", 3)},
      {"\xC4\x80", 1252, std::string("?", 2)},  // no best-fit letter A
      {"\xF0\x9F\x98\x80", 65001, std::string("\xF0\x9F\x98\x80", 5)},
      {"a<b&c", 65001, std::string("a<b&c", 6)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.value);
    Instance tk;
    ASSERT_EQ(tk->CreateEmpty("e"), 0);
    ASSERT_EQ(tk->SetElementValue(100, nullptr, TK_VALUE_TEXT,
                                  static_cast<unsigned>(std::strlen(c.value)), c.value),
              0);
    char buffer[16];
    unsigned size = sizeof buffer;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_TEXT, &size, buffer, c.codePage), 0);
    ASSERT_EQ(size, c.bytes.size());
    EXPECT_EQ(std::string(buffer, size), c.bytes);
  }
}

TEST(ElementValueRead, RefusedCodePageGivesEmptyText) {
  Instance tk;
  ASSERT_EQ(LoadText(tk.tk, "<e>abc</e>"), 0);
  unsigned size = 7;
  EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_TEXT, &size, nullptr, 4242), -105);
  EXPECT_EQ(size, 0u);
  char buffer[8] = "#######";
  size = sizeof buffer;
  EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_TEXT, &size, buffer, 4242), 0);
  EXPECT_EQ(size, 1u);
  EXPECT_EQ(buffer[0], '\0');
}

TEST(ElementValueRead, OnlyTextChildrenCount) {
  struct Case {
    const char* xml;
    int result;
  } const cases[] = {
      {"<e/>", -107},                       // no children at all
      {"<e><c>1</c></e>", -1},              // an element is no text child
      {"<e><![CDATA[1]]></e>", -1},         // nor is a CDATA section
      {"<e><?pi 1?><!--1--></e>", -1},
  };
  for (const Case& c : cases) {
    for (const int type : kAllTypes) {
      for (const bool withBuffer : {false, true}) {
        SCOPED_TRACE(std::string(c.xml) + " type " + std::to_string(type) +
                     (withBuffer ? " buffer" : " null"));
        Instance tk;
        ASSERT_EQ(LoadText(tk.tk, c.xml), 0);
        char buffer[16] = "untouched";
        unsigned size = 16;
        EXPECT_EQ(tk->GetElementValue(100, nullptr, type, &size, withBuffer ? buffer : nullptr),
                  c.result);
        EXPECT_EQ(size, 16u);
        EXPECT_STREQ(buffer, "untouched");
      }
    }
  }
  Instance tk;
  ASSERT_EQ(LoadText(tk.tk, "<e>t<![CDATA[c]]></e>"), 0);
  EXPECT_EQ(ReadText(tk.tk), "t");
}

// Each text child is read in turn; the size one leaves is the capacity for
// the next, and the last decides.
TEST(ElementValueRead, LastTextChildDecides) {
  {
    Instance tk;
    ASSERT_EQ(LoadText(tk.tk, "<e>one<!--c-->three</e>"), 0);
    for (const unsigned capacity : {100u, 6u}) {
      char buffer[100] = {};
      unsigned size = capacity;
      EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_TEXT, &size, buffer), -105);
      EXPECT_EQ(size, 6u);
      EXPECT_STREQ(buffer, "one");
    }
  }
  {
    Instance tk;
    ASSERT_EQ(LoadText(tk.tk, "<e>three<!--c-->one</e>"), 0);
    char buffer[100] = {};
    unsigned size = sizeof buffer;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_TEXT, &size, buffer), 0);
    EXPECT_EQ(size, 4u);
    EXPECT_STREQ(buffer, "one");
  }
  {
    // The later child's bad digits leave the earlier child's number.
    Instance tk;
    ASSERT_EQ(LoadText(tk.tk, "<e>12<!--c-->x</e>"), 0);
    uint32_t value = kUntouched;
    unsigned size = 4;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_NUMBER, &size, &value), 0);
    EXPECT_EQ(value, 12u);
  }
}

TEST(ElementValue, HandleAndPathFailures) {
  Instance tk;
  ASSERT_EQ(LoadText(tk.tk, "<r><a><b>v</b></a><x/><y/></r>"), 0);
  ASSERT_EQ(tk->OpenElement("x"), 101u);
  ASSERT_EQ(tk->OpenElement("y"), 102u);
  ASSERT_EQ(tk->CloseElement(101), 0);  // 101 is now a closed slot

  EXPECT_EQ(ReadText(tk.tk, "a/b"), "v");

  char buffer[8];
  unsigned size = sizeof buffer;
  const char value[] = "v";
  for (const unsigned handle : {0u, 99u, 101u, 103u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(handle);
    MessageLog log;
    EXPECT_EQ(tk->GetElementValue(handle, nullptr, TK_VALUE_TEXT, &size, buffer), -6);
    EXPECT_EQ(log.joined(), "GetElementValue: element handle is invalid\n");
    log.clear();
    EXPECT_EQ(tk->SetElementValue(handle, nullptr, TK_VALUE_TEXT, 1, value), -6);
    EXPECT_EQ(log.joined(), "");
  }
  MessageLog log;
  EXPECT_EQ(tk->GetElementValue(100, "a/c", TK_VALUE_TEXT, &size, buffer), -102);
  EXPECT_EQ(tk->SetElementValue(100, "a/c", TK_VALUE_TEXT, 1, value), -102);
  EXPECT_EQ(tk->SetElementValue(100, "b", TK_VALUE_TEXT, 1, value), -102);
  EXPECT_EQ(log.joined(), "");
  EXPECT_EQ(DocumentText(tk.tk), "<r><a><b>v</b></a><x/><y/></r>");
}

// A handle on a text node names a node without children: reads find
// nothing, and writes can't add a child there.
TEST(ElementValue, HandleOnATextNode) {
  Instance tk;
  ASSERT_EQ(LoadText(tk.tk, "<e>txt</e>"), 0);
  unsigned handle = 0;
  unsigned nodeType = 0;
  ASSERT_EQ(tk->OpenElement(100, 0, &handle, &nodeType), 0);
  ASSERT_EQ(nodeType, 3u);
  unsigned size = 5;
  EXPECT_EQ(tk->GetElementValue(handle, nullptr, TK_VALUE_TEXT, &size, nullptr), -107);
  EXPECT_EQ(tk->GetElementCDATAValue(handle, nullptr, TK_VALUE_TEXT, &size, nullptr), -107);
  EXPECT_EQ(size, 5u);
  EXPECT_EQ(tk->SetElementValue(handle, nullptr, TK_VALUE_TEXT, 1, "v"), -1);
  EXPECT_EQ(tk->SetElementCDATAValue(handle, nullptr, TK_VALUE_TEXT, 1, "v"), -1);
  EXPECT_EQ(DocumentText(tk.tk), "<e>txt</e>");
}

TEST(ElementValueWrite, ValueTypesAndTheirText) {
  const uint32_t zero = 0;
  const uint32_t largest = 0xFFFFFFFFu;
  const unsigned char bytes[] = {0x00, 0x0F, 0xA0};
  struct Case {
    int type;
    unsigned size;
    const void* data;
    const char* text;
  } const cases[] = {
      {TK_VALUE_NUMBER, 12345, &zero, "0"},  // size is not looked at
      {TK_VALUE_NUMBER, 0, &largest, "4294967295"},
      {TK_VALUE_BINARY, 3, bytes, "000fa0"},
      {TK_VALUE_TEXT, 3, "a\0b", "a"},       // a NUL ends the text
      {TK_VALUE_TEXT, 2, "abc", "ab"},       // size bytes, no terminator needed
      {7, 3, "xyz", "xyz"},                  // any other type is text
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    Instance tk;
    ASSERT_EQ(LoadText(tk.tk, "<r><e/></r>"), 0);
    EXPECT_EQ(tk->SetElementValue(100, "e", c.type, c.size, c.data), 0);
    EXPECT_EQ(DocumentText(tk.tk), std::string("<r><e>") + c.text + "</e></r>");
  }
}

TEST(ElementValueWrite, EmptyValueMakesAnEmptyTextChild) {
  for (const int type : {TK_VALUE_TEXT, TK_VALUE_BINARY}) {
    SCOPED_TRACE(type);
    Instance tk;
    ASSERT_EQ(tk->CreateEmpty("e"), 0);
    EXPECT_EQ(tk->SetElementValue(100, nullptr, type, 0, nullptr), 0);
    EXPECT_EQ(ReadText(tk.tk), "");
    uint32_t number = kUntouched;
    unsigned size = 4;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_NUMBER, &size, &number), -107);
    EXPECT_EQ(size, 4u);
    size = 3;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_NUMBER, &size, &number), -105);
    EXPECT_EQ(size, 4u);
    unsigned char bytes[4];
    size = sizeof bytes;
    EXPECT_EQ(tk->GetElementValue(100, nullptr, TK_VALUE_BINARY, &size, bytes), 0);
    EXPECT_EQ(size, 0u);
  }
  Instance tk;
  ASSERT_EQ(tk->CreateEmpty("e"), 0);
  EXPECT_EQ(tk->SetElementValue(100, nullptr, TK_VALUE_NUMBER, 4, nullptr), -1);
}

// The first text child takes the value; the other children stay where they
// are and no second copy of the value is made.
TEST(ElementValueWrite, PlaceOfTheValue) {
  struct Case {
    const char* before;
    const char* value;
    const char* after;
    const char* read;
  } const cases[] = {
      {"<e/>", "v", "<e>v</e>", "v"},
      {"<e>old</e>", "new", "<e>new</e>", "new"},
      {"<e>old<!--c-->x</e>", "new", "<e>new<!--c-->x</e>", "x"},
      {"<e><c/></e>", "v", "<e><c/>v</e>", "v"},
      {"<e><![CDATA[c]]><!--k--></e>", "v", "<e><![CDATA[c]]><!--k-->v</e>", "v"},
      {"<e>old</e>", "n\xC3\xA9", "<e>n\xC3\xA9</e>", "n\xC3\xA9"},
      {"<e/>", "a<b&c", "<e>a&lt;b&amp;c</e>", "a<b&c"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.before);
    Instance tk;
    ASSERT_EQ(LoadText(tk.tk, c.before), 0);
    EXPECT_EQ(tk->SetElementValue(100, nullptr, TK_VALUE_TEXT,
                                  static_cast<unsigned>(std::strlen(c.value)), c.value),
              0);
    EXPECT_EQ(DocumentText(tk.tk), c.after);
    EXPECT_EQ(ReadText(tk.tk), c.read);
  }
}

// A character XML can't hold is refused and nothing is written; bytes that
// are no UTF-8 are replaced.
TEST(ElementValueWrite, BadText) {
  for (const char* before : {"<e/>", "<e>old</e>", "<e><c/></e>"}) {
    SCOPED_TRACE(before);
    Instance tk;
    ASSERT_EQ(LoadText(tk.tk, before), 0);
    EXPECT_EQ(tk->SetElementValue(100, nullptr, TK_VALUE_TEXT, 3, "a\x01z"), -1);
    EXPECT_EQ(DocumentText(tk.tk), before);
    EXPECT_EQ(tk->SetElementValue(100, nullptr, TK_VALUE_TEXT, 5, "\xFF\xC3ok\xE2"), 0);
    const std::string read = ReadText(tk.tk);
    EXPECT_NE(read.find("\xEF\xBF\xBDok"), std::string::npos) << read;
    EXPECT_EQ(read.find('\xFF'), std::string::npos) << read;
  }
}

TEST(ElementValueWrite, EveryPlaneAndLargeValuesComeBack) {
  std::string planes = "A\xC3\xA9\xE2\x82\xAC\xEF\xBF\xBD";
  for (uint32_t plane = 1; plane <= 16; ++plane) {
    const uint32_t code = plane << 16 | 0x0100;
    planes += static_cast<char>(0xF0 | code >> 18);
    planes += static_cast<char>(0x80 | (code >> 12 & 0x3F));
    planes += static_cast<char>(0x80 | (code >> 6 & 0x3F));
    planes += static_cast<char>(0x80 | (code & 0x3F));
  }
  std::string large(10 * 1024 * 1024, ' ');
  for (size_t i = 0; i < large.size(); ++i) large[i] = static_cast<char>('a' + i % 26);
  for (const std::string* value : {&planes, &large}) {
    Instance tk;
    ASSERT_EQ(tk->CreateEmpty("e"), 0);
    ASSERT_EQ(tk->SetElementValue(100, nullptr, TK_VALUE_TEXT,
                                  static_cast<unsigned>(value->size()), value->data()),
              0);
    EXPECT_TRUE(ReadText(tk.tk) == *value);
  }
}

}  // namespace
