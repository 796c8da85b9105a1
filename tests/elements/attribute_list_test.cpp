#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/test_support.h"

namespace {

using tk::test::Instance;
using tk::test::MessageLog;

class AttributeList : public ::testing::Test {
 protected:
  void Load(const std::string& xml) {
    ASSERT_EQ(tk->ImportFromStream(xml.c_str(), static_cast<int>(xml.size()), nullptr), 0);
  }
  // "name=value/count" of the attribute at position, or the result code.
  std::string At(unsigned position, const char* path = "", unsigned codePage = 65001) {
    unsigned index = position;
    outputstr name("N"), value("V");
    const int result = tk->EnumAttribute(100, path, &index, name, value, codePage);
    if (result != 0) return std::to_string(result) + "/" + std::to_string(index);
    return std::string(name.text()) + "=" + value.text() + "/" + std::to_string(index);
  }
  Instance tk;
};

TEST_F(AttributeList, PositionsAndCount) {
  Load("<r a=\"1\" b=\"two\" c=\"\"><e/><n xmlns:p=\"urn:p\" p:k=\"v\"/></r>");
  EXPECT_EQ(At(0), "a=1/3");
  EXPECT_EQ(At(1), "b=two/3");  // the count comes back, not the next position
  EXPECT_EQ(At(2), "c=/3");
  EXPECT_EQ(At(3), "-110/3");
  EXPECT_EQ(At(0xFFFFFFFF), "-110/3");
  EXPECT_EQ(At(5, "e"), "-110/0");
  EXPECT_EQ(At(0, "n"), "xmlns:p=urn:p/2");  // declarations are listed like attributes
  EXPECT_EQ(At(1, "n/"), "p:k=v/2");

  // The client's texts stay as they were on every path that ends early.
  unsigned index = 3;
  outputstr name("N"), value("V");
  EXPECT_EQ(tk->EnumAttribute(100, nullptr, &index, name, value), -110);
  EXPECT_STREQ(name.text(), "N");
  EXPECT_STREQ(value.text(), "V");
}

TEST_F(AttributeList, ValueIntoABuffer) {
  Load("<r a=\"four\" e=\"\"/>");
  char buffer[8];
  std::memset(buffer, 'x', sizeof buffer);
  unsigned index = 0, size = 0;
  EXPECT_EQ(tk->EnumAttribute(100, "", &index, nullptr, &size), -105);
  EXPECT_EQ(size, 5u);
  EXPECT_EQ(index, 2u);
  index = 0;
  size = 4;
  EXPECT_EQ(tk->EnumAttribute(100, "", &index, buffer, &size), -105);
  EXPECT_EQ(size, 5u);
  EXPECT_EQ(buffer[0], 'x');
  index = 0;
  EXPECT_EQ(tk->EnumAttribute(100, "", &index, buffer, &size), 0);
  EXPECT_STREQ(buffer, "four");
  EXPECT_EQ(index, 2u);
  index = 1;
  size = sizeof buffer;
  EXPECT_EQ(tk->EnumAttribute(100, "", &index, buffer, &size), 0);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(size, sizeof buffer);  // the capacity that came in stays
  index = 2;
  EXPECT_EQ(tk->EnumAttribute(100, "", &index, buffer, &size), -110);
  EXPECT_EQ(index, 2u);
}

TEST_F(AttributeList, ValueInTheAskedCodePage) {
  Load("<r \xC3\xA9=\"\xE2\x82\xAC\"/>");
  EXPECT_EQ(At(0), "\xC3\xA9=\xE2\x82\xAC/1");
  EXPECT_EQ(At(0, "", 1252), "\xC3\xA9=\x80/1");  // only the value follows the code page

  unsigned index = 0;
  outputstr name("N"), value("V");
  const int result = tk->EnumAttribute(100, "", &index, name, value, 12345);
  EXPECT_GT(result, 0);
  EXPECT_STREQ(name.text(), "\xC3\xA9");
  EXPECT_STREQ(value.text(), "");
  EXPECT_EQ(index, 0u);
}

TEST_F(AttributeList, Delete) {
  MessageLog log;
  Load("<r a=\"1\" b=\"2\" c=\"3\"><x/></r>");
  EXPECT_EQ(tk->DeleteAttribute(100, nullptr, "a"), 0);
  EXPECT_EQ(At(0), "b=2/2");  // later attributes move down
  EXPECT_EQ(tk->DeleteAttribute(100, "", "a"), -1);
  EXPECT_EQ(tk->DeleteAttribute(100, "", ""), -1);
  EXPECT_EQ(tk->DeleteAttribute(100, "x", "b"), -1);
  EXPECT_TRUE(log.messages().empty()) << log.joined();

  EXPECT_EQ(tk->DeleteAttribute(100, "nowhere", nullptr), -103);  // the name is checked first
  EXPECT_EQ(tk->DeleteAttribute(100, "nowhere", "b"), -102);
  EXPECT_EQ(tk->DeleteAttribute(101, "", "b"), -6);
  EXPECT_EQ(log.joined(),
            "DeleteAttribute: attribute name is invalid\n"
            "DeleteAttribute: element path is invalid\n"
            "DeleteAttribute: element handle is invalid\n");
  log.clear();

  unsigned index = 0, size = 0;
  outputstr name, value;
  EXPECT_EQ(tk->EnumAttribute(100, "nowhere", &index, nullptr, &size), -102);
  EXPECT_EQ(tk->EnumAttribute(7, "", &index, name, value, 0), -6);
  EXPECT_EQ(log.joined(),
            "EnumAttribute: element path is invalid\n"
            "EnumAttribute: element handle is invalid\n");
  EXPECT_EQ(At(1), "c=3/2");  // the handle still works after all this
}

}  // namespace
