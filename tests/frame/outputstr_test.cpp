#include <climits>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <treekeeper/treekeeper.h>

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

Layout Inspect(const outputstr& s) {
  Layout layout;
  std::memcpy(&layout, static_cast<const void*>(&s), sizeof layout);
  return layout;
}

bool IsInline(const outputstr& s) {
  const auto* inlineBuffer = reinterpret_cast<const char*>(&s) + offsetof(Layout, inlineBuffer);
  return s.text() == inlineBuffer;
}

uint64_t Capacity(const outputstr& s) { return Inspect(s).capacity; }

// Records the virtual calls the class makes on itself.
class Recording : public outputstr {
 public:
  outputstr& append(const char* text) override {
    calls.push_back(std::string("append:") + (text != nullptr ? text : "(null)"));
    return outputstr::append(text);
  }
  void clear() override {
    calls.push_back("clear");
    outputstr::clear();
  }
  using outputstr::operator=;
  std::vector<std::string> calls;
};

TEST(Outputstr, NewAndEmptyAppends) {
  outputstr s;
  EXPECT_TRUE(s.isEmpty());
  EXPECT_EQ(s.length(), 0u);
  EXPECT_STREQ(s.text(), "");
  EXPECT_EQ(Capacity(s), 128u);
  EXPECT_TRUE(IsInline(s));
  EXPECT_TRUE(outputstr(nullptr).isEmpty());

  outputstr heap(std::string(300, 'h').c_str());
  const char* block = heap.text();
  heap.append(nullptr);
  heap.append("");
  EXPECT_EQ(heap.text(), block);
  EXPECT_EQ(heap.length(), 300u);
  EXPECT_EQ(Capacity(heap), 512u);
}

TEST(Outputstr, GrowsToTheMultipleOf256AboveTheNeed) {
  const struct {
    std::vector<size_t> appends;
    std::vector<uint64_t> capacities;
  } cases[] = {
      {{127}, {128}},         {{128}, {256}},       {{1, 126, 1}, {128, 128, 256}},
      {{255}, {512}},         {{200, 55, 1}, {256, 256, 512}},
      {{200, 54, 1}, {256, 256, 256}}, {{1000}, {1024}},
      {{128, 384}, {256, 768}},
  };
  for (const auto& c : cases) {
    outputstr s;
    std::string expected;
    for (size_t i = 0; i < c.appends.size(); ++i) {
      const std::string piece(c.appends[i], static_cast<char>('a' + i));
      s.append(piece.c_str());
      expected += piece;
      EXPECT_EQ(Capacity(s), c.capacities[i]) << "append " << i << " of " << c.appends[i];
      EXPECT_EQ(IsInline(s), c.capacities[i] == 128u);
    }
    EXPECT_EQ(s.text(), expected);
    EXPECT_EQ(s.length(), expected.size());
    EXPECT_EQ(Inspect(s).length, expected.size());
  }
}

TEST(Outputstr, ClearGoesBackInline) {
  outputstr s(std::string(300, 'x').c_str());
  s.clear();
  EXPECT_TRUE(s.isEmpty());
  EXPECT_EQ(Capacity(s), 128u);
  EXPECT_TRUE(IsInline(s));
  s.append("short");
  EXPECT_TRUE(IsInline(s));
  EXPECT_STREQ(s.text(), "short");
}

TEST(Outputstr, AssignmentClearsThenAppendsThroughTheVirtuals) {
  Recording s;
  s.append(std::string(1000, 'x').c_str());
  ASSERT_EQ(Capacity(s), 1024u);
  s.calls.clear();
  s = "short";  // fits the old block, yet starts again inline
  EXPECT_EQ(s.calls, (std::vector<std::string>{"clear", "append:short"}));
  EXPECT_TRUE(IsInline(s));
  EXPECT_STREQ(s.text(), "short");

  s.calls.clear();
  s = outputstr(std::string(200, 'y').c_str());
  EXPECT_EQ(s.calls.size(), 2u);
  EXPECT_EQ(Capacity(s), 256u);

  outputstr& self = s;
  s = self;
  EXPECT_EQ(s.text(), std::string(200, 'y'));
}

TEST(Outputstr, CopyHasItsOwnBlock) {
  outputstr source(std::string(300, 's').c_str());
  const outputstr copy(source);
  EXPECT_NE(copy.text(), source.text());
  EXPECT_STREQ(copy.text(), source.text());
  source.clear();
  EXPECT_EQ(copy.length(), 300u);
  const outputstr shortCopy(outputstr("abc"));
  EXPECT_TRUE(IsInline(shortCopy));
}

TEST(Outputstr, Concatenation) {
  const outputstr left("n=");
  const struct {
    outputstr result;
    const char* text;
  } cases[] = {
      {left + "x", "n=x"},
      {left + outputstr("y"), "n=y"},
      {left + -5, "n=-5"},
      {left + INT_MIN, "n=-2147483648"},
      {left + static_cast<uint32_t>(UINT32_MAX), "n=4294967295"},
      {left + 'c', "n=c"},
      {left + static_cast<unsigned char>(0xE9), "n=\xE9"},
      {left + static_cast<const char*>(nullptr), "n="},
  };
  for (const auto& c : cases) EXPECT_STREQ(c.result.text(), c.text);
  EXPECT_STREQ(left.text(), "n=");

  // The result's capacity comes from its own appends, not from the left
  // operand: 255 bytes reached in two steps fit a block of 256, in one step
  // they need 512.
  outputstr left255(std::string(200, 'l').c_str());
  left255.append(std::string(55, 'l').c_str());
  ASSERT_EQ(Capacity(left255), 256u);
  const outputstr sum = left255 + "";
  EXPECT_EQ(Capacity(sum), 512u);
  EXPECT_EQ(sum.length(), 255u);
  EXPECT_EQ(Capacity(outputstr(left255)), 512u);  // so does a copy's
  EXPECT_EQ(left255.length(), 255u);
  EXPECT_TRUE(IsInline(outputstr("ab") + "cd"));
}

}  // namespace
