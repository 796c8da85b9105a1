// Attribute maps and the serialised form of nodes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dom/dom.h"
#include "dom_test_util.h"

namespace tk::dom::test {
namespace {

using Pairs = std::vector<std::string>;

Pairs Names(const AttrMap& map) {
  Pairs names;
  int32_t length = 0;
  EXPECT_EQ(map.get_length(length), kOk);
  for (int32_t i = 0; i < length; ++i) {
    Node item;
    EXPECT_EQ(map.get_item(i, item), kOk);
    names.push_back(Name(item) + "=" + Value(item));
  }
  return names;
}

TEST(DomAttributes, OrderLookupAndMissingNames) {
  Document doc = Parse("<r b='1' xmlns='urn:d' p:a='2' xmlns:p='urn:p' c='3'/>");
  AttrMap map = Attributes(Root(doc));
  EXPECT_EQ(Names(map), (Pairs{"xmlns=urn:d", "xmlns:p=urn:p", "b=1", "p:a=2", "c=3"}));
  Node item;
  EXPECT_EQ(map.get_item(5, item), kFalse);
  EXPECT_FALSE(item);
  for (const char* name : {"p:a", "xmlns:p", "xmlns"}) {
    EXPECT_EQ(map.getNamedItem(name, item), kOk) << name;
    EXPECT_EQ(item.nodeType(), kAttribute);
    EXPECT_EQ(Name(item), name);
  }
  for (const char* name : {"a", "p:c", "xmlns:q", ""}) {
    EXPECT_EQ(map.getNamedItem(name, item), kFalse) << name;
    EXPECT_FALSE(item);
    EXPECT_EQ(map.removeNamedItem(name, item), kFalse) << name;
  }
  EXPECT_EQ(TextNode(doc, "t").get_attributes(map), kFalse);
  EXPECT_FALSE(map);
}

TEST(DomAttributes, SetReplacesInPlaceAndAppendsNewOnes) {
  Document doc = Parse("<r a='1' b='2' c='3'/>");
  Node root = Root(doc), old, out, other = Element(doc, "o");
  AttrMap map = Attributes(root), otherMap = Attributes(other);
  ASSERT_EQ(map.getNamedItem("b", old), kOk);
  Node b = Attribute(doc, "b", "new"), d = Attribute(doc, "d", "4");
  ASSERT_EQ(map.setNamedItem(b, out), kOk);
  EXPECT_TRUE(out.isSameNode(b));
  ASSERT_EQ(map.setNamedItem(d, out), kOk);
  EXPECT_EQ(Xml(root), "<r a=\"1\" b=\"new\" c=\"3\" d=\"4\"/>");
  EXPECT_EQ(Value(old), "2");  // the replaced attribute still answers, out of the tree
  // An attribute of another element is refused; setting one already there is a no-op.
  EXPECT_LT(otherMap.setNamedItem(d, out), 0);
  EXPECT_EQ(map.setNamedItem(d, out), kOk);

  ASSERT_EQ(map.removeNamedItem("a", out), kOk);
  EXPECT_EQ(Value(out), "1");
  EXPECT_EQ(Names(map), (Pairs{"b=new", "c=3", "d=4"}));
  // A removed attribute can go on another element.
  ASSERT_EQ(map.removeNamedItem("c", out), kOk);
  ASSERT_EQ(otherMap.setNamedItem(out, out), kOk);
  EXPECT_EQ(Xml(other), "<o c=\"3\"/>");

  // "p:a" given through the factory replaces the namespaced p:a.
  Document ns = Parse("<r xmlns:p='urn:p' p:a='ns'/>");
  map = Attributes(Root(ns));
  ASSERT_EQ(map.setNamedItem(Attribute(ns, "p:a", "literal"), out), kOk);
  EXPECT_EQ(Names(map), (Pairs{"xmlns:p=urn:p", "p:a=literal"}));
}

TEST(DomAttributes, XmlnsAttributesBecomeDeclarations) {
  Document doc = NewDocument();
  Node root = Element(doc, "r"), out;
  AttrMap map = Attributes(root);
  ASSERT_EQ(map.setNamedItem(Attribute(doc, "a", "1"), out), kOk);
  ASSERT_EQ(map.setNamedItem(Attribute(doc, "xmlns:p", "urn:p"), out), kOk);
  ASSERT_EQ(map.setNamedItem(Attribute(doc, "xmlns", "urn:d"), out), kOk);
  EXPECT_EQ(Names(map), (Pairs{"xmlns:p=urn:p", "xmlns=urn:d", "a=1"}));
  ASSERT_EQ(map.setNamedItem(Attribute(doc, "xmlns:p", "urn:q"), out), kOk);
  EXPECT_LT(map.setNamedItem(Attribute(doc, "xmlns:p"), out), 0);  // no undeclaring a prefix
  ASSERT_EQ(map.removeNamedItem("xmlns", out), kOk);
  EXPECT_EQ(Name(out) + "=" + Value(out), "xmlns=urn:d");
  EXPECT_EQ(Xml(root), "<r xmlns:p=\"urn:q\" a=\"1\"/>");

  // A declaration still in use stays.
  Document parsed = Parse("<r xmlns:p='urn:p'><p:x/></r>");
  AttrMap used = Attributes(Root(parsed));
  EXPECT_LT(used.removeNamedItem("xmlns:p", out), 0);
  EXPECT_LT(used.setNamedItem(Attribute(parsed, "xmlns:p", "urn:other"), out), 0);
  EXPECT_EQ(Xml(Root(parsed)), "<r xmlns:p=\"urn:p\"><p:x/></r>");
}

TEST(DomXml, FormsOfEachNodeKind) {
  Document doc = Parse("<r a=\"x'&quot;\xC3\xA9\" b=\"&#10;\"><e/><t>\xC3\xA9 &lt;&amp;&gt;</t>"
                       "<![CDATA[c]]><!--k--><?pi d?></r>");
  Node root = Root(doc), attr;
  EXPECT_EQ(Xml(root),
            "<r a=\"x'&quot;\xC3\xA9\" b=\"&#10;\"><e/><t>\xC3\xA9 &lt;&amp;&gt;</t>"
            "<![CDATA[c]]><!--k--><?pi d?></r>");
  EXPECT_EQ(Xml(Child(root, 0)), "<e/>");
  EXPECT_EQ(Xml(Child(root, 2)) + Xml(Child(root, 3)) + Xml(Child(root, 4)),
            "<![CDATA[c]]><!--k--><?pi d?>");
  EXPECT_EQ(Xml(Child(Child(root, 1), 0)), "\xC3\xA9 &lt;&amp;&gt;");
  Attributes(root).getNamedItem("a", attr);
  EXPECT_EQ(Xml(attr), "a=\"x'&quot;\xC3\xA9\"");
  std::string out = "stale";
  EXPECT_LT(Node().get_xml(out), 0);
  EXPECT_EQ(out, "");
}

TEST(DomXml, ElementTextDeclaresNamespacesOfItsAncestors) {
  Document doc = Parse("<r xmlns='urn:d' xmlns:p='urn:p' xmlns:q='urn:q'>"
                       "<p:a x='1' p:y='2'><b/></p:a><c xmlns:p='urn:other'><p:d/></c></r>");
  Node root = Root(doc), a = Child(root, 0), removed;
  const char* aXml = "<p:a xmlns:p=\"urn:p\" xmlns=\"urn:d\" x=\"1\" p:y=\"2\"><b/></p:a>";
  EXPECT_EQ(Xml(a), aXml);
  EXPECT_EQ(Xml(Child(a, 0)), "<b xmlns=\"urn:d\"/>");
  EXPECT_EQ(Xml(Child(root, 1)), "<c xmlns=\"urn:d\" xmlns:p=\"urn:other\"><p:d/></c>");
  // The same holds for a branch taken out of the tree.
  ASSERT_EQ(root.removeChild(a, removed), kOk);
  EXPECT_EQ(Xml(a), aXml);
  // And its declarations come along when it goes into another tree.
  Document other = NewDocument();
  Node host = Element(other, "host");
  Append(host, a);
  EXPECT_EQ(Xml(host),
            "<host><p:a xmlns:p=\"urn:p\" x=\"1\" p:y=\"2\"><b xmlns=\"urn:d\"/></p:a></host>");
  EXPECT_EQ(Xml(Root(Parse(Xml(host)))), Xml(host));
}

}  // namespace
}  // namespace tk::dom::test
