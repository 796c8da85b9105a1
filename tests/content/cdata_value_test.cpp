#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "support/test_support.h"
#include "support/xml_text.h"

namespace {

using tk::test::DocumentText;
using tk::test::Instance;
using tk::test::LoadText;
using tk::test::MessageLog;

// The CDATA value as text, or "<result N>" when the read fails.
std::string ReadCData(ITreeKeeper* tk, unsigned handle = 100, const char* path = nullptr) {
  char buffer[64] = {};
  unsigned size = sizeof buffer;
  const int result = tk->GetElementCDATAValue(handle, path, TK_VALUE_TEXT, &size, buffer);
  if (result != 0) return "<result " + std::to_string(result) + ">";
  return std::string(buffer, size - 1);
}

std::string ReadTextValue(ITreeKeeper* tk) {
  char buffer[64] = {};
  unsigned size = sizeof buffer;
  const int result = tk->GetElementValue(100, nullptr, TK_VALUE_TEXT, &size, buffer);
  if (result != 0) return "<result " + std::to_string(result) + ">";
  return std::string(buffer, size - 1);
}

int WriteCData(ITreeKeeper* tk, const char* value, unsigned handle = 100,
               const char* path = nullptr) {
  return tk->SetElementCDATAValue(handle, path, TK_VALUE_TEXT,
                                  static_cast<unsigned>(std::strlen(value)), value);
}

TEST(CDataValue, HandleAndPathMessages) {
  Instance tk;
  ASSERT_EQ(LoadText(tk.tk, "<r><a><![CDATA[v]]></a><x/></r>"), 0);
  ASSERT_EQ(tk->OpenElement("x"), 101u);
  ASSERT_EQ(tk->OpenElement("x"), 102u);
  ASSERT_EQ(tk->CloseElement(101), 0);
  EXPECT_EQ(ReadCData(tk.tk, 100, "a"), "v");

  struct Case {
    unsigned handle;
    const char* path;
    int result;
    const char* readMessage;
  } const cases[] = {
      {99, nullptr, -6, ""},
      {103, nullptr, -6, ""},
      {0xFFFFFFFFu, nullptr, -6, ""},
      {101, nullptr, -6, "GetElementCDATAValue: element handle is invalid\n"},
      {100, "b", -102, "GetElementCDATAValue: element path is invalid\n"},
      {100, "a/a", -102, "GetElementCDATAValue: element path is invalid\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.handle);
    MessageLog log;
    EXPECT_EQ(ReadCData(tk.tk, c.handle, c.path), "<result " + std::to_string(c.result) + ">");
    EXPECT_EQ(log.joined(), c.readMessage);
    log.clear();
    EXPECT_EQ(WriteCData(tk.tk, "w", c.handle, c.path), c.result);
    EXPECT_EQ(log.joined(), "");
  }
  EXPECT_EQ(DocumentText(tk.tk), "<r><a><![CDATA[v]]></a><x/></r>");
}

// Text children and CDATA sections are separate values.
TEST(CDataValue, ReadsOnlySections) {
  struct Case {
    const char* xml;
    const char* cdata;
    const char* text;
  } const cases[] = {
      {"<e><![CDATA[abc]]></e>", "abc", "<result -1>"},
      {"<e>abc</e>", "<result -1>", "abc"},
      {"<e>t<![CDATA[c]]></e>", "c", "t"},
      {"<e><![CDATA[first]]><!--k--><![CDATA[last]]></e>", "last", "<result -1>"},
      {"<e><![CDATA[a<b&c]]></e>", "a<b&c", "<result -1>"},
      {"<e/>", "<result -107>", "<result -107>"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.xml);
    Instance tk;
    ASSERT_EQ(LoadText(tk.tk, c.xml), 0);
    EXPECT_EQ(ReadCData(tk.tk), c.cdata);
    EXPECT_EQ(ReadTextValue(tk.tk), c.text);
  }
}

// Numbers and byte strings follow the element value rules; text is UTF-8.
TEST(CDataValue, ValueTypesOnRead) {
  Instance tk;
  ASSERT_EQ(LoadText(tk.tk, "<r><n><![CDATA[1234]]></n><x><![CDATA[12x]]></x>"
                            "<h><![CDATA[0aFF]]></h><u><![CDATA[\xC3\xA9]]></u></r>"),
            0);
  uint32_t number = 0;
  unsigned size = 4;
  EXPECT_EQ(tk->GetElementCDATAValue(100, "n", TK_VALUE_NUMBER, &size, &number), 0);
  EXPECT_EQ(number, 1234u);
  EXPECT_EQ(tk->GetElementCDATAValue(100, "x", TK_VALUE_NUMBER, &size, &number), 0);
  EXPECT_EQ(number, 1234u);
  unsigned char bytes[2] = {};
  size = sizeof bytes;
  EXPECT_EQ(tk->GetElementCDATAValue(100, "h", TK_VALUE_BINARY, &size, bytes), 0);
  EXPECT_EQ(bytes[0], 0x0A);
  EXPECT_EQ(bytes[1], 0xFF);
  EXPECT_EQ(tk->GetElementCDATAValue(100, "u", TK_VALUE_TEXT, &size, nullptr), -105);
  EXPECT_EQ(size, 3u);
}

TEST(CDataValue, WritePlacesAndKeepsChildren) {
  const unsigned char bytes[] = {0x00, 0x0F, 0xA0};
  struct Case {
    const char* before;
    int type;
    unsigned size;
    const void* data;
    const char* after;
  } const cases[] = {
      {"<e/>", TK_VALUE_TEXT, 1, "v", "<e><![CDATA[v]]></e>"},
      {"<e>t</e>", TK_VALUE_TEXT, 1, "v", "<e>t<![CDATA[v]]></e>"},
      {"<e><![CDATA[a]]>t<![CDATA[b]]></e>", TK_VALUE_TEXT, 1, "v",
       "<e><![CDATA[v]]>t<![CDATA[b]]></e>"},
      {"<e/>", TK_VALUE_BINARY, 3, bytes, "<e><![CDATA[000fa0]]></e>"},
      {"<e/>", TK_VALUE_TEXT, 5, "a<b&c", "<e><![CDATA[a<b&c]]></e>"},
      {"<e><![CDATA[x]]></e>", TK_VALUE_TEXT, 4, "n\xC3\xA9\x00", "<e><![CDATA[n\xC3\xA9]]></e>"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.before);
    Instance tk;
    ASSERT_EQ(LoadText(tk.tk, c.before), 0);
    EXPECT_EQ(tk->SetElementCDATAValue(100, nullptr, c.type, c.size, c.data), 0);
    EXPECT_EQ(DocumentText(tk.tk), c.after);
  }

  Instance tk;
  ASSERT_EQ(LoadText(tk.tk, "<e>t</e>"), 0);
  ASSERT_EQ(WriteCData(tk.tk, "c\xF0\x9F\x98\x80"), 0);
  EXPECT_EQ(ReadCData(tk.tk), "c\xF0\x9F\x98\x80");
  EXPECT_EQ(ReadTextValue(tk.tk), "t");
  EXPECT_EQ(WriteCData(tk.tk, "bad\x02"), -1);
  EXPECT_EQ(ReadCData(tk.tk), "c\xF0\x9F\x98\x80");
}

}  // namespace
