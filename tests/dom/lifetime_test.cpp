// Node lifetime: a node stays usable while a reference is held, also after it
// left its tree or its document loaded another one; what nothing holds goes.
// The sanitizer build checks that nothing is used after free or leaked.
#include <gtest/gtest.h>

#include <string>

#include "dom/dom.h"
#include "dom_test_util.h"

namespace tk::dom::test {
namespace {

TEST(DomLifetime, RemovedSubtreeWorksWhileHeldAndGoesWithItsLastReference) {
  Document doc = Parse("<r><a><b>x</b></a></r>");
  Node root = Root(doc);
  WeakNode weakA, weakText;
  {
    Node a = Child(root, 0), text = Child(Child(a, 0), 0), removed, parent;
    weakA.assign(a);
    weakText.assign(text);
    ASSERT_EQ(root.removeChild(a, removed), kOk);
    a.reset();
    // Only removed (and the text) hold the branch now; it keeps working.
    Append(removed, Element(doc, "c"));
    removed.reset();
    EXPECT_TRUE(weakA.lock());  // the text inside still pins its branch
    EXPECT_EQ(text.put_nodeValue("y"), kOk);
    ASSERT_EQ(text.get_parentNode(parent), kOk);
    ASSERT_EQ(parent.get_parentNode(parent), kOk);
    EXPECT_EQ(Xml(parent), "<a><b>y</b><c/></a>");
  }
  EXPECT_FALSE(weakA.lock());
  EXPECT_FALSE(weakText.lock());
  EXPECT_EQ(Xml(root), "<r/>");
}

TEST(DomLifetime, WeakNodeOnLoadedElementLastsAsLongAsTheTree) {
  Document doc = Parse("<r><a/></r>");
  WeakNode weakRoot, weakChild;
  weakRoot.assign(Root(doc));
  weakChild.assign(Child(Root(doc), 0));
  EXPECT_EQ(Xml(weakChild.lock()), "<a/>");
  ASSERT_EQ(LoadText(doc, "<n/>"), kOk);
  EXPECT_FALSE(weakRoot.lock());
  EXPECT_FALSE(weakChild.lock());

  // A failed load keeps the tree and everything weak on it.
  weakRoot.assign(Root(doc));
  EXPECT_LT(LoadText(doc, "<x"), 0);
  EXPECT_TRUE(weakRoot.lock());
  // So does releasing the Document while a reference is held.
  Node held = Root(doc);
  doc.reset();
  EXPECT_EQ(Xml(held), "<n/>");
  held.reset();
  EXPECT_FALSE(weakRoot.lock());
}

TEST(DomLifetime, OldTreeKeepsWorkingAfterLoadAndTakesNodesOfTheNewOne) {
  // Trees without a dictionary (created) and with one (parsed), both ways.
  Document doc = NewDocument();
  Node created = Element(doc, "created");
  Append(created, TextNode(doc, "ab"));

  ASSERT_EQ(LoadText(doc, "<first><x> </x>ab</first>"), kOk);
  Node first = Root(doc);
  Append(created, Element(doc, "fromFirst"));  // dictionary tree into a plain one
  Append(created, Child(first, 1));            // a text the parser may have interned
  Append(first, Child(created, 0));            // plain into dictionary tree

  ASSERT_EQ(LoadText(doc, "<second/>"), kOk);
  Node fromSecond = Append(first, Element(doc, "fromSecond"));  // one dictionary into another
  Append(fromSecond, Child(Child(first, 0), 0));
  Node out;
  ASSERT_EQ(Attributes(fromSecond).setNamedItem(Attribute(doc, "at", "v"), out), kOk);
  ASSERT_EQ(Child(first, 1).put_nodeValue("changed"), kOk);
  Append(created, first);
  doc.reset();
  EXPECT_EQ(Xml(created),
            "<created><fromFirst/>ab<first><x/>changed<fromSecond at=\"v\"> </fromSecond>"
            "</first></created>");
}

TEST(DomLifetime, RemovedDeclarationStaysUsable) {
  Document doc = Parse("<r xmlns:p='urn:p' a='1'/>");
  Node root = Root(doc), decl, out;
  AttrMap map = Attributes(root);
  ASSERT_EQ(map.getNamedItem("xmlns:p", decl), kOk);
  ASSERT_EQ(map.removeNamedItem("xmlns:p", out), kOk);
  EXPECT_EQ(Xml(decl), "xmlns:p=\"urn:p\"");
  // Moving the element to another document and dropping the old one is fine.
  Document other = NewDocument();
  Node host = Element(other, "host");
  Append(host, root);
  doc.reset();
  map = AttrMap();
  EXPECT_EQ(Value(decl), "urn:p");
  EXPECT_EQ(Xml(host), "<host><r a=\"1\"/></host>");
}

// Declaring and removing a prefix over and over must leave nothing behind
// while the element lives on.
TEST(DomLifetime, RemovedDeclarationGoesWithItsLastReference) {
  Document doc = Parse("<r xmlns:p='urn:p'/>");
  Node root = Root(doc), decl, out;
  WeakNode weak;
  ASSERT_EQ(Attributes(root).getNamedItem("xmlns:p", decl), kOk);
  weak.assign(decl);
  ASSERT_EQ(Attributes(root).removeNamedItem("xmlns:p", out), kOk);
  out.reset();
  EXPECT_TRUE(weak.lock());
  decl.reset();
  EXPECT_FALSE(weak.lock());
}

TEST(DomLifetime, PinsFollowNodesAsTheyMove) {
  Document doc = NewDocument(), other = NewDocument();
  Node x = Element(other, "x"), c, removed, attr, out;
  WeakNode weakA, weakB, weakE;
  {
    Node a = Element(doc, "a");
    Node b = Append(a, Element(doc, "b"));
    c = Append(b, Element(doc, "c"));
    weakA.assign(a);
    weakB.assign(b);
    EXPECT_TRUE(weakB.lock().isSameNode(b));
  }
  EXPECT_TRUE(weakA.lock());  // c pins b and a
  Append(x, weakB.lock());    // b takes c along into another document; a is left unheld
  Append(x, weakB.lock());    // moved again within the same parent
  EXPECT_FALSE(weakA.lock());
  weakA.reset();
  EXPECT_FALSE(weakA.lock());
  doc.reset();
  c.reset();
  ASSERT_TRUE(weakB.lock());  // held by x's tree alone now
  EXPECT_EQ(Xml(x), "<x><b><c/></b></x>");
  ASSERT_EQ(x.removeChild(weakB.lock(), removed), kOk);
  removed.reset();
  EXPECT_FALSE(weakB.lock());

  // An attribute pins its element while it belongs to it, and only then.
  {
    Node e = Element(other, "e");
    weakE.assign(e);
    attr = Attribute(other, "n");
    ASSERT_EQ(Attributes(e).setNamedItem(attr, out), kOk);
  }
  EXPECT_TRUE(weakE.lock());
  ASSERT_EQ(Attributes(weakE.lock()).removeNamedItem("n", out), kOk);
  EXPECT_FALSE(weakE.lock());
  EXPECT_EQ(Xml(attr), "n=\"\"");
}

// Each level is made, appended and released in turn, the way a path is
// built; releasing a reference must not walk up the levels above it.
TEST(DomLifetime, VeryDeepBuiltTreeSerialisesAndGoes) {
  constexpr int kDepth = 100000;
  Document doc = NewDocument();
  Node top = Element(doc, "d");
  WeakNode weak;
  {
    Node at = top;
    for (int i = 0; i < kDepth; ++i) at = Append(at, Element(doc, "d"));
    weak.assign(at);
  }
  EXPECT_EQ(Xml(top).size(), size_t{kDepth} * 7 + 4);  // <d>...<d/>...</d>
  Node other = Element(doc, "host");
  Append(other, top);  // moves the whole depth through namespace reconciliation
  top.reset();
  EXPECT_TRUE(weak.lock());
  other.reset();
  EXPECT_FALSE(weak.lock());
}

}  // namespace
}  // namespace tk::dom::test
