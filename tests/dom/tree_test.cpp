// Node factory, names, child lists, append/remove, values.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dom/dom.h"
#include "dom_test_util.h"

namespace tk::dom::test {
namespace {

TEST(DomThread, InitCountsPerThreadAndKeepsItsFailureSeam) {
  EXPECT_EQ(InitThread(), kOk);
  EXPECT_EQ(InitThread(), kFalse);
  UninitThread();
  UninitThread();
  EXPECT_EQ(InitThread(), kOk);
  UninitThread();
  testing::FailInitThread(1);
  EXPECT_LT(InitThread(), 0);
  EXPECT_EQ(InitThread(), kOk);
  UninitThread();

  testing::FailDocumentCreate(1);
  Document doc;
  EXPECT_LT(Document::Create(doc), 0);
  EXPECT_FALSE(doc);
  EXPECT_EQ(Document::Create(doc), kOk);
  EXPECT_TRUE(doc);
}

TEST(DomFactory, CreateNodeTakesQualifiedNamesOnly) {
  Document doc = NewDocument();
  Node node;
  for (const char* bad : {"", "1abc", "a b", ":a", "a:", "a:b:c", "<a>", "a\x01"}) {
    EXPECT_LT(doc.createNode(kElement, bad, node), 0) << bad;
    EXPECT_FALSE(node);
  }
  EXPECT_LT(doc.createNode(kText, "a", node), 0);
  EXPECT_LT(doc.createNode(kElement, std::string_view("a\0b", 3), node), 0);
  for (const char* good : {"a", "p:x", "_x.y-z", "\xC3\xA9t\xC3\xA9"}) {
    EXPECT_EQ(doc.createNode(kElement, good, node), kOk) << good;
    EXPECT_EQ(Name(node), good);
    EXPECT_TRUE(node.nameEquals(good));
    EXPECT_EQ(node.nodeType(), kElement);
  }
  Node none;
  EXPECT_EQ(doc.get_documentElement(none), kFalse);  // created nodes stand free
  EXPECT_FALSE(none);
}

TEST(DomFactory, NodeNamesAndTypesPerKind) {
  Document doc = Parse("<?xml version='1.0'?><!--c--><r xmlns:p='urn:p' p:a='1' b='2'>"
                       "t<![CDATA[c]]><?pi data?><!--k--><p:e/></r>");
  Node root = Root(doc);
  struct Row {
    int index;
    int type;
    const char* name;
    const char* value;
  };
  const Row rows[] = {{0, kText, "#text", "t"},
                      {1, kCData, "#cdata-section", "c"},
                      {2, kProcessingInstruction, "pi", "data"},
                      {3, kComment, "#comment", "k"},
                      {4, kElement, "p:e", ""}};
  ASSERT_EQ(ChildCount(root), 5);
  for (const Row& row : rows) {
    Node child = Child(root, row.index);
    EXPECT_EQ(child.nodeType(), row.type) << row.name;
    EXPECT_EQ(Name(child), row.name);
    EXPECT_TRUE(child.nameEquals(row.name));
    EXPECT_EQ(child.ptr().nodeName(), row.name);
    EXPECT_EQ(Value(child), row.value);
  }
  EXPECT_FALSE(Child(root, 4).nameEquals("e"));
  EXPECT_FALSE(Child(root, 4).nameEquals("p:"));
  EXPECT_FALSE(Child(root, 4).nameEquals("p:ex"));

  Node parent;
  EXPECT_EQ(root.get_parentNode(parent), kOk);
  EXPECT_EQ(parent.nodeType(), kDocumentNode);
  EXPECT_EQ(Name(parent), "#document");
  EXPECT_EQ(ChildCount(parent), 2);  // the comment and the element
  Node none;
  EXPECT_EQ(parent.get_parentNode(none), kFalse);
  EXPECT_FALSE(none);

  std::string value;
  EXPECT_EQ(root.get_nodeValue(value), kFalse);
  EXPECT_EQ(value, "");
}

TEST(DomChildren, ListIsLiveAndIndexWalkMatchesSiblingScan) {
  Document doc = NewDocument();
  Node root = Element(doc, "r");
  NodeList list;
  ASSERT_EQ(root.get_childNodes(list), kOk);
  bool has = true;
  EXPECT_EQ(root.hasChildNodes(has), kFalse);
  EXPECT_FALSE(has);
  int32_t length = -1;
  EXPECT_EQ(list.get_length(length), kOk);
  EXPECT_EQ(length, 0);

  for (int i = 0; i < 50; ++i) Append(root, Element(doc, "e" + std::to_string(i)));
  EXPECT_EQ(list.get_length(length), kOk);
  EXPECT_EQ(length, 50);
  EXPECT_EQ(root.hasChildNodes(has), kOk);
  EXPECT_TRUE(has);

  // Ascending, descending and scattered index access all agree with the scan.
  std::vector<std::string> scanned;
  for (NodePtr p = root.firstChild(); p; p = p.nextSibling()) scanned.push_back(p.nodeName());
  ASSERT_EQ(scanned.size(), 50u);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(Name(Child(root, i)), scanned[i]);
  for (int i = 49; i >= 0; i -= 7) EXPECT_EQ(Name(Child(root, i)), scanned[i]);

  Node item;
  EXPECT_EQ(list.get_item(50, item), kFalse);
  EXPECT_FALSE(item);
  EXPECT_EQ(list.get_item(-1, item), kFalse);

  // A change between two reads is seen at once.
  Node second = Child(root, 1);
  Node removed;
  EXPECT_EQ(list.get_item(2, item), kOk);
  ASSERT_EQ(root.removeChild(second, removed), kOk);
  EXPECT_EQ(list.get_length(length), kOk);
  EXPECT_EQ(length, 49);
  EXPECT_EQ(list.get_item(2, item), kOk);
  EXPECT_EQ(Name(item), "e3");

  Node text;
  ASSERT_EQ(doc.createTextNode("x", text), kOk);
  EXPECT_EQ(text.hasChildNodes(has), kFalse);
  EXPECT_FALSE(text.firstChild());

  Node null;
  EXPECT_LT(null.hasChildNodes(has), 0);
  EXPECT_LT(null.get_childNodes(list), 0);
}

TEST(DomChildren, AppendKeepsAdjacentTextNodesApart) {
  Document doc = NewDocument();
  Node root = Element(doc, "r");
  Node a, b;
  ASSERT_EQ(doc.createTextNode("a", a), kOk);
  ASSERT_EQ(doc.createTextNode("b", b), kOk);
  Node inA = Append(root, a);
  Node inB = Append(root, b);
  EXPECT_TRUE(inA.isSameNode(a));
  EXPECT_TRUE(inB.isSameNode(b));
  EXPECT_EQ(ChildCount(root), 2);
  EXPECT_EQ(Value(a), "a");
  EXPECT_EQ(Value(b), "b");
  EXPECT_EQ(Xml(root), "<r>ab</r>");
}

TEST(DomChildren, AppendRefusesWrongParentsAndCycles) {
  Document doc = Parse("<r><!--c--><?p d?><x/></r>");
  Node root = Root(doc);
  Node comment = Child(root, 0), pi = Child(root, 1);
  Node text, cdata, attr, in;
  ASSERT_EQ(doc.createTextNode("t", text), kOk);
  ASSERT_EQ(doc.createCDATASection("c", cdata), kOk);
  ASSERT_EQ(doc.createAttribute("a", attr), kOk);
  Node e = Element(doc, "e");
  for (Node* parent : {&text, &cdata, &comment, &pi, &attr}) {
    EXPECT_LT(parent->appendChild(e, in), 0) << Name(*parent);
    EXPECT_FALSE(in);
  }
  EXPECT_LT(root.appendChild(attr, in), 0);  // attributes go through the map

  Node x = Child(root, 2);
  Node inner = Append(x, Element(doc, "inner"));
  EXPECT_LT(inner.appendChild(root, in), 0);  // an ancestor into its descendant
  EXPECT_LT(x.appendChild(x, in), 0);
  EXPECT_EQ(Xml(root), "<r><!--c--><?p d?><x><inner/></x></r>");

  // Moving a node within the tree takes it from its old place.
  Append(root, inner);
  EXPECT_EQ(Xml(root), "<r><!--c--><?p d?><x/><inner/></r>");
}

TEST(DomChildren, RemoveChildDetachesAndChecksTheParent) {
  Document doc = Parse("<r><a><b/></a><c/></r>");
  Node root = Root(doc);
  Node a = Child(root, 0), c = Child(root, 1), b = Child(a, 0);
  Node removed;
  EXPECT_LT(root.removeChild(b, removed), 0);  // not a child of root
  EXPECT_FALSE(removed);
  ASSERT_EQ(root.removeChild(a, removed), kOk);
  EXPECT_TRUE(removed.isSameNode(a));
  Node parent;
  EXPECT_EQ(a.get_parentNode(parent), kFalse);
  EXPECT_EQ(Xml(root), "<r><c/></r>");
  EXPECT_EQ(Xml(a), "<a><b/></a>");
  EXPECT_EQ(b.get_parentNode(parent), kOk);
  EXPECT_TRUE(parent.isSameNode(a));
}

TEST(DomValues, TextCdataCommentPiAndAttributeValues) {
  Document doc = Parse("<r a='1'>t<![CDATA[c]]><!--k--><?p d?></r>");
  Node root = Root(doc);
  AttrMap map;
  ASSERT_EQ(root.get_attributes(map), kOk);
  Node attr;
  ASSERT_EQ(map.getNamedItem("a", attr), kOk);
  Node nodes[] = {Child(root, 0), Child(root, 1), Child(root, 2), Child(root, 3), attr};
  for (Node& node : nodes) {
    EXPECT_EQ(node.put_nodeValue("v \xC3\xA9 <&>"), kOk) << Name(node);
    EXPECT_EQ(Value(node), "v \xC3\xA9 <&>");
  }
  EXPECT_EQ(Xml(root),
            "<r a=\"v \xC3\xA9 &lt;&amp;&gt;\">v \xC3\xA9 &lt;&amp;&gt;"
            "<![CDATA[v \xC3\xA9 <&>]]><!--v \xC3\xA9 <&>--><?p v \xC3\xA9 <&>?></r>");
  EXPECT_LT(root.put_nodeValue("x"), 0);
}

TEST(DomValues, TextXmlCantHoldIsRefusedEverywhere) {
  Document doc = Parse("<r a='1'>t<!--k--></r>");
  Node root = Root(doc);
  Node text = Child(root, 0), comment = Child(root, 1), out;
  const std::string bad[] = {"\x01", std::string("a\0b", 3), "\xFF", "\xC3", "\xED\xA0\x80",
                             "\xEF\xBF\xBF", "\xC0\xAF", "\xF4\x90\x80\x80"};
  for (const std::string& value : bad) {
    EXPECT_LT(text.put_nodeValue(value), 0);
    EXPECT_LT(doc.createTextNode(value, out), 0);
    EXPECT_LT(doc.createCDATASection(value, out), 0);
  }
  EXPECT_EQ(Value(text), "t");
  EXPECT_LT(comment.put_nodeValue("a--b"), 0);
  EXPECT_LT(comment.put_nodeValue("a-"), 0);
  // Tab, line ends and characters above U+FFFF are fine.
  EXPECT_EQ(text.put_nodeValue("\t\r\n\xF0\x9F\x98\x80"), kOk);
  EXPECT_EQ(Xml(text), "\t&#13;\n\xF0\x9F\x98\x80");
}


TEST(DomChildren, OutArgumentsMayBeTheInputNode) {
  Document doc = Parse("<r><a><b/></a></r>");
  Node node = Child(Child(Root(doc), 0), 0);
  ASSERT_EQ(node.get_parentNode(node), kOk);
  EXPECT_EQ(Name(node), "a");
  Node root = Root(doc);
  ASSERT_EQ(root.removeChild(node, node), kOk);
  EXPECT_EQ(Xml(node), "<a><b/></a>");
  ASSERT_EQ(root.appendChild(node, node), kOk);
  EXPECT_EQ(Xml(root), "<r><a><b/></a></r>");
  Node attr;
  ASSERT_EQ(doc.createAttribute("x", attr), kOk);
  AttrMap map;
  ASSERT_EQ(root.get_attributes(map), kOk);
  ASSERT_EQ(map.setNamedItem(attr, attr), kOk);
  EXPECT_EQ(Name(attr), "x");
  EXPECT_EQ(Xml(root), "<r x=\"\"><a><b/></a></r>");
}

}  // namespace
}  // namespace tk::dom::test
