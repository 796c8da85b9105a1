// Node lifetime: a node stays usable while a reference is held, also after it
// left its tree or its document loaded another one; what nothing holds goes.
// The sanitizer build checks that nothing is used after free or leaked.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "dom/dom.h"
#include "dom_test_util.h"

namespace tk::dom::test {
namespace {

TEST(DomLifetime, RemovedSubtreeWorksWhileHeldAndGoesWithItsLastReference) {
  Document doc = Parse("<r><a><b>x</b></a></r>");
  Node root = Root(doc);
  WeakNode weakA, weakText;
  {
    Node a = Child(root, 0);
    Node text = Child(Child(a, 0), 0);
    weakA.assign(a);
    weakText.assign(text);
    Node removed;
    ASSERT_EQ(root.removeChild(a, removed), kOk);
    a.reset();
    // Only removed (and the text) hold the branch now; it keeps working.
    Append(removed, Element(doc, "c"));
    EXPECT_EQ(Xml(removed), "<a><b>x</b><c/></a>");
    removed.reset();
    EXPECT_TRUE(weakA.lock());  // the text inside still pins its branch
    EXPECT_EQ(text.put_nodeValue("y"), kOk);
    Node parent;
    ASSERT_EQ(text.get_parentNode(parent), kOk);
    ASSERT_EQ(parent.get_parentNode(parent), kOk);
    EXPECT_EQ(Xml(parent), "<a><b>y</b><c/></a>");
  }
  EXPECT_FALSE(weakA.lock());
  EXPECT_FALSE(weakText.lock());
  EXPECT_EQ(Xml(root), "<r/>");
}

TEST(DomLifetime, MovingTheLastHeldNodeOutFreesTheBranchLeftBehind) {
  Document doc = NewDocument();
  Node keep = Element(doc, "keep");
  WeakNode weakTop;
  {
    Node top = Element(doc, "top");
    Node inner = Append(top, Element(doc, "inner"));
    weakTop.assign(top);
    top.reset();
    EXPECT_TRUE(weakTop.lock());  // inner pins it
    Append(keep, inner);
  }
  EXPECT_FALSE(weakTop.lock());
  EXPECT_EQ(Xml(keep), "<keep><inner/></keep>");
}

TEST(DomLifetime, FreeStandingElementDiesWithItsLastReference) {
  Document doc = NewDocument();
  WeakNode weak;
  {
    Node e = Element(doc, "e");
    Append(e, Element(doc, "child"));
    weak.assign(e);
    Node copy = weak.lock();
    EXPECT_TRUE(copy.isSameNode(e));
  }
  EXPECT_FALSE(weak.lock());
  weak.reset();
  EXPECT_FALSE(weak.lock());
}

TEST(DomLifetime, WeakNodeOnLoadedElementLastsAsLongAsTheTree) {
  Document doc = Parse("<r><a/></r>");
  WeakNode weakRoot, weakChild;
  weakRoot.assign(Root(doc));
  weakChild.assign(Child(Root(doc), 0));
  EXPECT_TRUE(weakRoot.lock());
  EXPECT_TRUE(weakChild.lock());
  EXPECT_EQ(Xml(weakChild.lock()), "<a/>");
  ASSERT_EQ(doc.loadBytes("<n/>", 4), kOk);
  EXPECT_FALSE(weakRoot.lock());
  EXPECT_FALSE(weakChild.lock());

  // A failed load keeps the tree and everything weak on it.
  weakRoot.assign(Root(doc));
  EXPECT_LT(doc.loadBytes("<x", 2), 0);
  EXPECT_TRUE(weakRoot.lock());
  // So does releasing the Document while a reference is held.
  Node held = Root(doc);
  doc.reset();
  EXPECT_TRUE(weakRoot.lock());
  EXPECT_EQ(Xml(held), "<n/>");
  held.reset();
  EXPECT_FALSE(weakRoot.lock());
}

TEST(DomLifetime, OldTreeKeepsWorkingAfterLoadAndTakesNodesOfTheNewOne) {
  // Trees without a dictionary (created) and with one (parsed), both ways.
  Document doc = NewDocument();
  Node created = Element(doc, "created");
  Node shortText;
  ASSERT_EQ(doc.createTextNode("ab", shortText), kOk);
  Append(created, shortText);

  ASSERT_EQ(doc.loadBytes("<first><x> </x>ab</first>", 25), kOk);
  Node first = Root(doc);
  Node fromFirst = Element(doc, "fromFirst");
  Append(created, fromFirst);             // dictionary tree into a plain one
  Append(created, Child(first, 1));       // a text the parser may have interned
  Append(first, Child(created, 0));       // plain into dictionary tree
  EXPECT_EQ(Xml(created), "<created><fromFirst/>ab</created>");
  EXPECT_EQ(Xml(first), "<first><x> </x>ab</first>");

  ASSERT_EQ(doc.loadBytes("<second/>", 9), kOk);
  Node fromSecond = Element(doc, "fromSecond");
  Node attr;
  ASSERT_EQ(doc.createAttribute("at", attr), kOk);
  ASSERT_EQ(attr.put_nodeValue("v"), kOk);
  Append(first, fromSecond);               // one dictionary into another
  Append(fromSecond, Child(Child(first, 0), 0));
  AttrMap map;
  ASSERT_EQ(fromSecond.get_attributes(map), kOk);
  Node out;
  ASSERT_EQ(map.setNamedItem(attr, out), kOk);
  EXPECT_EQ(Xml(first), "<first><x/>ab<fromSecond at=\"v\"> </fromSecond></first>");
  ASSERT_EQ(Child(first, 1).put_nodeValue("changed"), kOk);
  Append(created, first);
  EXPECT_EQ(Xml(created),
            "<created><fromFirst/>ab<first><x/>changed<fromSecond at=\"v\"> </fromSecond>"
            "</first></created>");
  doc.reset();
  EXPECT_EQ(Name(Child(created, 2)), "first");
}

TEST(DomLifetime, ReplacedAttributeAndDeclarationStayUsable) {
  Document doc = Parse("<r xmlns:p='urn:p' a='1'/>");
  Node root = Root(doc);
  AttrMap map;
  ASSERT_EQ(root.get_attributes(map), kOk);
  Node oldAttr, decl, out, fresh;
  ASSERT_EQ(map.getNamedItem("a", oldAttr), kOk);
  ASSERT_EQ(map.getNamedItem("xmlns:p", decl), kOk);
  ASSERT_EQ(doc.createAttribute("a", fresh), kOk);
  ASSERT_EQ(map.setNamedItem(fresh, out), kOk);
  ASSERT_EQ(map.removeNamedItem("xmlns:p", out), kOk);
  EXPECT_EQ(Value(oldAttr), "1");
  EXPECT_EQ(Value(decl), "urn:p");
  EXPECT_EQ(Xml(decl), "xmlns:p=\"urn:p\"");
  // Moving the element to another document and dropping the old one is fine.
  Document other = NewDocument();
  Node host = Element(other, "host");
  Append(host, root);
  doc.reset();
  map = AttrMap();
  EXPECT_EQ(Value(decl), "urn:p");
  EXPECT_EQ(Xml(host), "<host><r a=\"\"/></host>");
}

TEST(DomLifetime, DocumentsOnSeparateThreads) {
  std::vector<std::thread> threads;
  std::vector<std::string> results(4);
  for (std::string& result : results) {
    threads.emplace_back([&result] {
      Document doc = Parse("<r/>");
      Node root = Root(doc), removed;
      for (int i = 0; i < 200; ++i) {
        Node child = Append(root, Element(doc, "c"));
        if (i % 2 == 1) {
          EXPECT_EQ(root.removeChild(child, removed), kOk);
        }
      }
      for (int32_t i = 0; i < ChildCount(root); ++i) EXPECT_TRUE(Child(root, i));
      result = std::to_string(ChildCount(root)) + Xml(Child(root, 0));
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const std::string& result : results) EXPECT_EQ(result, "100<c/>");
}

TEST(DomLifetime, PinsFollowNodesAsTheyMove) {
  Document doc = NewDocument();
  Document other = NewDocument();
  Node x = Element(other, "x");
  WeakNode weakA, weakB, weakE;
  Node c;
  {
    Node a = Element(doc, "a");
    Node b = Append(a, Element(doc, "b"));
    c = Append(b, Element(doc, "c"));
    weakA.assign(a);
    weakB.assign(b);
  }
  EXPECT_TRUE(weakA.lock());  // c pins b and a
  {
    Node b = weakB.lock();
    Append(x, b);  // b takes c along into another document; a is left unheld
    Append(x, b);  // moved again within the same parent
  }
  EXPECT_FALSE(weakA.lock());
  doc.reset();
  c.reset();
  ASSERT_TRUE(weakB.lock());  // held by x's tree alone now
  EXPECT_EQ(Xml(x), "<x><b><c/></b></x>");
  {
    Node b = weakB.lock(), removed;
    ASSERT_EQ(x.removeChild(b, removed), kOk);
  }
  EXPECT_FALSE(weakB.lock());

  // An attribute pins its element while it belongs to it, and only then.
  Node attr, out;
  {
    Node e = Element(other, "e");
    weakE.assign(e);
    AttrMap map;
    ASSERT_EQ(e.get_attributes(map), kOk);
    ASSERT_EQ(other.createAttribute("n", attr), kOk);
    ASSERT_EQ(map.setNamedItem(attr, out), kOk);
  }
  EXPECT_TRUE(weakE.lock());
  {
    Node e = weakE.lock();
    AttrMap map;
    ASSERT_EQ(e.get_attributes(map), kOk);
    ASSERT_EQ(map.removeNamedItem("n", out), kOk);
  }
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
  std::string xml = Xml(top);
  EXPECT_EQ(xml.size(), size_t{kDepth} * 7 + 4);  // <d>...<d/>...</d>
  Node other = Element(doc, "host");
  Append(other, top);  // moves the whole depth through namespace reconciliation
  top.reset();
  EXPECT_TRUE(weak.lock());
  other.reset();
  EXPECT_FALSE(weak.lock());

  // The same below a document's element: the document holds the levels.
  Document loaded = Parse("<r/>");
  {
    Node at = Root(loaded);
    for (int i = 0; i < kDepth; ++i) at = Append(at, Element(loaded, "d"));
    weak.assign(at);
  }
  EXPECT_TRUE(weak.lock());
  loaded.reset();
  EXPECT_FALSE(weak.lock());
}

}  // namespace
}  // namespace tk::dom::test
