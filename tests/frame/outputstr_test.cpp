#include <climits>
#include <cstddef>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <treekeeper/treekeeper.h>

#include "support/recording_text.h"

namespace {

// The public layout of outputstr, to look at its capacity and buffer.
struct Layout {
  const void* vptr;
  char inlineBuffer[128];
  const char* text;
  uint64_t capacity;
  uint64_t length;
};
static_assert(sizeof(Layout) == sizeof(outputstr));

uint64_t Capacity(const outputstr& s) {
  Layout layout;
  std::memcpy(&layout, static_cast<const void*>(&s), sizeof layout);
  return layout.capacity;
}
bool IsInline(const outputstr& s) {
  return s.text() == reinterpret_cast<const char*>(&s) + offsetof(Layout, inlineBuffer);
}

TEST(Outputstr, EmptyCopyAndClear) {
  outputstr s(nullptr);
  EXPECT_TRUE(s.isEmpty() && IsInline(s));
  EXPECT_EQ(Capacity(s), 128u);

  outputstr heap(std::string(300, 'h').c_str());
  const char* block = heap.text();
  heap.append(nullptr);
  heap.append("");
  EXPECT_EQ(heap.text(), block);
  const outputstr copy(heap);  // a block of its own
  EXPECT_NE(copy.text(), heap.text());
  heap.clear();
  EXPECT_EQ(copy.length(), 300u);
  EXPECT_TRUE(heap.isEmpty() && IsInline(heap));
  EXPECT_EQ(Capacity(heap), 128u);
}

// Capacities after each append: the inline 128 while the text and its NUL
// fit, then the multiple of 256 strictly above the need.
TEST(Outputstr, GrowsToTheMultipleOf256AboveTheNeed) {
  const struct { std::vector<size_t> appends; std::vector<uint64_t> capacities; } cases[] = {
      {{1, 126, 1}, {128, 128, 256}}, {{255}, {512}}, {{200, 55, 1}, {256, 256, 512}},
      {{1000}, {1024}}};
  for (const auto& c : cases) {
    outputstr s;
    std::string expected;
    for (size_t i = 0; i < c.appends.size(); ++i) {
      expected += std::string(c.appends[i], static_cast<char>('a' + i));
      s.append(expected.c_str() + expected.size() - c.appends[i]);
      EXPECT_EQ(Capacity(s), c.capacities[i]) << "append " << i << " of " << c.appends[i];
      EXPECT_EQ(IsInline(s), c.capacities[i] == 128u);
    }
    EXPECT_EQ(s.text(), expected);
    EXPECT_EQ(s.length(), expected.size());
  }
}

TEST(Outputstr, AssignmentClearsThenAppendsThroughTheVirtuals) {
  tk::test::RecordingText s;
  s.append(std::string(1000, 'x').c_str());
  s.calls.clear();
  s = "short";  // fits the old block, yet starts again inline
  EXPECT_EQ(s.calls, (std::vector<std::string>{"clear", "append:short"}));
  EXPECT_TRUE(IsInline(s));
  s = outputstr(std::string(200, 'y').c_str());
  EXPECT_EQ(s.calls.size(), 4u);
  outputstr& self = s;
  s = self;
  EXPECT_EQ(s.text(), std::string(200, 'y'));
}

// A text that lies inside the object itself is taken as if it were a copy,
// inline and on the heap: same text, same capacity.
TEST(Outputstr, OwnTextAppendedOrAssigned) {
  enum Op { kAppendAll, kAppendTail, kAssignAll, kAssignTail };
  for (const size_t length : {10u, 127u, 128u, 200u, 300u}) {
    for (const Op op : {kAppendAll, kAppendTail, kAssignAll, kAssignTail}) {
      SCOPED_TRACE(std::to_string(length) + " op " + std::to_string(op));
      std::string start;
      for (size_t i = 0; i < length; ++i) start += static_cast<char>('a' + i % 26);
      outputstr s(start.c_str());
      outputstr copied(start.c_str());
      const size_t from = op == kAppendTail || op == kAssignTail ? 1 : 0;
      const std::string part = start.substr(from);
      if (op == kAppendAll || op == kAppendTail) {
        s.append(s.text() + from);
        copied.append(part.c_str());
      } else {
        s = s.text() + from;
        copied = part.c_str();
      }
      EXPECT_EQ(std::string(s.text()), copied.text());
      EXPECT_EQ(s.length(), copied.length());
      EXPECT_EQ(Capacity(s), Capacity(copied));
    }
  }
}

// The result's capacity comes from its own appends, not from the left
// operand: 255 bytes reached in two steps fit a block of 256, in one step
// they need 512, and so does a copy's.
TEST(Outputstr, Concatenation) {
  const outputstr left("n=");
  const std::pair<outputstr, const char*> cases[] = {
      {left + outputstr("y"), "n=y"},
      {left + INT_MIN, "n=-2147483648"},
      {left + static_cast<uint32_t>(UINT32_MAX), "n=4294967295"},
      {left + 'c', "n=c"},
      {left + static_cast<unsigned char>(0xE9), "n=\xE9"},
      {left + static_cast<const char*>(nullptr), "n="},
  };
  for (const auto& [result, text] : cases) EXPECT_STREQ(result.text(), text);
  EXPECT_STREQ(left.text(), "n=");

  outputstr left255(std::string(200, 'l').c_str());
  left255.append(std::string(55, 'l').c_str());
  ASSERT_EQ(Capacity(left255), 256u);
  EXPECT_EQ(Capacity(left255 + ""), 512u);
  EXPECT_EQ(Capacity(outputstr(left255)), 512u);
}

}  // namespace
