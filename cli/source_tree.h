// A document as its file spells it: every byte of the file has its place in
// a tree of elements, attributes, text and other markup, so that an edit
// changes the bytes of what it changes and the file keeps all others: the
// declaration, the document type, comments around the root, layout, line
// ends, references as written. The text is UTF-8 (see FileEncoding) of a
// document the library has found well-formed.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tkcli {

// One step down from an element: the ordinal-th child element (from 0) of a
// name (UTF-8), or the last one of the name with kLastOrdinal.
struct ChildLink {
  static constexpr unsigned kLastOrdinal = ~0u;
  std::string name;
  unsigned ordinal = 0;
};
// The way from the root to an element; empty for the root itself.
using ElementChain = std::vector<ChildLink>;

// Well-formed XML without its layout: text of white space alone left out,
// and an element left with no content written as one empty tag. Two
// documents that hold the same, laid out differently, come out the same.
std::string WithoutLayout(std::string_view xml);

class SourceTree {
 public:
  // How the tree is written out: as it holds the document, or indented by
  // two spaces, one element a line where no text stands beside the elements.
  enum class Form { kAsHeld, kIndented };

  explicit SourceTree(std::string text);
  ~SourceTree();
  SourceTree(const SourceTree&) = delete;
  SourceTree& operator=(const SourceTree&) = delete;

  // The whole document, or the element of chain with its subtree (no
  // element: empty). lineEnd is for kIndented.
  std::string Write(Form form, std::string_view lineEnd = "\n") const;
  std::string WriteElement(const ElementChain& chain) const;

  // Edits of the element of chain. Each returns false if there is no such
  // element. Values are UTF-8 as the document holds them, not yet escaped.
  // Text goes to the first text child, or where the element's content ends;
  // CDATA alike.
  bool SetText(const ElementChain& chain, std::string_view value);
  bool SetCData(const ElementChain& chain, std::string_view value);
  bool SetAttribute(const ElementChain& chain, std::string_view name, std::string_view value);
  bool RemoveAttribute(const ElementChain& chain, std::string_view name);
  // Appends a new element under the element of chain, then each further
  // name inside the one before: on lines of their own, indented like their
  // siblings, where the parent's children stand on lines of their own.
  bool AddElements(const ElementChain& chain, const std::vector<std::string>& names);
  // Takes out the element of chain, with its line when it stands alone on
  // it (on lines of its own).
  bool RemoveElement(const ElementChain& chain);

  struct Node;  // one element, text, CDATA section or other markup

 private:
  class Scanner;

  Node* Find(const ElementChain& chain) const;
  std::string_view Own(std::string text);
  std::string_view LineEnd() const;
  std::string_view IndentStep();
  void InsertChild(Node* parent, Node* child);
  void Expand(Node* element);
  void WriteNode(const Node& node, Form form, std::string_view lineEnd, size_t depth,
                 std::string& out) const;

  Node* NewNode(int kind, Node* up);

  struct Store;  // every node, and the text of edits
  std::string m_text;
  std::unique_ptr<Store> m_store;
  Node* m_document = nullptr;  // the root and the markup around it
  Node* m_root = nullptr;
  mutable std::unordered_map<std::string, Node*> m_found;  // see Find
  size_t m_lineBreak = std::string::npos;  // the first; its line end is the file's
  std::string m_indentStep;                // once it has been looked for
};

}  // namespace tkcli
