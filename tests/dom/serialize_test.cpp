// Our serialiser against the engine's: every node of trees that hold each
// thing a serialiser can get wrong must come out byte for byte the same.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "document/textconv.h"
#include "dom/dom.h"
#include "dom_test_util.h"

namespace tk::dom::test {
namespace {

// The export's form of UTF-8 text, by the conversion values are read with.
std::string SurrogatePairs(const std::string& utf8) {
  std::string form(static_cast<size_t>(Ucs2ToUtf8Bytes(utf8, -1, nullptr, 0)), '\0');
  Ucs2ToUtf8Bytes(utf8, -1, form.data(), static_cast<int32_t>(form.size()));
  form.pop_back();
  return form;
}

// Compares the text of node, of every attribute and of every node below, in
// both forms.
void ExpectEngineText(const Node& node) {
  std::string engine;
  ASSERT_EQ(testing::EngineXml(node, engine), kOk);
  EXPECT_EQ(Xml(node), engine) << Name(node);
  XmlText pairs;
  ASSERT_EQ(node.get_xml(pairs, AboveBmp::kSurrogatePairs), kOk);
  EXPECT_EQ(pairs.view(), SurrogatePairs(engine)) << Name(node);
  AttrMap attributes;
  if (node.get_attributes(attributes) == kOk && attributes) {
    int32_t count = 0;
    attributes.get_length(count);
    for (int32_t i = 0; i < count; ++i) {
      Node attribute;
      attributes.get_item(i, attribute);
      std::string text;
      ASSERT_EQ(attribute.get_xml(text), kOk);
      if (testing::EngineXml(attribute, engine) == kOk) {
        EXPECT_EQ(text, engine);
      }
    }
  }
  for (int32_t i = 0, n = ChildCount(node); i < n; ++i) ExpectEngineText(Child(node, i));
}

TEST(DomSerialiser, WritesWhatTheEngineWrites) {
  const std::vector<std::string> documents = {
      // Escapes in text and values, CDATA that holds "]]>", comments and
      // instructions, characters of every length.
      "<a x='1&#10;2&#9;&quot;&lt;&amp;\"&gt;&#13;\xc3\xa9\xf0\x9f\x98\x80'><!--c--><?pi?>"
      "<?pi data ?><![CDATA[a]]]]><![CDATA[>b]]><![CDATA[]]>t&amp;&lt;&gt;&#13;]]&gt;"
      "\xc3\xa9\xf0\x9f\x98\x80<b/><c></c></a>",
      // Characters above U+FFFF wherever a document can hold them.
      "<\xf0\x90\x80\x80:e\xf0\x90\x80\x81 xmlns:\xf0\x90\x80\x80='urn:\xf0\x9f\x98\x80\"&apos;' "
      "a\xf0\x90\x80\x82='\xf0\x9f\x98\x80&amp;\xf0\x9f\x98\x81'><!--\xf0\x9f\x98\x80-->"
      "<?p\xf0\x90\x80\x83 \xf0\x9f\x98\x80?><![CDATA[\xf0\x9f\x98\x80]]>"
      "\xf0\x9f\x98\x80&lt;\xf4\x8f\xbf\xbd</\xf0\x90\x80\x80:e\xf0\x90\x80\x81>",
      // Declarations: default, prefixed, a value that needs other quotes, and
      // subtrees that use declarations of their ancestors.
      "<r xmlns='urn:d' xmlns:p='q\"x' xmlns:s=\"it's\" xmlns:xml="
      "'http://www.w3.org/XML/1998/namespace'><p:c p:a='1' xml:lang='en'><d s:b='2'/>"
      "<p:e xmlns:p='urn:other'/></p:c></r>",
      // Entities the parser replaced, in text and in values.
      "<!DOCTYPE a [<!ENTITY e 'x<b>&#38;#60;</b>y'><!ENTITY v 'val'>]><a k='&v;'>&e;&v;</a>",
      // A document type the engine writes in a style of its own.
      "<!DOCTYPE html PUBLIC '-//W3C//DTD XHTML 1.0 Strict//EN' "
      "'http://www.w3.org/TR/xhtml1/DTD/xhtml1-strict.dtd'>"
      "<html xmlns='http://www.w3.org/1999/xhtml'><br/><p></p><p a='\xc3\xa9'>x</p></html>",
  };
  for (const std::string& xml : documents) {
    SCOPED_TRACE(xml);
    Document doc = Parse(xml);
    Node top;
    ASSERT_EQ(doc.get_documentElement(top), kOk);
    ExpectEngineText(top);
  }
}

// Trees no parser makes: a transformation's unescaped text and bare
// instructions, and branches moved between documents with their prefixes.
TEST(DomSerialiser, WritesMadeAndMovedTreesAsTheEngineDoes) {
  Document source = Parse("<in/>");
  Document style = Parse(
      "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
      "<xsl:template match='/'><out><xsl:text disable-output-escaping='yes'>&lt;raw/&gt;"
      "</xsl:text><xsl:processing-instruction name='bare'/><xsl:comment/>"
      "<xsl:value-of select='\"&lt;&amp;\"'/></out></xsl:template></xsl:stylesheet>");
  Document result;
  ASSERT_EQ(Document::transformNodeToObject(Root(source), style, result), kOk);
  ExpectEngineText(Root(result));

  Document from = Parse("<r xmlns:p='urn:p'><p:a p:k='v'><p:b/></p:a></r>");
  Document to = Parse("<t/>");
  Node branch = Child(Root(from), 0);
  Node removed, moved;
  ASSERT_EQ(Root(from).removeChild(branch, removed), kOk);
  ExpectEngineText(removed);
  ASSERT_EQ(Root(to).appendChild(removed, moved), kOk);
  ExpectEngineText(Root(to));
}

}  // namespace
}  // namespace tk::dom::test
