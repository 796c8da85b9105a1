#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "support/test_support.h"
#include "support/xml_text.h"

namespace {

using tk::test::DocumentText;
using tk::test::Instance;
using tk::test::MessageLog;
using tk::test::ReloadText;
using tk::test::ResultText;

// The CDATA value (or with cdata false the text value) as text, or "<result N>".
std::string Read(ITreeKeeper* tk, unsigned handle = 100, const char* path = nullptr,
                 bool cdata = true) {
  char buffer[64] = {};
  unsigned size = sizeof buffer;
  const int result =
      cdata ? tk->GetElementCDATAValue(handle, path, TK_VALUE_TEXT, &size, buffer)
            : tk->GetElementValue(handle, path, TK_VALUE_TEXT, &size, buffer);
  return result != 0 ? ResultText(result) : std::string(buffer, size - 1);
}

int Write(ITreeKeeper* tk, const char* value, unsigned handle = 100, const char* path = nullptr) {
  return tk->SetElementCDATAValue(handle, path, TK_VALUE_TEXT,
                                  static_cast<unsigned>(std::strlen(value)), value);
}

// Only reads report a bad handle or path; writes fail silently.
TEST(CDataValue, HandleAndPathMessages) {
  Instance tk;
  ASSERT_EQ(ReloadText(tk.tk, "<r><a><![CDATA[v]]></a><x/></r>"), 0);
  ASSERT_EQ(tk->OpenElement("x"), 101u);
  ASSERT_EQ(tk->OpenElement("x"), 102u);
  ASSERT_EQ(tk->CloseElement(101), 0);
  EXPECT_EQ(Read(tk.tk, 100, "a"), "v");
  const std::string badPath = "GetElementCDATAValue: element path is invalid\n";
  const struct {
    unsigned handle;
    const char* path;
    int result;
    std::string readMessage;
  } cases[] = {
      {99, nullptr, -6, ""}, {103, nullptr, -6, ""}, {0xFFFFFFFFu, nullptr, -6, ""},
      {101, nullptr, -6, "GetElementCDATAValue: element handle is invalid\n"},
      {100, "b", -102, badPath}, {100, "a/a", -102, badPath},
  };
  MessageLog log;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.handle);
    log.clear();
    EXPECT_EQ(Read(tk.tk, c.handle, c.path), ResultText(c.result));
    EXPECT_EQ(log.joined(), c.readMessage);
    log.clear();
    EXPECT_EQ(Write(tk.tk, "w", c.handle, c.path), c.result);
    EXPECT_EQ(log.joined(), "");
  }
  EXPECT_EQ(DocumentText(tk.tk), "<r><a><![CDATA[v]]></a><x/></r>");
}

// Text children and CDATA sections are separate values; the last section decides.
TEST(CDataValue, ReadsOnlySections) {
  const struct {
    const char* xml;
    const char* cdata;
    const char* text;
  } cases[] = {
      {"<e><![CDATA[abc]]></e>", "abc", "<result -1>"},
      {"<e>abc</e>", "<result -1>", "abc"},
      {"<e>t<![CDATA[c]]></e>", "c", "t"},
      {"<e><![CDATA[first]]><!--k--><![CDATA[last]]></e>", "last", "<result -1>"},
      {"<e><![CDATA[a<b&c]]></e>", "a<b&c", "<result -1>"},
      {"<e/>", "<result -107>", "<result -107>"},
  };
  Instance tk;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.xml);
    ASSERT_EQ(ReloadText(tk.tk, c.xml), 0);
    EXPECT_EQ(Read(tk.tk), c.cdata);
    EXPECT_EQ(Read(tk.tk, 100, nullptr, false), c.text);
  }
}

// Numbers and byte strings follow the element value rules; text is UTF-8.
TEST(CDataValue, ValueTypesOnRead) {
  Instance tk;
  ASSERT_EQ(ReloadText(tk.tk, "<r><n><![CDATA[1234]]></n><x><![CDATA[12x]]></x>"
                              "<h><![CDATA[0aFF]]></h><u><![CDATA[\xC3\xA9]]></u></r>"),
            0);
  uint32_t number = 0;
  unsigned size = 4;
  EXPECT_EQ(tk->GetElementCDATAValue(100, "n", TK_VALUE_NUMBER, &size, &number), 0);
  EXPECT_EQ(tk->GetElementCDATAValue(100, "x", TK_VALUE_NUMBER, &size, &number), 0);
  EXPECT_EQ(number, 1234u);
  unsigned char bytes[2] = {};
  size = sizeof bytes;
  EXPECT_EQ(tk->GetElementCDATAValue(100, "h", TK_VALUE_BINARY, &size, bytes), 0);
  EXPECT_EQ(bytes[0] << 8 | bytes[1], 0x0AFF);
  EXPECT_EQ(tk->GetElementCDATAValue(100, "u", TK_VALUE_TEXT, &size, nullptr), -105);
  EXPECT_EQ(size, 3u);
}

// A write replaces the first section or adds one behind the other children.
TEST(CDataValue, WritePlacesAndKeepsChildren) {
  const unsigned char bytes[] = {0x00, 0x0F, 0xA0};
  const struct {
    const char* before;
    int type;
    unsigned size;
    const void* data;
    const char* after;
  } cases[] = {
      {"<e/>", TK_VALUE_TEXT, 1, "v", "<e><![CDATA[v]]></e>"},
      {"<e>t</e>", TK_VALUE_TEXT, 1, "v", "<e>t<![CDATA[v]]></e>"},
      {"<e><![CDATA[a]]>t<![CDATA[b]]></e>", TK_VALUE_TEXT, 1, "v",
       "<e><![CDATA[v]]>t<![CDATA[b]]></e>"},
      {"<e/>", TK_VALUE_BINARY, 3, bytes, "<e><![CDATA[000fa0]]></e>"},
      {"<e/>", TK_VALUE_TEXT, 5, "a<b&c", "<e><![CDATA[a<b&c]]></e>"},
      {"<e><![CDATA[x]]></e>", TK_VALUE_TEXT, 4, "n\xC3\xA9\x00", "<e><![CDATA[n\xC3\xA9]]></e>"},
  };
  Instance tk;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.before);
    ASSERT_EQ(ReloadText(tk.tk, c.before), 0);
    EXPECT_EQ(tk->SetElementCDATAValue(100, nullptr, c.type, c.size, c.data), 0);
    EXPECT_EQ(DocumentText(tk.tk), c.after);
  }
  // Characters past the basic plane come back whole; a character XML can't
  // hold is refused and the section stays as it was.
  ASSERT_EQ(ReloadText(tk.tk, "<e>t</e>"), 0);
  ASSERT_EQ(Write(tk.tk, "c\xF0\x9F\x98\x80"), 0);
  EXPECT_EQ(Read(tk.tk), "c\xF0\x9F\x98\x80");
  EXPECT_EQ(Read(tk.tk, 100, nullptr, false), "t");
  EXPECT_EQ(Write(tk.tk, "bad\x02"), -1);
  EXPECT_EQ(Read(tk.tk), "c\xF0\x9F\x98\x80");
}

}  // namespace
