// Node factory, names, child lists, append/remove, values.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "dom/dom.h"
#include "dom_test_util.h"

namespace tk::dom::test {
namespace {

using namespace std::literals;

TEST(DomThread, InitCountsPerThread) {
  EXPECT_EQ(InitThread(), kOk);
  EXPECT_EQ(InitThread(), kFalse);
  UninitThread();
  UninitThread();
  EXPECT_EQ(InitThread(), kOk);  // paired off: the next call sets up again
  UninitThread();
}

TEST(DomFactory, CreateNodeTakesQualifiedNamesOnly) {
  Document doc = NewDocument();
  Node node;
  for (auto bad : {""sv, "1a"sv, "a b"sv, ":a"sv, "a:"sv, "a:b:c"sv, "a\x01"sv, "a\0b"sv}) {
    EXPECT_LT(doc.createNode(kElement, bad, node), 0) << bad;
    EXPECT_FALSE(node);
  }
  EXPECT_LT(doc.createNode(kText, "a", node), 0);
  for (const char* good : {"p:x", "_x.y-z", "\xC3\xA9t\xC3\xA9"}) {
    EXPECT_EQ(doc.createNode(kElement, good, node), kOk) << good;
    EXPECT_EQ(Name(node), good);
    EXPECT_EQ(node.nodeType(), kElement);
  }
  EXPECT_EQ(doc.get_documentElement(node), kFalse);  // created nodes stand free
  EXPECT_FALSE(node);
}

TEST(DomFactory, NodeNamesAndTypesPerKind) {
  Document doc = Parse("<?xml version='1.0'?><!--c--><r xmlns:p='urn:p' p:a='1' b='2'>"
                       "t<![CDATA[c]]><?pi data?><!--k--><p:e/></r>");
  Node root = Root(doc), parent, none;
  const std::pair<int, const char*> rows[] = {{kText, "#text=t"},
                                              {kCData, "#cdata-section=c"},
                                              {kProcessingInstruction, "pi=data"},
                                              {kComment, "#comment=k"},
                                              {kElement, "p:e="}};
  ASSERT_EQ(ChildCount(root), 5);
  for (int i = 0; i < 5; ++i) {
    Node child = Child(root, i);
    EXPECT_EQ(child.nodeType(), rows[i].first) << rows[i].second;
    EXPECT_EQ(Name(child) + "=" + Value(child), rows[i].second);
    EXPECT_TRUE(child.nameEquals(Name(child))) << rows[i].second;
  }
  for (const char* other : {"e", "p:", "p:ex"}) EXPECT_FALSE(Child(root, 4).nameEquals(other));

  EXPECT_EQ(root.get_parentNode(parent), kOk);
  EXPECT_EQ(parent.nodeType(), kDocumentNode);
  EXPECT_EQ(Name(parent), "#document");
  EXPECT_EQ(ChildCount(parent), 2);  // the comment and the element
  EXPECT_EQ(parent.get_parentNode(none), kFalse);
  EXPECT_FALSE(none);
  std::string value = "stale";
  EXPECT_EQ(root.get_nodeValue(value), kFalse);
  EXPECT_EQ(value, "");
}

TEST(DomChildren, ListIsLiveAndIndexWalkMatchesSiblingScan) {
  Document doc = NewDocument();
  Node root = Element(doc, "r"), item, null;
  NodeList list;
  ASSERT_EQ(root.get_childNodes(list), kOk);
  bool has = true;
  int32_t length = -1;
  EXPECT_EQ(root.hasChildNodes(has), kFalse);
  for (int i = 0; i < 50; ++i) Append(root, Element(doc, "e" + std::to_string(i)));
  EXPECT_EQ(root.hasChildNodes(has), kOk);
  EXPECT_EQ(list.get_length(length), kOk);
  EXPECT_EQ(length, 50);
  // Ascending and descending index access agree with the sibling scan.
  std::vector<std::string> scanned;
  for (NodePtr p = root.firstChild(); p; p = p.nextSibling()) scanned.push_back(p.nodeName());
  ASSERT_EQ(scanned.size(), 50u);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(Name(Child(root, i)), scanned[i]);
  for (int i = 49; i >= 0; i -= 7) EXPECT_EQ(Name(Child(root, i)), scanned[i]);
  EXPECT_EQ(list.get_item(50, item), kFalse);
  EXPECT_FALSE(item);
  EXPECT_EQ(list.get_item(-1, item), kFalse);

  // A change between two reads is seen at once.
  EXPECT_EQ(list.get_item(2, item), kOk);
  ASSERT_EQ(root.removeChild(Child(root, 1), item), kOk);
  EXPECT_EQ(list.get_length(length), kOk);
  EXPECT_EQ(length, 49);
  EXPECT_EQ(list.get_item(2, item), kOk);
  EXPECT_EQ(Name(item), "e3");
  EXPECT_LT(null.hasChildNodes(has), 0);
  EXPECT_LT(null.get_childNodes(list), 0);
}

TEST(DomChildren, IndexAccessInAnyOrderWithOtherListsBetween) {
  // The document node's list holds a node it doesn't show (the DOCTYPE).
  Document doc = Parse("<!DOCTYPE d><!--a--><?p x?><d><e/>t<f/></d><!--b-->");
  Document other = Parse("<o><x/><y/></o>");
  Node top, inner = Root(doc);
  ASSERT_EQ(inner.get_parentNode(top), kOk);
  NodeList list;
  int32_t length = 0;
  ASSERT_EQ(top.get_childNodes(list), kOk);
  ASSERT_EQ(list.get_length(length), kOk);
  ASSERT_EQ(length, 4);
  const char* const names[] = {"#comment", "p", "d", "#comment"};
  const char* const innerNames[] = {"e", "#text", "f"};
  for (int32_t index : {3, 0, 2, 1, 3, 1, 2, 0}) {
    Node item;
    ASSERT_EQ(list.get_item(index, item), kOk);
    EXPECT_EQ(Name(item), names[index]) << index;
    EXPECT_EQ(Name(Child(inner, index % 3)), innerNames[index % 3]);
    EXPECT_EQ(Name(Child(Root(other), index % 2)), index % 2 == 0 ? "x" : "y");
  }
  Node item;
  EXPECT_EQ(list.get_item(4, item), kFalse);
}

TEST(DomChildren, AppendKeepsAdjacentTextNodesApart) {
  Document doc = NewDocument();
  Node root = Element(doc, "r");
  Append(root, TextNode(doc, "a"));
  Append(root, TextNode(doc, "b"));
  EXPECT_EQ(ChildCount(root), 2);
  EXPECT_EQ(Xml(root), "<r>ab</r>");
}

TEST(DomChildren, AppendRefusesWrongParentsAndCycles) {
  Document doc = Parse("<r><!--c--><?p d?><x/></r>");
  Node root = Root(doc);
  Node comment = Child(root, 0), pi = Child(root, 1), text = TextNode(doc, "t");
  Node cdata, attr = Attribute(doc, "a"), in, e = Element(doc, "e");
  ASSERT_EQ(doc.createCDATASection("c", cdata), kOk);
  for (Node* parent : {&text, &cdata, &comment, &pi, &attr}) {
    EXPECT_LT(parent->appendChild(e, in), 0) << Name(*parent);
    EXPECT_FALSE(in);
  }
  EXPECT_LT(root.appendChild(attr, in), 0);  // attributes go through the map

  Node x = Child(root, 2);
  Node inner = Append(x, Element(doc, "inner"));
  EXPECT_LT(inner.appendChild(root, in), 0);  // an ancestor into its descendant
  EXPECT_LT(x.appendChild(x, in), 0);
  // Moving a node within the tree takes it from its old place.
  Append(root, inner);
  EXPECT_EQ(Xml(root), "<r><!--c--><?p d?><x/><inner/></r>");
}

TEST(DomChildren, RemoveChildDetachesAndChecksTheParent) {
  Document doc = Parse("<r><a><b/></a><c/></r>");
  Node root = Root(doc), a = Child(root, 0), b = Child(a, 0), removed, parent;
  EXPECT_LT(root.removeChild(b, removed), 0);  // not a child of root
  EXPECT_FALSE(removed);
  ASSERT_EQ(root.removeChild(a, removed), kOk);
  EXPECT_TRUE(removed.isSameNode(a));
  EXPECT_EQ(a.get_parentNode(parent), kFalse);
  EXPECT_EQ(Xml(root), "<r><c/></r>");
  EXPECT_EQ(b.get_parentNode(parent), kOk);
  EXPECT_TRUE(parent.isSameNode(a));

  // Out arguments may be the input node itself.
  Node node = b, attr = Attribute(doc, "x");
  ASSERT_EQ(node.get_parentNode(node), kOk);
  ASSERT_EQ(root.appendChild(node, node), kOk);
  ASSERT_EQ(root.removeChild(node, node), kOk);
  EXPECT_EQ(Xml(node), "<a><b/></a>");
  ASSERT_EQ(Attributes(root).setNamedItem(attr, attr), kOk);
  EXPECT_EQ(Name(attr), "x");
  EXPECT_EQ(Xml(root), "<r x=\"\"><c/></r>");
}

TEST(DomValues, TextCdataCommentPiAndAttributeValues) {
  Document doc = Parse("<r a='1'>t<![CDATA[c]]><!--k--><?p d?></r>");
  Node root = Root(doc), text = Child(root, 0), attr, out;
  // Text XML can't hold is refused everywhere.
  const std::string bad[] = {"\x01", std::string("a\0b", 3), "\xFF", "\xC3", "\xED\xA0\x80",
                             "\xEF\xBF\xBF", "\xC0\xAF", "\xF4\x90\x80\x80"};
  for (const std::string& value : bad) {
    EXPECT_LT(text.put_nodeValue(value), 0);
    EXPECT_LT(doc.createTextNode(value, out), 0);
    EXPECT_LT(doc.createCDATASection(value, out), 0);
  }
  EXPECT_EQ(Value(text), "t");
  EXPECT_LT(Child(root, 2).put_nodeValue("a--b"), 0);
  EXPECT_LT(Child(root, 2).put_nodeValue("a-"), 0);
  EXPECT_LT(Child(root, 3).put_nodeValue("a?>b"), 0);
  EXPECT_LT(root.put_nodeValue("x"), 0);

  ASSERT_EQ(Attributes(root).getNamedItem("a", attr), kOk);
  for (Node node : {text, Child(root, 1), Child(root, 2), Child(root, 3), attr}) {
    EXPECT_EQ(node.put_nodeValue("v \xC3\xA9 <&>"), kOk) << Name(node);
    EXPECT_EQ(Value(node), "v \xC3\xA9 <&>");
  }
  EXPECT_EQ(Xml(root),
            "<r a=\"v \xC3\xA9 &lt;&amp;&gt;\">v \xC3\xA9 &lt;&amp;&gt;"
            "<![CDATA[v \xC3\xA9 <&>]]><!--v \xC3\xA9 <&>--><?p v \xC3\xA9 <&>?></r>");
  // Tab, line ends and characters above U+FFFF are fine.
  EXPECT_EQ(text.put_nodeValue("\t\r\n\xF0\x9F\x98\x80"), kOk);
  EXPECT_EQ(Xml(text), "\t&#13;\n\xF0\x9F\x98\x80");
}

}  // namespace
}  // namespace tk::dom::test
