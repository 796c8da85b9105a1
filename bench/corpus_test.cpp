// The corpus has to be the same on every run and every machine, well formed,
// of the size it claims and of the shape it is named for; otherwise the
// figures of two runs, or of two libraries, don't compare.
#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <algorithm>
#include <cstdio>
#include <functional>

#include "common.h"
#include "corpus.h"

namespace tkbench {
namespace {

struct ParsedDoc {
  explicit ParsedDoc(const std::string& text) : doc(ParseWithDomOptions(text)) {}
  ~ParsedDoc() { xmlFreeDoc(doc); }
  xmlNodePtr root() const { return xmlDocGetRootElement(doc); }
  xmlDocPtr doc;
};

std::vector<xmlNodePtr> ElementChildren(xmlNodePtr parent) {
  std::vector<xmlNodePtr> children;
  for (xmlNodePtr c = parent->children; c; c = c->next) {
    if (c->type == XML_ELEMENT_NODE) children.push_back(c);
  }
  return children;
}

void Walk(xmlNodePtr node, const std::function<void(xmlNodePtr)>& visit) {
  visit(node);
  for (xmlNodePtr c = node->children; c; c = c->next) Walk(c, visit);
}

int Depth(xmlNodePtr node) {
  int depth = 0;
  for (; node && node->type == XML_ELEMENT_NODE; node = node->parent) ++depth;
  return depth;
}

const std::vector<DocSpec> kByteShapes = {{Shape::kConfig, 100'000, "100KB"},
                                          {Shape::kAttributes, 100'000, "100KB"},
                                          {Shape::kText, 100'000, "100KB"},
                                          {Shape::kMixed, 100'000, "100KB"},
                                          {Shape::kConfig, 1'000'000, "1MB"},
                                          {Shape::kAttributes, 1'000'000, "1MB"},
                                          {Shape::kText, 1'000'000, "1MB"},
                                          {Shape::kMixed, 1'000'000, "1MB"},
                                          {Shape::kConfig, 10'000'000, "10MB"}};

TEST(Corpus, SameSpecGivesSameBytesAndSizesHold) {
  for (const DocSpec& spec : kByteShapes) {
    SCOPED_TRACE(DocLabel(spec));
    const std::string text = Generate(spec);
    EXPECT_EQ(text, Generate(spec));
    EXPECT_NEAR(static_cast<double>(text.size()), static_cast<double>(spec.size),
                0.05 * static_cast<double>(spec.size));
    ParsedDoc parsed(text);
    ASSERT_NE(parsed.doc, nullptr) << "not well formed";
  }
}

TEST(Corpus, SeedChangesContentButNotShape) {
  using Generator = std::string (*)(size_t, uint64_t);
  for (Generator generate : {&GenerateConfig, &GenerateAttributes, &GenerateText,
                             &GenerateMixed, &GenerateWide}) {
    const std::string a = generate(5'000, 1);
    const std::string b = generate(5'000, 2);
    EXPECT_NE(a, b);
    ParsedDoc pa(a), pb(b);
    ASSERT_NE(pa.doc, nullptr);
    ASSERT_NE(pb.doc, nullptr);
    EXPECT_STREQ(reinterpret_cast<const char*>(pa.root()->name),
                 reinterpret_cast<const char*>(pb.root()->name));
  }
}

TEST(Corpus, ConfigHasEightLevelsOfTwentySiblings) {
  for (size_t size : {100'000u, 1'000'000u}) {
    ParsedDoc parsed(GenerateConfig(size, 7));
    ASSERT_NE(parsed.doc, nullptr);
    int deepest = 0;
    Walk(parsed.root(), [&](xmlNodePtr node) {
      if (node->type != XML_ELEMENT_NODE) return;
      deepest = std::max(deepest, Depth(node));
      const auto children = ElementChildren(node);
      if (children.empty()) return;
      ASSERT_EQ(children.size(), static_cast<size_t>(kConfigFanout));
      // Settings first, groups last; names carry the position.
      for (size_t i = 0; i < children.size(); ++i) {
        const std::string name = reinterpret_cast<const char*>(children[i]->name);
        char position[24];
        std::snprintf(position, sizeof position, "%02zu", i);
        EXPECT_EQ(name.substr(3), position);
        if (i + 1 < children.size() && name.starts_with("grp")) {
          EXPECT_TRUE(std::string(reinterpret_cast<const char*>(children[i + 1]->name))
                          .starts_with("grp"));
        }
      }
    });
    EXPECT_EQ(deepest, kConfigLevels) << size;
  }
}

TEST(Corpus, PathFixtureMatchesLastSiblingOnEveryLevel) {
  ParsedDoc parsed(GeneratePathFixture(3));
  ASSERT_NE(parsed.doc, nullptr);
  EXPECT_STREQ(reinterpret_cast<const char*>(parsed.root()->name), kPathFixtureRoot);
  xmlNodePtr node = parsed.root();
  std::string path = kPathFixturePath;
  for (size_t start = 0; start <= path.size();) {
    const size_t end = std::min(path.find('/', start), path.size());
    const std::string component = path.substr(start, end - start);
    const auto siblings = ElementChildren(node);
    ASSERT_EQ(siblings.size(), static_cast<size_t>(kConfigFanout));
    node = FirstChildElement(node, component.c_str());
    ASSERT_EQ(node, siblings.back()) << component;
    start = end + 1;
  }
  ASSERT_NE(node->children, nullptr);
  EXPECT_EQ(node->children->type, XML_TEXT_NODE);
}

TEST(Corpus, RecordsCarryTenAttributesInOrder) {
  ParsedDoc parsed(GenerateAttributes(50'000, 11));
  ASSERT_NE(parsed.doc, nullptr);
  const auto records = ElementChildren(parsed.root());
  ASSERT_GT(records.size(), 100u);
  for (xmlNodePtr record : records) {
    EXPECT_STREQ(reinterpret_cast<const char*>(record->name), kRecordName);
    std::vector<std::string> names;
    for (xmlAttrPtr a = record->properties; a; a = a->next) {
      names.emplace_back(reinterpret_cast<const char*>(a->name));
    }
    ASSERT_EQ(names, RecordAttributeNames());
  }
}

TEST(Corpus, WideHasExactlyNChildren) {
  for (size_t n : {1u, 10'000u}) {
    ParsedDoc parsed(GenerateWide(n, 5));
    ASSERT_NE(parsed.doc, nullptr);
    const auto children = ElementChildren(parsed.root());
    EXPECT_EQ(children.size(), n);
    for (xmlNodePtr child : children) {
      EXPECT_STREQ(reinterpret_cast<const char*>(child->name), kWideChildName);
    }
  }
}

TEST(Corpus, TextAndMixedCarryTheirKindsOfContent) {
  const std::string text = GenerateText(50'000, 9);
  EXPECT_NE(text.find("&amp;"), std::string::npos);
  EXPECT_NE(text.find("&#x"), std::string::npos);
  EXPECT_TRUE(std::any_of(text.begin(), text.end(), [](char c) { return c & 0x80; }));
  // A 4-byte UTF-8 sequence: a character above U+FFFF.
  EXPECT_NE(text.find("\xF0\x9F"), std::string::npos);

  ParsedDoc mixed(GenerateMixed(50'000, 9));
  ASSERT_NE(mixed.doc, nullptr);
  int comments = 0, cdata = 0, textWithElementSibling = 0;
  Walk(mixed.root(), [&](xmlNodePtr node) {
    comments += node->type == XML_COMMENT_NODE;
    cdata += node->type == XML_CDATA_SECTION_NODE;
    if (node->type == XML_TEXT_NODE && (node->next && node->next->type == XML_ELEMENT_NODE))
      ++textWithElementSibling;
  });
  EXPECT_GT(comments, 0);
  EXPECT_GT(cdata, 0);
  EXPECT_GT(textWithElementSibling, 0);
}

}  // namespace
}  // namespace tkbench
