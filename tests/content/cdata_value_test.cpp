#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/test_support.h"
#include "support/value_read.h"
#include "support/xml_text.h"

namespace {

using tk::test::DocumentText;
using tk::test::Instance;
using tk::test::ReloadText;

// One read of the root's CDATA value (with cdata false: its text value),
// described by DescribeRead.
std::string Read(ITreeKeeper* tk, int type = TK_VALUE_TEXT, bool cdata = true) {
  return tk::test::DescribeRead(type, 16, [&](unsigned* size, void* buffer) {
    return cdata ? tk->GetElementCDATAValue(100, nullptr, type, size, buffer)
                 : tk->GetElementValue(100, nullptr, type, size, buffer);
  });
}

int Write(ITreeKeeper* tk, const char* value) {
  return tk->SetElementCDATAValue(100, nullptr, TK_VALUE_TEXT,
                                  static_cast<unsigned>(std::strlen(value)), value);
}

// Text children and CDATA sections are separate values; the last section
// decides. Numbers and byte strings follow the element value rules.
TEST(CDataValue, ReadsOnlySections) {
  const struct {
    const char* children;  // of the root element e
    int type;
    const char* cdata;
    const char* text;
  } cases[] = {
      {"<![CDATA[abc]]>", TK_VALUE_TEXT, "0 4:abc", "-1 16:"},
      {"abc", TK_VALUE_TEXT, "-1 16:", "0 4:abc"},
      {"t<![CDATA[c]]>", TK_VALUE_TEXT, "0 2:c", "0 2:t"},
      {"<![CDATA[first]]><!--k--><![CDATA[last]]>", TK_VALUE_TEXT, "0 5:last", "-1 16:"},
      {"", TK_VALUE_TEXT, "-107 16:", "-107 16:"},
      {"<![CDATA[\xC3\xA9]]>", TK_VALUE_TEXT, "0 3:\xC3\xA9", "-1 16:"},
      {"<![CDATA[1234]]>", TK_VALUE_NUMBER, "0 4:1234", "-1 16:"},
      {"<![CDATA[12x]]>", TK_VALUE_NUMBER, "0 4:", "-1 16:"},
      {"<![CDATA[0aFF]]>", TK_VALUE_BINARY, "0 2:0aff", "-1 16:"},
  };
  Instance tk;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.children);
    ASSERT_EQ(ReloadText(tk.tk, std::string("<e>") + c.children + "</e>"), 0);
    EXPECT_EQ(Read(tk.tk, c.type), c.cdata);
    EXPECT_EQ(Read(tk.tk, c.type, false), c.text);
  }
}

// A write replaces the first section or adds one behind the other children.
TEST(CDataValue, WritePlacesAndKeepsChildren) {
  const char* const cases[][3] = {
      // before, value, after
      {"<e/>", "v", "<e><![CDATA[v]]></e>"},
      {"<e>t</e>", "v", "<e>t<![CDATA[v]]></e>"},
      {"<e><![CDATA[a]]>t<![CDATA[b]]></e>", "v", "<e><![CDATA[v]]>t<![CDATA[b]]></e>"},
      {"<e/>", "a<b&c", "<e><![CDATA[a<b&c]]></e>"},
  };
  Instance tk;
  for (const auto& c : cases) {
    SCOPED_TRACE(c[0]);
    ASSERT_EQ(ReloadText(tk.tk, c[0]), 0);
    EXPECT_EQ(Write(tk.tk, c[1]), 0);
    EXPECT_EQ(DocumentText(tk.tk), c[2]);
  }
  // Characters past the basic plane come back whole; a character XML can't
  // hold is refused and the section stays as it was.
  ASSERT_EQ(ReloadText(tk.tk, "<e/>"), 0);
  ASSERT_EQ(Write(tk.tk, "c\xF0\x9F\x98\x80"), 0);
  EXPECT_EQ(Write(tk.tk, "bad\x02"), -1);
  EXPECT_EQ(Read(tk.tk), "0 6:c\xF0\x9F\x98\x80");
}

}  // namespace
