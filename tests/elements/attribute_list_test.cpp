#include <gtest/gtest.h>

#include <string>

#include "support/test_support.h"
#include "support/value_read.h"
#include "support/xml_text.h"

namespace {

using tk::test::Instance;
using tk::test::MessageLog;
using tk::test::ReloadText;

// "name=value/count" of the attribute at position, or "result/count".
std::string At(ITreeKeeper* tk, unsigned position, const char* path = "",
               unsigned codePage = 65001) {
  unsigned index = position;
  outputstr name("N"), value("V");
  const int result = tk->EnumAttribute(100, path, &index, name, value, codePage);
  const std::string text = result != 0 ? std::to_string(result)
                                       : std::string(name.text()) + "=" + value.text();
  return text + "/" + std::to_string(index);
}

TEST(AttributeList, PositionsCountAndCodePage) {
  Instance tk;
  ASSERT_EQ(ReloadText(tk.tk, "<r a=\"1\" b=\"two\" c=\"\"><e/><n xmlns:p=\"urn:p\" p:k=\"v\"/>"
                              "<u \xC3\xA9=\"\xE2\x82\xAC\"/></r>"),
            0);
  const struct {
    unsigned position;
    const char* path;
    unsigned codePage;
    const char* expected;
  } cases[] = {
      {0, "", 65001, "a=1/3"},   {1, "", 65001, "b=two/3"},  // the count, not the next position
      {2, "", 65001, "c=/3"},    {3, "", 65001, "-110/3"},   {5, "e", 65001, "-110/0"},
      {0, "n", 65001, "xmlns:p=urn:p/2"},  // declarations are listed like attributes
      {1, "n", 65001, "p:k=v/2"},
      {0, "u", 1252, "\xC3\xA9=\x80/1"},  // only the value follows the code page
  };
  for (const auto& c : cases) EXPECT_EQ(At(tk.tk, c.position, c.path, c.codePage), c.expected);

  // The client's texts stay as they were on every path that ends early.
  unsigned index = 3;
  outputstr name("N"), value("V");
  EXPECT_EQ(tk->EnumAttribute(100, nullptr, &index, name, value), -110);
  EXPECT_EQ(std::string(name.text()) + value.text(), "NV");
  // A code page the system refuses: the name is given, the value is empty.
  index = 0;
  EXPECT_GT(tk->EnumAttribute(100, "u", &index, name, value, 12345), 0);
  EXPECT_EQ(std::string(name.text()) + "=" + value.text(), "\xC3\xA9=");
  EXPECT_EQ(index, 0u);
}

// The buffer form: the count comes back as the index on success and on -105;
// an empty value leaves the capacity that came in.
TEST(AttributeList, ValueIntoABuffer) {
  Instance tk;
  ASSERT_EQ(ReloadText(tk.tk, "<r a=\"four\" e=\"\"/>"), 0);
  const struct {
    unsigned position, capacity;
    const char* expected;
    unsigned indexAfter;
  } cases[] = {
      {0, 0, "-105 5:", 2}, {0, 4, "-105 5:", 2}, {0, 5, "0 5:four", 2},
      {1, 8, "0 8:", 2},    {2, 8, "-110 8:", 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.expected);
    unsigned index = c.position;
    auto read = [&](unsigned* size, void* buffer) {
      return tk->EnumAttribute(100, "", &index, static_cast<char*>(buffer), size);
    };
    EXPECT_EQ(tk::test::DescribeRead(TK_VALUE_TEXT, c.capacity, read), c.expected);
    EXPECT_EQ(index, c.indexAfter);
  }
}

TEST(AttributeList, Delete) {
  Instance tk;
  MessageLog log;
  ASSERT_EQ(ReloadText(tk.tk, "<r a=\"1\" b=\"2\" c=\"3\"><x/></r>"), 0);
  EXPECT_EQ(tk->DeleteAttribute(100, nullptr, "a"), 0);
  EXPECT_EQ(At(tk.tk, 0), "b=2/2");  // later attributes move down
  EXPECT_EQ(tk->DeleteAttribute(100, "", "a"), -1);
  EXPECT_EQ(tk->DeleteAttribute(100, "x", "b"), -1);
  EXPECT_TRUE(log.messages().empty()) << log.joined();

  EXPECT_EQ(tk->DeleteAttribute(100, "nowhere", nullptr), -103);  // the name is checked first
  EXPECT_EQ(log.joined(), "DeleteAttribute: attribute name is invalid\n");
  EXPECT_EQ(At(tk.tk, 1), "c=3/2");
}

}  // namespace
