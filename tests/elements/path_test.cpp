#include <gtest/gtest.h>

#include <clocale>
#include <cstring>
#include <locale.h>
#include <string>

#include "dom/dom.h"
#include "elements/path.h"

namespace tk {
namespace {

TEST(NormalizePath, NullEmptyAndTrailingSlash) {
  EXPECT_EQ(NormalizePath(nullptr), nullptr);
  EXPECT_EQ(NormalizePath(""), nullptr);
  const struct {
    const char* in;
    const char* out;
  } cases[] = {{"a", "a/"}, {"a/b", "a/b/"}, {"a/", "a/"}, {"a//", "a//"}, {"/", "/"},
               {"//", "//"}};
  for (const auto& c : cases) {
    auto normalized = NormalizePath(c.in);
    ASSERT_NE(normalized, nullptr) << c.in;
    EXPECT_STREQ(normalized.get(), c.out) << c.in;
  }
}

// cfg holds: an empty a, an a holding b, a text node, c holding d.
class WalkPathTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(dom::InitThread() >= 0, true);
    ASSERT_GE(dom::Document::Create(doc), 0);
    root = Element("cfg");
    a1 = Add(root, Element("a"));
    a2 = Add(root, Element("a"));
    b = Add(a2, Element("b"));
    dom::Node text;
    ASSERT_GE(doc.createTextNode("text", text), 0);
    textNode = Add(root, text);
    c = Add(root, Element("c"));
    d = Add(c, Element("d"));
  }
  void TearDown() override {
    root.reset();
    a1.reset();
    a2.reset();
    b.reset();
    c.reset();
    d.reset();
    textNode.reset();
    doc.reset();
    dom::UninitThread();
  }

  dom::Node Element(const std::string& name) {
    dom::Node node;
    EXPECT_GE(doc.createNode(dom::kElement, name, node), 0) << name;
    return node;
  }
  static dom::Node Add(dom::Node& parent, const dom::Node& child) {
    dom::Node inTree;
    EXPECT_GE(parent.appendChild(child, inTree), 0);
    return inTree;
  }
  dom::Node Walk(const dom::Node& start, const char* path) {
    auto normalized = NormalizePath(path);
    return WalkPath(start, normalized.get());
  }

  dom::Document doc;
  dom::Node root, a1, a2, b, textNode, c, d;
};

TEST_F(WalkPathTest, FirstMatchPerLevelWithoutBacktracking) {
  const struct {
    const char* path;
    const dom::Node* expected;  // null: no match
  } cases[] = {
      {"c/d", &d},   {"c/d/", &d},     {"c", &c},         {"a", &a1},
      {"a/b", nullptr},  // the first a has no children; the second is never tried
      {"c//d", nullptr}, {"c/d//", nullptr}, {"/", nullptr},    {"/c", nullptr},
      {"C/d", nullptr},  {"cfg/c", nullptr}, {"#text", nullptr}, {"c/d/e", nullptr},
  };
  for (const auto& c : cases) {
    const dom::Node found = Walk(root, c.path);
    if (c.expected == nullptr) {
      EXPECT_FALSE(found) << c.path;
    } else {
      EXPECT_TRUE(found.isSameNode(*c.expected)) << c.path;
    }
  }
}

TEST_F(WalkPathTest, EmptyPathReturnsTheStartItself) {
  EXPECT_TRUE(WalkPath(root, nullptr).isSameNode(root));
  EXPECT_TRUE(WalkPath(root, "").isSameNode(root));
  // A non-element start: its empty path is itself, anything else finds nothing.
  EXPECT_TRUE(Walk(textNode, "").isSameNode(textNode));
  EXPECT_FALSE(Walk(textNode, "a"));
}

TEST_F(WalkPathTest, RepeatedWalksFindTheSameNode) {
  const dom::Node first = Walk(root, "c/d");
  const dom::Node second = Walk(root, "c/d");
  EXPECT_TRUE(first.isSameNode(second));
  // The tree is unchanged by a walk.
  std::string xml;
  ASSERT_GE(root.get_xml(xml), 0);
  EXPECT_EQ(xml, "<cfg><a/><a><b/></a>text<c><d/></c></cfg>");
}

TEST_F(WalkPathTest, ComponentLengthLimit) {
  const std::string name63 = "n" + std::string(62, 'x');
  const std::string name64 = name63 + "x";
  const dom::Node long63 = Add(root, Element(name63));
  Add(root, Element(name64));
  EXPECT_TRUE(Walk(root, name63.c_str()).isSameNode(long63));
  // Past the limit nothing is found, even though the element exists.
  EXPECT_FALSE(Walk(root, name64.c_str()));
  EXPECT_FALSE(Walk(root, std::string(10000, 'c').c_str()));
  EXPECT_FALSE(Walk(root, ("c/" + std::string(1 << 20, 'd')).c_str()));
}

TEST_F(WalkPathTest, DeepPaths) {
  dom::Node deepest = c;
  std::string path = "c";
  for (int i = 0; i < 1000; ++i) {
    deepest = Add(deepest, Element("e"));
    path += "/e";
  }
  EXPECT_TRUE(Walk(root, path.c_str()).isSameNode(deepest));
  // A megabyte of levels runs out of elements and ends without a match.
  std::string huge = "c";
  while (huge.size() < (1u << 20)) huge += "/e";
  EXPECT_FALSE(Walk(root, huge.c_str()));
}

TEST_F(WalkPathTest, NamesCompareInTheDefaultCodePage) {
  const dom::Node accented = Add(root, Element("caf\xC3\xA9"));
  EXPECT_TRUE(Walk(root, "caf\xC3\xA9").isSameNode(accented));

  locale_t latin1 = newlocale(LC_CTYPE_MASK, "en_US.ISO-8859-1", static_cast<locale_t>(0));
  if (latin1 == static_cast<locale_t>(0)) GTEST_SKIP() << "no ISO-8859-1 locale";
  const locale_t previous = uselocale(latin1);
  const dom::Node found = Walk(root, "caf\xE9");
  const dom::Node utf8Bytes = Walk(root, "caf\xC3\xA9");
  uselocale(previous);
  freelocale(latin1);
  EXPECT_TRUE(found.isSameNode(accented));
  EXPECT_FALSE(utf8Bytes);
}

}  // namespace
}  // namespace tk
