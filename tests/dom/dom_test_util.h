// Small helpers for the DOM layer's tests.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "dom/dom.h"

namespace tk::dom::test {

inline Document NewDocument() {
  Document doc;
  EXPECT_EQ(Document::Create(doc), kOk);
  return doc;
}

inline Document Parse(std::string_view xml) {
  Document doc = NewDocument();
  EXPECT_EQ(doc.loadBytes(xml.data(), xml.size()), kOk) << xml;
  return doc;
}

inline int LoadText(Document& doc, std::string_view xml) {
  return doc.loadBytes(xml.data(), xml.size());
}

inline Node Root(const Document& doc) {
  Node root;
  doc.get_documentElement(root);
  return root;
}

inline std::string Xml(const Node& node) {
  std::string out;
  EXPECT_EQ(node.get_xml(out), kOk);
  return out;
}

inline std::string Name(const Node& node) {
  std::string out;
  node.get_nodeName(out);
  return out;
}

inline std::string Value(const Node& node) {
  std::string out;
  node.get_nodeValue(out);
  return out;
}

inline Node Child(const Node& parent, int32_t index) {
  NodeList list;
  Node out;
  parent.get_childNodes(list);
  list.get_item(index, out);
  return out;
}

inline int32_t ChildCount(const Node& parent) {
  NodeList list;
  int32_t length = -1;
  parent.get_childNodes(list);
  list.get_length(length);
  return length;
}

inline Node Element(Document& doc, std::string_view name) {
  Node out;
  EXPECT_EQ(doc.createNode(kElement, name, out), kOk) << name;
  return out;
}

inline Node TextNode(Document& doc, std::string_view text) {
  Node out;
  EXPECT_EQ(doc.createTextNode(text, out), kOk) << text;
  return out;
}

inline Node Attribute(Document& doc, std::string_view name, std::string_view value = "") {
  Node attr;
  EXPECT_EQ(doc.createAttribute(name, attr), kOk) << name;
  EXPECT_EQ(attr.put_nodeValue(value), kOk);
  return attr;
}

inline AttrMap Attributes(const Node& element) {
  AttrMap map;
  EXPECT_EQ(element.get_attributes(map), kOk);
  return map;
}

inline Node Append(Node parent, const Node& child) {
  Node in;
  EXPECT_EQ(parent.appendChild(child, in), kOk);
  return in;
}

}  // namespace tk::dom::test
