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

std::string Text(ITreeKeeper* tk, const char* name) {
  outputstr out("unread");
  EXPECT_EQ(tk->GetAttributeText(100, nullptr, name, out), 0) << name;
  return out.text();
}

TEST(AttributeValue, NumberReads) {
  const struct {
    const char* value;
    int result;
    uint32_t number;  // what the buffer holds afterwards (0xAAAAAAAA: untouched)
  } cases[] = {
      {"1234", 0, 1234}, {"0042", 0, 42}, {"4294967295", 0, UINT32_MAX},
      {"4294967296", 0, UINT32_MAX}, {"12x", -104, 0xAAAAAAAA}, {"-1", -104, 0xAAAAAAAA},
      {" 12", -104, 0xAAAAAAAA}, {"", -108, 0xAAAAAAAA},
  };
  Instance tk;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.value);
    ASSERT_EQ(ReloadText(tk.tk, std::string("<r n=\"") + c.value + "\"/>"), 0);
    uint32_t number = 0xAAAAAAAA;
    unsigned size = 4;
    EXPECT_EQ(tk->GetAttributeValue(100, "", "n", TK_VALUE_NUMBER, &size, &number), c.result);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(number, c.number);
    // The capacity is judged before the value: a short buffer always hears -105.
    size = 3;
    EXPECT_EQ(tk->GetAttributeValue(100, "", "n", TK_VALUE_NUMBER, &size, &number), -105);
    EXPECT_EQ(tk->GetAttributeValue(100, "", "n", TK_VALUE_NUMBER, &size, nullptr), -105);
    EXPECT_EQ(size, 4u);
  }
}

TEST(AttributeValue, BinaryReads) {
  const struct {
    const char* value;
    int result;
    std::vector<unsigned char> bytes;
  } cases[] = {
      {"0aFF", 0, {0x0A, 0xFF}}, {"abc", 0, {0xAB, 0xC0}}, {"a1zz", -104, {0xA1, 0x00}},
      {"", 0, {}},
  };
  Instance tk;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.value);
    ASSERT_EQ(ReloadText(tk.tk, std::string("<r b=\"") + c.value + "\"/>"), 0);
    unsigned size = 0;
    EXPECT_EQ(tk->GetAttributeValue(100, nullptr, "b", TK_VALUE_BINARY, &size, nullptr), -105);
    EXPECT_EQ(size, c.bytes.size());
    unsigned char buffer[8] = {0x55, 0x55, 0x55, 0x55};
    size = sizeof buffer;
    EXPECT_EQ(tk->GetAttributeValue(100, nullptr, "b", TK_VALUE_BINARY, &size, buffer), c.result);
    ASSERT_EQ(size, c.bytes.size());
    EXPECT_EQ(std::vector<unsigned char>(buffer, buffer + size), c.bytes);
    EXPECT_EQ(buffer[size], 0x55);  // nothing written past the computed size
    if (size == 0) continue;
    size -= 1;
    EXPECT_EQ(tk->GetAttributeValue(100, nullptr, "b", TK_VALUE_BINARY, &size, buffer), -105);
    EXPECT_EQ(size, c.bytes.size());
  }
}

TEST(AttributeValue, TextReadsFollowTheBufferProtocol) {
  Instance tk;
  ASSERT_EQ(ReloadText(tk.tk, "<r t=\"abc\" e=\"\" u=\"\xC3\xA9\xE2\x82\xAC\"/>"), 0);
  char buffer[16];
  std::memset(buffer, 'x', sizeof buffer);
  unsigned size = 0;
  EXPECT_EQ(tk->GetAttributeValue(100, "", "t", TK_VALUE_TEXT, &size, nullptr), -105);
  EXPECT_EQ(size, 4u);
  size = 3;
  EXPECT_EQ(tk->GetAttributeValue(100, "", "t", TK_VALUE_TEXT, &size, buffer), -105);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(buffer[0], 'x');
  EXPECT_EQ(tk->GetAttributeValue(100, "", "t", 7, &size, buffer), 0);  // any other type is text
  EXPECT_STREQ(buffer, "abc");
  size = 0;
  EXPECT_EQ(tk->GetAttributeValue(100, "", "e", TK_VALUE_TEXT, &size, nullptr), -105);
  EXPECT_EQ(size, 1u);
  EXPECT_EQ(tk->GetAttributeValue(100, "", "e", TK_VALUE_TEXT, &size, buffer), 0);
  EXPECT_STREQ(buffer, "");
  size = sizeof buffer;
  EXPECT_EQ(tk->GetAttributeValue(100, "", "u", TK_VALUE_TEXT, &size, buffer), 0);
  EXPECT_EQ(size, 6u);
  EXPECT_STREQ(buffer, "\xC3\xA9\xE2\x82\xAC");
}

TEST(AttributeValue, ReadFailures) {
  Instance tk;
  MessageLog log;
  ASSERT_EQ(ReloadText(tk.tk, "<r a=\"1\"><c>text</c></r>"), 0);
  unsigned size = 77;
  char buffer[8];
  EXPECT_EQ(tk->GetAttributeValue(100, "", "missing", 2, &size, buffer), -1);
  EXPECT_EQ(size, 77u);
  EXPECT_EQ(tk->GetAttributeValue(100, "", nullptr, 2, &size, buffer), -1);
  EXPECT_EQ(tk->GetAttributeValue(99, "", "a", 2, &size, buffer), -6);
  const unsigned closed = tk->OpenElement(100, 0);
  tk->OpenElement(100, 0);
  ASSERT_EQ(tk->CloseElement(closed), 0);  // a closed slot below a live handle
  EXPECT_EQ(tk->GetAttributeValue(closed, "", "a", 2, &size, buffer), -6);
  EXPECT_TRUE(log.messages().empty()) << log.joined();
  EXPECT_EQ(tk->GetAttributeValue(100, "nowhere", "a", 2, &size, buffer), -102);
  EXPECT_EQ(log.joined(), "GetAttributeValue: element path is invalid\n");

  // A handle on a text node has no attribute map: reads and writes fail alike.
  unsigned text = 0, type = 0;
  ASSERT_EQ(tk->OpenElement(tk->OpenElement("c"), 0, &text, &type), 0);
  ASSERT_EQ(type, 3u);
  EXPECT_EQ(tk->GetAttributeValue(text, "", "a", 2, &size, buffer), -1);
  EXPECT_EQ(tk->setAttributeValue(text, "", "a", 2, 0, "v"), -1);
  outputstr out("kept");
  EXPECT_EQ(tk->GetAttributeText(100, "", "missing", out), -1);
  EXPECT_EQ(tk->GetAttributeText(100, "nowhere", "a", out), -102);
  EXPECT_STREQ(out.text(), "kept");
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
  const char* const stored[][2] = {{"n", "7"}, {"b", "000fa0"}, {"z", ""}, {"t", "a<&\"b"},
                                   {"e", ""}, {"\xC3\xA9", "\xE2\x82\xAC"}};
  for (const auto& s : stored) EXPECT_EQ(Text(tk.tk, s[0]), s[1]);
  unsigned index = 99;
  outputstr name, value;
  EXPECT_EQ(tk->EnumAttribute(100, "", &index, name, value), -110);
  EXPECT_EQ(index, 6u);  // n was replaced, not doubled
}

TEST(AttributeValue, WriteFailuresLeaveTheDocument) {
  Instance tk;
  MessageLog log;
  ASSERT_EQ(tk->CreateEmpty("r"), 0);
  unsigned closed = 0;
  ASSERT_EQ(tk->CreateElement(100, "c", &closed), 0);
  tk->OpenElement("c");
  ASSERT_EQ(tk->CloseElement(closed), 0);  // a closed slot below a live handle
  const std::string before = DocumentText(tk.tk);
  EXPECT_EQ(tk->setAttributeValue(100, "c/d", "a", 2, 0, "v"), -102);
  EXPECT_EQ(tk->setAttributeValue(100, "", "", 2, 0, "v"), -1);
  EXPECT_EQ(tk->setAttributeValue(100, "", "a", 2, 0, "\x01"), -1);  // not XML text
  EXPECT_EQ(tk->setAttributeValue(5, "", "a", 2, 0, "v"), -6);
  EXPECT_EQ(log.joined(), "setAttributeValue: element path is invalid\n");
  log.clear();
  EXPECT_EQ(tk->setAttributeValue(closed, "", "a", 2, 0, "v"), -6);
  EXPECT_EQ(log.joined(), "setAttributeValue: element handle is invalid\n");
  EXPECT_EQ(DocumentText(tk.tk), before);
}

// 255 bytes fit a local buffer with the terminator; 256 and more do not.
// Whatever the client's text held before is replaced.
TEST(AttributeValue, GetAttributeTextOfAnyLength) {
  Instance tk;
  ASSERT_EQ(tk->CreateEmpty("r"), 0);
  for (const size_t length : {0u, 1u, 255u, 256u, 1000u}) {
    SCOPED_TRACE(length);
    const std::string value(length, 'v');
    ASSERT_EQ(tk->setAttributeValue(100, "", "a", 2, 0, value.c_str()), 0);
    outputstr out(std::string(300, 'o').c_str());
    EXPECT_EQ(tk->GetAttributeText(100, nullptr, "a", out), 0);
    EXPECT_EQ(std::string(out.text()), value);
  }
}

}  // namespace
