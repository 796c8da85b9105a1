#include <gtest/gtest.h>

#include <locale.h>

#include <string>

#include "dom/dom.h"
#include "elements/path.h"

namespace tk {
namespace {

TEST(NormalizePath, NullEmptyAndTrailingSlash) {
  EXPECT_EQ(NormalizePath(nullptr), nullptr);
  EXPECT_EQ(NormalizePath(""), nullptr);
  const char* cases[][2] = {{"a", "a/"}, {"a/b", "a/b/"}, {"a/", "a/"}, {"a//", "a//"},
                            {"/", "/"}};
  for (const auto& c : cases) EXPECT_STREQ(NormalizePath(c[0]).get(), c[1]) << c[0];
}

// cfg holds: an empty a, an a holding b, a text node, c holding d.
class WalkPathTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_GE(dom::InitThread(), 0);
    ASSERT_GE(dom::Document::Create(doc), 0);
    root = Element("cfg");
    a1 = Add(root, Element("a"));
    Add(Add(root, Element("a")), Element("b"));
    ASSERT_GE(doc.createTextNode("text", text), 0);
    text = Add(root, text);
    c = Add(root, Element("c"));
    d = Add(c, Element("d"));
  }
  void TearDown() override {
    root = a1 = text = c = d = dom::Node();
    doc.reset();
    dom::UninitThread();
  }

  dom::Node Element(const std::string& name) {
    dom::Node node;
    EXPECT_GE(doc.createNode(dom::kElement, name, node), 0) << name;
    return node;
  }
  static dom::Node Add(dom::Node parent, const dom::Node& child) {
    dom::Node inTree;
    EXPECT_GE(parent.appendChild(child, inTree), 0);
    return inTree;
  }
  // Walks the path as the client gave it and normalised; both must agree.
  static dom::Node Walk(const dom::Node& start, const std::string& path) {
    dom::Node raw = WalkPath(start, path.c_str());
    const dom::Node normalized = WalkPath(start, NormalizePath(path.c_str()).get());
    EXPECT_TRUE(raw.isSameNode(normalized)) << path;
    return raw;
  }

  dom::Document doc;
  dom::Node root, a1, text, c, d;
};

TEST_F(WalkPathTest, FirstMatchPerLevelWithoutBacktracking) {
  const struct {
    const char* path;
    const dom::Node* expected;  // null: no match
  } cases[] = {
      {"c/d", &d},       {"c/d/", &d},      {"a", &a1},         {"", &root},
      {"a/b", nullptr},  // the first a has no children; the second is never tried
      {"c//d", nullptr}, {"c/d//", nullptr}, {"/", nullptr},     {"/c", nullptr},
      {"C/d", nullptr},  {"cfg/c", nullptr}, {"#text", nullptr}, {"c/d/e", nullptr},
  };
  for (const auto& c : cases) {
    const dom::Node found = Walk(root, c.path);
    EXPECT_TRUE(c.expected ? found.isSameNode(*c.expected) : !found) << c.path;
  }
  EXPECT_TRUE(WalkPath(root, nullptr).isSameNode(root));
  // A non-element start: the empty path is itself, anything else finds nothing.
  EXPECT_TRUE(Walk(text, "").isSameNode(text));
  EXPECT_FALSE(Walk(text, "a"));
}

TEST_F(WalkPathTest, ComponentLengthAndPathDepth) {
  const std::string name63 = "n" + std::string(62, 'x');
  const dom::Node long63 = Add(root, Element(name63));
  Add(root, Element(name63 + "x"));
  EXPECT_TRUE(Walk(root, name63).isSameNode(long63));
  // Past 63 bytes nothing is found, even where the element exists.
  EXPECT_FALSE(Walk(root, name63 + "x"));
  EXPECT_FALSE(Walk(root, "c/" + std::string(1 << 20, 'd')));

  dom::Node deepest = c;
  std::string path = "c";
  for (int i = 0; i < 1000; ++i) {
    deepest = Add(deepest, Element("e"));
    path += "/e";
  }
  EXPECT_TRUE(Walk(root, path).isSameNode(deepest));
  while (path.size() < (1u << 20)) path += "/e";
  EXPECT_FALSE(Walk(root, path));
}

TEST_F(WalkPathTest, PrefixedNamesMatchTheirQualifiedName) {
  const std::string xml = "<r xmlns:p='urn:p'><x/><p:x/><p:y/></r>";
  ASSERT_EQ(doc.loadBytes(xml.data(), xml.size()), 0);
  dom::Node r;
  ASSERT_EQ(doc.get_documentElement(r), 0);
  const dom::Node made = Add(r, Element("p:y"));  // a name with a colon, in no namespace
  dom::Node children[3];
  dom::NodePtr child = r.firstChild();
  for (dom::Node& out : children) {
    out = child.ref();
    child = child.nextSibling();
  }
  EXPECT_TRUE(Walk(r, "x").isSameNode(children[0]));
  EXPECT_TRUE(Walk(r, "p:x").isSameNode(children[1]));
  EXPECT_TRUE(Walk(r, "p:y").isSameNode(children[2]));
  EXPECT_FALSE(Walk(r, "y"));
  EXPECT_FALSE(Walk(r, "p:"));
  EXPECT_FALSE(Walk(r, ":x"));
  r.reset();
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
