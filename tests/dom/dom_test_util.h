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

inline Node Append(Node parent, const Node& child) {
  Node in;
  EXPECT_EQ(parent.appendChild(child, in), kOk);
  return in;
}

}  // namespace tk::dom::test
