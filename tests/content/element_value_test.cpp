#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "support/handles.h"
#include "support/test_support.h"
#include "support/value_read.h"
#include "support/xml_text.h"

namespace {

using tk::test::DocumentText;
using tk::test::Instance;
using tk::test::ReloadText;

constexpr unsigned kNoBuffer = 0;  // a null buffer

// One read of the root's value, described by DescribeRead.
std::string Read(ITreeKeeper* tk, int type, unsigned capacity, unsigned codePage = 65001) {
  return tk::test::DescribeRead(type, capacity, [&](unsigned* size, void* buffer) {
    return tk->GetElementValue(100, nullptr, type, size, buffer, codePage);
  });
}

int WriteText(ITreeKeeper* tk, const std::string& value) {
  return tk->SetElementValue(100, nullptr, TK_VALUE_TEXT, static_cast<unsigned>(value.size()),
                             value.data());
}

TEST(ElementValueRead, TypesSizesAndChildren) {
  const struct {
    const char* children;  // of the root element e
    int type;
    unsigned capacity;
    const char* expected;
    unsigned codePage = 65001;
  } cases[] = {
      // Numbers come only from decimal digits and saturate; anything else
      // reads as success and leaves the buffer alone.
      {"0042", TK_VALUE_NUMBER, 4, "0 4:42"},
      {"4294967295", TK_VALUE_NUMBER, 4, "0 4:4294967295"},
      {"4294967296", TK_VALUE_NUMBER, 4, "0 4:4294967295"},
      {"123456789012345678901234567890", TK_VALUE_NUMBER, 4, "0 4:4294967295"},
      {"12x", TK_VALUE_NUMBER, 4, "0 4:"},       {"-1", TK_VALUE_NUMBER, 4, "0 4:"},
      {" 12", TK_VALUE_NUMBER, 4, "0 4:"},       {"\xD9\xA1", TK_VALUE_NUMBER, 4, "0 4:"},
      // Byte strings: a lone last digit is a high nibble; a bad pair is stored
      // as 0 and ends the decoding, still with success.
      {"0aFF", TK_VALUE_BINARY, 8, "0 2:0aff"},  {"A", TK_VALUE_BINARY, 8, "0 1:a0"},
      {"abc", TK_VALUE_BINARY, 8, "0 2:abc0"},   {"a1zz", TK_VALUE_BINARY, 8, "0 2:a100"},
      {"0g12", TK_VALUE_BINARY, 8, "0 2:00"},
      // A null or short buffer is never written and hears the size needed.
      {"abc", TK_VALUE_NUMBER, 3, "-105 4:"},    {"abc", TK_VALUE_NUMBER, kNoBuffer, "-105 4:"},
      {"abc", TK_VALUE_BINARY, 1, "-105 2:"},    {"abc", TK_VALUE_BINARY, kNoBuffer, "-105 2:"},
      {"abc", TK_VALUE_BINARY, 2, "0 2:abc0"},   {"abc", TK_VALUE_TEXT, 3, "-105 4:"},
      {"abc", TK_VALUE_TEXT, kNoBuffer, "-105 4:"}, {"abc", TK_VALUE_TEXT, 4, "0 4:abc"},
      // Text comes in the asked code page, without best-fit letters; a code
      // page the system refuses gives an empty text.
      {"\xC3\xA9\xE2\x82\xAC", TK_VALUE_TEXT, 6, "0 6:\xC3\xA9\xE2\x82\xAC"},
      {"\xC3\xA9\xE2\x82\xAC", TK_VALUE_TEXT, kNoBuffer, "-105 3:", 1252},
      {"\xC3\xA9\xE2\x82\xAC", TK_VALUE_TEXT, 3, "0 3:\xE9\x80", 1252},
      {"\xC4\x80", TK_VALUE_TEXT, 8, "0 2:?", 1252},
      {"abc", TK_VALUE_TEXT, kNoBuffer, "-105 0:", 4242},
      {"abc", TK_VALUE_TEXT, 8, "0 1:", 4242},
      // Only text children count, and the last of them decides; without any
      // the size stays as it came.
      {"", TK_VALUE_NUMBER, 4, "-107 4:"},      {"", TK_VALUE_TEXT, kNoBuffer, "-107 64:"},
      {"<c>1</c>", TK_VALUE_BINARY, 8, "-1 8:"},
      {"<![CDATA[1]]><!--1-->", TK_VALUE_TEXT, 8, "-1 8:"},
      {"<![CDATA[1]]><!--1-->", TK_VALUE_NUMBER, kNoBuffer, "-1 64:"},
      {"three<!--c-->one", TK_VALUE_TEXT, 64, "0 4:one"},
      {"12<!--c-->x", TK_VALUE_NUMBER, 4, "0 4:12"},  // the bad digits leave the 12
  };
  Instance tk;
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.children << " type " << c.type << " capacity "
                                    << c.capacity << " code page " << c.codePage);
    ASSERT_EQ(ReloadText(tk.tk, std::string("<e>") + c.children + "</e>"), 0);
    EXPECT_EQ(Read(tk.tk, c.type, c.capacity, c.codePage), c.expected);
  }
}

// Every read of the two-call protocol: a buffer of exactly the size that a
// null buffer heard is never written past, and the read succeeds or hears
// the same -105 again: where a code page is refused (it measures 0), and
// where the last text child asks for more than an earlier one left in *size.
TEST(ValueReadProtocol, SecondCallStaysWithinTheMeasuredSize) {
  Instance tk;
  ASSERT_EQ(ReloadText(tk.tk, "<r><t>\xC3\xA9\xE2\x82\xAC</t><n>12</n><m>one<!--c-->three</m>"
                              "<c><![CDATA[cd]]></c><e a=\"7\" h=\"abc\"/></r>"),
            0);
  using Read = std::function<int(unsigned*, void*)>;
  auto value = [&](const char* path, int type, unsigned codePage) -> Read {
    return [=, &tk](unsigned* size, void* buffer) {
      return tk->GetElementValue(100, path, type, size, buffer, codePage);
    };
  };
  auto attribute = [&](const char* name, int type) -> Read {
    return [=, &tk](unsigned* size, void* buffer) {
      return tk->GetAttributeValue(100, "e", name, type, size, buffer);
    };
  };
  const unsigned e = tk->OpenElement("e");
  const struct {
    const char* what;
    Read read;
    int second = 0;
  } cases[] = {
      {"text, refused code page", value("t", TK_VALUE_TEXT, 4242), -105},
      {"text, 1252", value("t", TK_VALUE_TEXT, 1252)},
      {"text, two children", value("m", TK_VALUE_TEXT, 65001), -105},
      {"bytes", value("n", TK_VALUE_BINARY, 65001)},
      {"CDATA", [&](unsigned* size, void* buffer) {
         return tk->GetElementCDATAValue(100, "c", TK_VALUE_TEXT, size, buffer);
       }},
      {"attribute text", attribute("h", TK_VALUE_TEXT)},
      {"attribute bytes", attribute("h", TK_VALUE_BINARY)},
      {"name", [&](unsigned* size, void* buffer) {
         return tk->GetElementName(e, static_cast<char*>(buffer), size);
       }},
      {"attribute enumeration", [&](unsigned* size, void* buffer) {
         unsigned index = 1;
         return tk->EnumAttribute(e, nullptr, &index, static_cast<char*>(buffer), size);
       }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    unsigned measured = 0;
    ASSERT_EQ(c.read(&measured, nullptr), -105);
    std::vector<unsigned char> exact(measured + 8, 0xEE);
    unsigned size = measured;
    EXPECT_EQ(c.read(&size, exact.data()), c.second);
    EXPECT_EQ(std::vector<unsigned char>(exact.begin() + measured, exact.end()),
              std::vector<unsigned char>(8, 0xEE));
  }
}

// A handle on a text node names a node without children: reads find
// nothing, and writes can't add a child there.
TEST(ElementValue, HandleOnATextNode) {
  Instance tk;
  ASSERT_EQ(ReloadText(tk.tk, "<r><a><b>v</b></a><x/></r>"), 0);
  const unsigned text = tk::test::OpenChildNode(tk.tk, tk->OpenElement("a/b"), 0);
  unsigned size = 5;
  EXPECT_EQ(tk->GetElementValue(text, nullptr, TK_VALUE_TEXT, &size, nullptr), -107);
  EXPECT_EQ(tk->GetElementCDATAValue(text, nullptr, TK_VALUE_TEXT, &size, nullptr), -107);
  EXPECT_EQ(size, 5u);
  EXPECT_EQ(tk->SetElementValue(text, nullptr, TK_VALUE_TEXT, 1, "v"), -1);
  EXPECT_EQ(tk->SetElementCDATAValue(text, nullptr, TK_VALUE_TEXT, 1, "v"), -1);
  EXPECT_EQ(DocumentText(tk.tk), "<r><a><b>v</b></a><x/></r>");
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
      {"old<!--c-->x", TK_VALUE_TEXT, 3, "new", "new<!--c-->x"},
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

// An empty value is an empty text child: text and bytes read back empty, a
// number finds nothing to read.
TEST(ElementValueWrite, EmptyValueMakesAnEmptyTextChild) {
  Instance tk;
  for (const int type : {TK_VALUE_TEXT, TK_VALUE_BINARY}) {
    SCOPED_TRACE(type);
    ASSERT_EQ(ReloadText(tk.tk, "<e/>"), 0);
    EXPECT_EQ(tk->SetElementValue(100, nullptr, type, 0, nullptr), 0);
    EXPECT_EQ(Read(tk.tk, TK_VALUE_TEXT, 8), "0 1:");
    EXPECT_EQ(Read(tk.tk, TK_VALUE_NUMBER, 4), "-107 4:");
    EXPECT_EQ(Read(tk.tk, TK_VALUE_BINARY, 8), "0 0:");
  }
  EXPECT_EQ(tk->SetElementValue(100, nullptr, TK_VALUE_NUMBER, 4, nullptr), -1);
}

// A character XML can't hold is refused and nothing is written; bytes that
// are no UTF-8 are replaced. Characters of the outer planes come back whole.
TEST(ElementValueWrite, BadTextAndOuterPlanes) {
  Instance tk;
  ASSERT_EQ(ReloadText(tk.tk, "<e>old</e>"), 0);
  EXPECT_EQ(WriteText(tk.tk, "a\x01z"), -1);
  EXPECT_EQ(DocumentText(tk.tk), "<e>old</e>");
  EXPECT_EQ(WriteText(tk.tk, "\xFF\xC3ok\xE2"), 0);
  const std::string read = Read(tk.tk, TK_VALUE_TEXT, 64);
  EXPECT_NE(read.find("\xEF\xBF\xBDok"), std::string::npos) << read;
  EXPECT_EQ(read.find('\xFF'), std::string::npos) << read;
  // The first and last characters of the first and the last supplementary plane.
  const std::string planes =
      "A\xC3\xA9\xE2\x82\xAC\xEF\xBF\xBD\xF0\x90\x80\x80\xF0\x9F\xBF\xBF"
      "\xF4\x80\x80\x80\xF4\x8F\xBF\xBF";
  ASSERT_EQ(WriteText(tk.tk, planes), 0);
  EXPECT_EQ(Read(tk.tk, TK_VALUE_TEXT, 64), "0 26:" + planes);
}

}  // namespace
