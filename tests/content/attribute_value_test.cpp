#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/handles.h"
#include "support/test_support.h"
#include "support/value_read.h"
#include "support/xml_text.h"

namespace {

using tk::test::DocumentText;
using tk::test::Instance;
using tk::test::MessageLog;
using tk::test::ReloadText;

// One read of the root's attribute v, described by DescribeRead.
std::string Read(ITreeKeeper* tk, int type, unsigned capacity) {
  return tk::test::DescribeRead(type, capacity, [&](unsigned* size, void* buffer) {
    return tk->GetAttributeValue(100, nullptr, "v", type, size, buffer);
  });
}

TEST(AttributeValue, ReadsByType) {
  const struct {
    const char* value;
    int type;
    unsigned capacity;
    const char* expected;
  } cases[] = {
      {"1234", TK_VALUE_NUMBER, 4, "0 4:1234"},
      {"4294967296", TK_VALUE_NUMBER, 4, "0 4:4294967295"},
      {"12x", TK_VALUE_NUMBER, 4, "-104 4:"},   {" 12", TK_VALUE_NUMBER, 4, "-104 4:"},
      {"", TK_VALUE_NUMBER, 4, "-108 4:"},
      {"12x", TK_VALUE_NUMBER, 3, "-105 4:"},  // the capacity is judged before the value
      {"", TK_VALUE_NUMBER, 0, "-105 4:"},
      {"0aFF", TK_VALUE_BINARY, 8, "0 2:0aff"}, {"abc", TK_VALUE_BINARY, 8, "0 2:abc0"},
      {"a1zz", TK_VALUE_BINARY, 8, "-104 2:a100"},  // a bad pair still leaves its 0
      {"", TK_VALUE_BINARY, 8, "0 0:"},         {"0aFF", TK_VALUE_BINARY, 1, "-105 2:"},
      {"abc", TK_VALUE_BINARY, 0, "-105 2:"},   {"abc", TK_VALUE_TEXT, 0, "-105 4:"},
      {"abc", TK_VALUE_TEXT, 3, "-105 4:"},
      {"abc", 7, 4, "0 4:abc"},  // any other type is text
      {"", TK_VALUE_TEXT, 0, "-105 1:"},        {"", TK_VALUE_TEXT, 1, "0 1:"},
      {"\xC3\xA9\xE2\x82\xAC", TK_VALUE_TEXT, 16, "0 6:\xC3\xA9\xE2\x82\xAC"},
  };
  Instance tk;
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.value << " type " << c.type << " capacity "
                                    << c.capacity);
    ASSERT_EQ(ReloadText(tk.tk, std::string("<r v=\"") + c.value + "\"/>"), 0);
    EXPECT_EQ(Read(tk.tk, c.type, c.capacity), c.expected);
  }
}

// Failures leave the size, the client's text and the document as they were.
TEST(AttributeValue, Failures) {
  Instance tk;
  MessageLog log;
  ASSERT_EQ(ReloadText(tk.tk, "<r a=\"1\"><c>text</c></r>"), 0);
  unsigned size = 77;
  char buffer[8];
  EXPECT_EQ(tk->GetAttributeValue(100, "", "missing", 2, &size, buffer), -1);
  EXPECT_EQ(tk->GetAttributeValue(100, "", nullptr, 2, &size, buffer), -1);
  EXPECT_EQ(size, 77u);
  outputstr out("kept");
  EXPECT_EQ(tk->GetAttributeText(100, "", "missing", out), -1);
  EXPECT_STREQ(out.text(), "kept");
  EXPECT_EQ(tk->setAttributeValue(100, "", "", 2, 0, "v"), -1);
  EXPECT_EQ(tk->setAttributeValue(100, "", "a", 2, 0, "\x01"), -1);  // not XML text
  // A handle on a text node has no attribute map: reads and writes fail alike.
  const unsigned text = tk::test::OpenChildNode(tk.tk, tk->OpenElement("c"), 0);
  EXPECT_EQ(tk->GetAttributeValue(text, "", "a", 2, &size, buffer), -1);
  EXPECT_EQ(tk->setAttributeValue(text, "", "a", 2, 0, "v"), -1);
  EXPECT_EQ(DocumentText(tk.tk), "<r a=\"1\"><c>text</c></r>");
  EXPECT_EQ(log.joined(), "");
}

TEST(AttributeValue, WritesBuildTheStoredText) {
  Instance tk;
  ASSERT_EQ(tk->CreateEmpty("r"), 0);
  const uint32_t seven = 7;
  const unsigned char bytes[] = {0x00, 0x0F, 0xA0};
  ASSERT_EQ(tk->setAttributeValue(100, "", "n", TK_VALUE_TEXT, 0, "old"), 0);
  EXPECT_EQ(tk->setAttributeValue(100, "", "n", TK_VALUE_NUMBER, 0, &seven), 0);
  EXPECT_EQ(tk->setAttributeValue(100, "", "b", TK_VALUE_BINARY, 3, bytes), 0);
  EXPECT_EQ(tk->setAttributeValue(100, "", "z", TK_VALUE_BINARY, 0, "junk"), 0);
  // Text is read up to its NUL: size 0 still stores the whole text.
  EXPECT_EQ(tk->setAttributeValue(100, "", "t", TK_VALUE_TEXT, 0, "a<&\"b"), 0);
  EXPECT_EQ(tk->setAttributeValue(100, "", "e", TK_VALUE_TEXT, 5, nullptr), 0);
  EXPECT_EQ(tk->setAttributeValue(100, "", "\xC3\xA9", TK_VALUE_TEXT, 0, "\xE2\x82\xAC"), 0);
  // n was replaced, not doubled.
  EXPECT_EQ(DocumentText(tk.tk), "<r n=\"7\" b=\"000fa0\" z=\"\" t=\"a&lt;&amp;&quot;b\" e=\"\" "
                                 "\xC3\xA9=\"\xE2\x82\xAC\"/>");
}

// 255 bytes fit a local buffer with the terminator; 256 and more do not.
// Whatever the client's text held before is replaced.
TEST(AttributeValue, GetAttributeTextOfAnyLength) {
  Instance tk;
  ASSERT_EQ(tk->CreateEmpty("r"), 0);
  for (const size_t length : {0u, 255u, 256u, 1000u}) {
    SCOPED_TRACE(length);
    const std::string value(length, 'v');
    ASSERT_EQ(tk->setAttributeValue(100, "", "a", 2, 0, value.c_str()), 0);
    outputstr out(std::string(300, 'o').c_str());
    EXPECT_EQ(tk->GetAttributeText(100, nullptr, "a", out), 0);
    EXPECT_EQ(std::string(out.text()), value);
  }
}

}  // namespace
