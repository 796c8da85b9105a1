#include <gtest/gtest.h>

#include <string>

#include "support/handles.h"
#include "support/test_support.h"
#include "support/value_read.h"
#include "support/xml_text.h"

namespace {

using tk::test::Instance;
using tk::test::MessageLog;

constexpr unsigned kUntouched = 0xEEEEu;

class Enumerate : public ::testing::Test {
 protected:
  void Load(const std::string& xml) { ASSERT_EQ(tk::test::LoadText(tk.tk, xml), 0); }
  std::string Attr(unsigned handle) {
    outputstr out;
    EXPECT_EQ(tk->GetAttributeText(handle, nullptr, "id", out), 0);
    return out.text();
  }
  Instance tk;
};

TEST_F(Enumerate, CountsAndTheOutcomeTable) {
  Load("<r><item id=\"1\"/><!--c--><item id=\"2\"/>tail</r>");
  unsigned count = 0;
  EXPECT_EQ(tk->EnumElement(100, &count), 0);
  EXPECT_EQ(count, 4u);  // nodes of every type count
  const struct {
    const char* name;
    unsigned index;
    const char* expected;  // result, index after, id of the element opened
    bool open = true;      // false: no out-handle, only the count is wanted
  } rows[] = {
      {"item", 0, "0 2 1"},        {"item", 1, "0 2 2"},      {"item", 2, "-1 2 -"},
      {"item", 3, "-110 2 -"},     {"Item", 0, "-1 0 -"},     {"Item", 1, "-110 0 -"},
      {nullptr, 2, "0 4 2"},       {nullptr, 1, "-1 1 -"},  // a comment child
      {nullptr, 4, "-1 4 -"},      {nullptr, 5, "-110 4 -"},
      {"item", 7, "0 2 -", false}, {nullptr, 7, "0 4 -", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(::testing::Message() << (row.name ? row.name : "(null)") << " " << row.index);
    unsigned index = row.index, handle = kUntouched;
    const int result = tk->EnumElement(100, "", row.name, &index, row.open ? &handle : nullptr);
    EXPECT_EQ(std::to_string(result) + " " + std::to_string(index) + " " +
                  (handle == kUntouched ? "-" : Attr(handle)),
              row.expected);
  }
  EXPECT_EQ(tk->GetHandleCount(), 4u);  // every open is a new entry, also of the same element
  unsigned index = 7;
  EXPECT_EQ(tk->EnumElement(100, nullptr, &index, nullptr), -110);  // the at-index form
  EXPECT_EQ(index, 4u);
}

TEST_F(Enumerate, NoChildren) {
  MessageLog log;
  Load("<r><empty/></r>");
  unsigned value = kUntouched, handle = kUntouched;
  EXPECT_EQ(tk->EnumElement(tk->OpenElement("empty"), &value), -109);
  EXPECT_EQ(tk->EnumElement(100, "empty", "a", &value, &handle), -109);
  EXPECT_EQ(tk->EnumElement(100, "empty", &value, &handle), -109);
  EXPECT_EQ(value + handle, 2 * kUntouched);
  EXPECT_EQ(log.joined(), "");
}

// Repeated same-name calls must answer as a fresh scan would, also when the
// tree, the parent or the name changes between them.
TEST_F(Enumerate, RepeatedScansFollowTheTree) {
  Load("<r><p><a id=\"0\"/><b id=\"b\"/><a id=\"1\"/></p><q><a id=\"q\"/></q></r>");
  auto open = [&](const char* path, const char* name, unsigned position) {
    unsigned index = position, handle = 0;
    const int result = tk->EnumElement(100, path, name, &index, &handle);
    return result == 0 ? Attr(handle) + "/" + std::to_string(index) : std::to_string(result);
  };
  EXPECT_EQ(open("p", "a", 1), "1/2");
  EXPECT_EQ(open("q", "a", 0), "q/1");
  EXPECT_EQ(open("p", "a", 0), "0/2");
  EXPECT_EQ(open("p", "b", 0), "b/1");

  unsigned made = 0;
  ASSERT_EQ(tk->CreateElement(100, "p/a", &made), 0);
  ASSERT_EQ(tk->setAttributeValue(made, "", "id", 2, 0, "2"), 0);
  EXPECT_EQ(open("p", "a", 0), "0/3");
  EXPECT_EQ(open("p", "a", 2), "2/3");
  ASSERT_EQ(tk->DeleteElement(100, "p/a"), 0);  // the first a goes
  EXPECT_EQ(open("p", "a", 0), "1/2");
  EXPECT_EQ(open("p", "a", 2), "-1");

}

TEST_F(Enumerate, ElementNames) {
  MessageLog log;
  Load("<root xmlns:p=\"urn:p\"><p:x/>text</root>");
  const unsigned prefixed = tk->OpenElement(100, 0);
  const unsigned text = tk::test::OpenChildNode(tk.tk, 100, 1);
  const struct {
    unsigned handle, capacity;
    const char* expected;
  } cases[] = {
      {100, 0, "-105 5:"}, {100, 4, "-105 5:"},  // the length alone leaves no room for the NUL
      {100, 5, "0 5:root"}, {prefixed, 16, "0 4:p:x"}, {text, 16, "0 6:#text"},
  };
  for (const auto& c : cases) {
    auto read = [&](unsigned* size, void* buffer) {
      return tk->GetElementName(c.handle, static_cast<char*>(buffer), size);
    };
    EXPECT_EQ(tk::test::DescribeRead(TK_VALUE_TEXT, c.capacity, read), c.expected);
  }
  EXPECT_EQ(log.joined(), "");
}

}  // namespace
