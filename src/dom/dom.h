// The DOM layer: the only code that knows the XML engine underneath.
//
// Everything above talks to the tree through these classes. Text crosses as
// UTF-8 (valid UTF-8, characters above U+FFFF as 4-byte sequences). Calls
// report the way the library's logic expects: an int status that is negative
// on failure (0 success, 1 "success, but no/false"), or a null node.
//
// Lifetime: a Node is a counted reference. A node stays usable while a
// reference is held, also after it left its tree (removeChild) and after the
// document that made it loaded another tree. A detached subtree is freed when
// the last reference into it goes; a replaced tree likewise. A WeakNode can
// tell whether its node still exists.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

struct _xmlNode;
struct _xmlNs;

namespace tk::dom {

// Status values.
constexpr int kOk = 0;
constexpr int kFalse = 1;                                // success, "no" / nothing there
constexpr int kFail = static_cast<int>(0x80004005u);     // unspecified failure
constexpr int kInvalidArg = static_cast<int>(0x80070057u);
constexpr int kOutOfTime = static_cast<int>(0x800705B4u);    // a time budget ran out
constexpr int kOutOfMemory = static_cast<int>(0x8007000Eu);  // a memory budget ran out

// Element levels a tree may have, its top element counted: the most the
// parser reads back (the root and 256 levels below it). A transformation
// neither starts from nor gives a deeper tree.
constexpr int kMaxDepth = 257;

// What one transformation may spend: wall-clock time from its start, and
// the memory the engine holds for it while it runs (the result included).
// 0 lifts a bound.
struct TransformBudget {
  uint32_t milliseconds = 3000;
  uint64_t bytes = uint64_t{256} << 20;
};

// Node types, as the DOM numbers them.
enum NodeType : int {
  kNone = 0,
  kElement = 1,
  kAttribute = 2,
  kText = 3,
  kCData = 4,
  kProcessingInstruction = 7,
  kComment = 8,
  kDocumentNode = 9,
};

// Per-thread set-up of the engine, paired like a COM apartment: 0 the first
// time on a thread, 1 when already set up (still success, still to be paired
// with UninitThread), negative on failure.
int InitThread();
void UninitThread();

// One state of the child lists of a document: two marks are equal only when
// taken from the same document with none of its child lists changed and none
// of its nodes that can stand in one freed in between. Attribute and value
// changes leave the mark as it is. Caches of what a document's lists hold key
// on it, so that work on other documents or on attributes leaves them valid.
struct TreeMark {
  uint64_t document = 0;
  uint64_t shape = 0;
  bool operator==(const TreeMark& other) const = default;
};

// How serialised XML holds a character above U+FFFF: as its 4-byte UTF-8
// sequence, or as the library's text form, the two 3-byte sequences of its
// UTF-16 surrogate pair (U+1F600 -> ED A0 BD ED B8 80).
enum class AboveBmp { kFourBytes, kSurrogatePairs };

class Node;
class NodeList;
class XmlText;
class AttrMap;
class Document;

// A borrowed, uncounted view of a node for tight scans (no allocation, no
// reference counting). Valid only while no tree changes and its tree is held.
class NodePtr {
 public:
  NodePtr() = default;
  explicit operator bool() const { return m_node != nullptr; }
  int nodeType() const;  // kNone for null
  // Qualified node name compared byte for byte, without allocation.
  bool nameEquals(std::string_view name) const;
  std::string nodeName() const;
  NodePtr nextSibling() const;
  NodePtr firstChild() const;
  // The first element child whose qualified name equals qname byte for byte,
  // or null. One pass over the children, without allocation.
  NodePtr childElement(std::string_view qname) const;
  // The text of a text, CDATA, comment or processing-instruction node, as the
  // tree holds it (empty for other nodes). Borrowed like the NodePtr itself.
  std::string_view valueView() const;
  Node ref() const;  // a counted reference to the same node
  // A hint that a reference to this node will be taken soon: starts loading
  // what that reads, so that walks over trees larger than the caches don't
  // wait for memory on every step.
  void prefetch() const;
  // The same node; a stored NodePtr compares meaningfully only while the mark
  // of its document has not moved since it was taken.
  bool operator==(const NodePtr& other) const = default;

 private:
  friend class Node;
  friend class NodeList;
  explicit NodePtr(_xmlNode* node) : m_node(node) {}
  _xmlNode* m_node = nullptr;
};

class Node {
 public:
  Node() noexcept = default;
  Node(const Node& other) noexcept;
  Node(Node&& other) noexcept;
  Node& operator=(const Node& other) noexcept;
  Node& operator=(Node&& other) noexcept;
  ~Node();

  explicit operator bool() const noexcept { return m_node != nullptr; }
  void reset() noexcept;
  bool isSameNode(const Node& other) const noexcept;
  NodePtr ptr() const noexcept;
  // The mark of the document the node belongs to; a default mark for a null node.
  TreeMark treeMark() const;

  // kNone for a null node.
  int nodeType() const;
  // Qualified name for elements and attributes ("p:x", "xmlns:p"), "#text",
  // "#cdata-section", "#comment", the target of a processing instruction,
  // "#document".
  int get_nodeName(std::string& out) const;
  bool nameEquals(std::string_view name) const;

  // Children: comments and processing instructions count. kOk/kFalse answer;
  // a negative status is a failure, not "no".
  int hasChildNodes(bool& has) const;
  int get_childNodes(NodeList& out) const;
  NodePtr firstChild() const;
  // Appends at the end of the children; inTree receives the node now in the
  // tree. Fails under text, CDATA, comment, attribute nodes, and for a node
  // that is an ancestor of this one. A node of another document is adopted.
  int appendChild(const Node& child, Node& inTree);
  // Detaches child (with its subtree); removed receives it.
  int removeChild(const Node& child, Node& removed);
  // out is null (status kFalse) for a node without a parent.
  int get_parentNode(Node& out) const;

  // Value of text, CDATA, comment, processing-instruction and attribute nodes.
  // Elements and documents give kFalse and an empty text.
  int get_nodeValue(std::string& out) const;
  // Refuses (negative) text XML 1.0 can't hold, and nodes without a value.
  int put_nodeValue(std::string_view utf8);

  // Elements only; any other node gives kFalse and a null map.
  int get_attributes(AttrMap& out) const;

  // The node and its subtree as UTF-8 XML text, no declaration, non-ASCII as
  // raw UTF-8, empty elements as <a/>, attributes in double quotes.
  int get_xml(std::string& out) const;
  // The same text left where the serialiser wrote it, without a copy, with
  // characters above U+FFFF in the form asked for.
  int get_xml(XmlText& out, AboveBmp form = AboveBmp::kFourBytes) const;

 private:
  friend class NodePtr;
  friend class NodeList;
  friend class AttrMap;
  friend class Document;
  friend class WeakNode;
  friend struct NodeAccess;
  _xmlNode* m_node = nullptr;  // the node; for a namespace declaration, its element
  _xmlNs* m_ns = nullptr;      // set only for a namespace declaration seen as an attribute
};

// Serialised XML as Node::get_xml leaves it: in the serialiser's own buffer,
// followed by a NUL. Holds that buffer until destroyed or written again.
class XmlText {
 public:
  XmlText() = default;
  XmlText(const XmlText&) = delete;
  XmlText& operator=(const XmlText&) = delete;
  ~XmlText();
  std::string_view view() const { return m_view; }

 private:
  friend class Node;
  void reset();
  void* m_buffer = nullptr;  // the engine's output buffer, when the engine wrote it
  std::string m_own;         // the text, when we wrote it
  std::string_view m_view;
};

// The live child list of a node, in document order. Index access is O(1)
// amortised for walks in either direction, also when other lists, other
// documents or attributes are worked on between the steps.
class NodeList {
 public:
  NodeList() = default;
  explicit operator bool() const { return static_cast<bool>(m_parent); }
  int get_length(int32_t& length) const;
  // kFalse and a null out for an index out of range.
  int get_item(int32_t index, Node& out) const;

 private:
  friend class Node;
  Node m_parent;
};

// The live attribute map of an element, in a stable order: namespace
// declarations ("xmlns", "xmlns:p") first, then attributes in document order
// and then in the order added.
class AttrMap {
 public:
  AttrMap() = default;
  explicit operator bool() const { return static_cast<bool>(m_element); }
  int get_length(int32_t& length) const;
  int get_item(int32_t index, Node& out) const;            // kFalse, null out past the end
  int getNamedItem(std::string_view qname, Node& out) const;  // kFalse, null out if missing
  // Adds attr (from createAttribute); an attribute of the same name is
  // replaced. out receives the node now in the map.
  int setNamedItem(const Node& attr, Node& out);
  // kFalse and a null out if missing.
  int removeNamedItem(std::string_view qname, Node& out);

 private:
  friend class Node;
  Node m_element;
};

struct ParseError {
  int32_t errorCode = 0;  // 0: no error; negative otherwise
  int32_t line = 0;
  int32_t linepos = 0;
  std::string url;
  std::string reason;  // the engine's text, with its own line end
};

// A document object: a node factory and the holder of one parsed tree. Copies
// share the same object. Loads replace the tree it holds; a failed load keeps
// the previous tree.
class Document {
 public:
  Document() noexcept = default;
  Document(const Document& other) noexcept;
  Document(Document&& other) noexcept;
  Document& operator=(const Document& other) noexcept;
  Document& operator=(Document&& other) noexcept;
  ~Document();

  // Makes a new, empty document object (the creation step of an instance).
  static int Create(Document& out);

  explicit operator bool() const noexcept { return m_object != nullptr; }
  void reset() noexcept;

  // New nodes, in no tree. createNode makes elements (type 1) with no
  // namespace and refuses what is no XML name (a "p:x" name is accepted).
  int createNode(int type, std::string_view name, Node& out);
  int createAttribute(std::string_view name, Node& out);
  int createTextNode(std::string_view utf8, Node& out);
  int createCDATASection(std::string_view utf8, Node& out);

  // Synchronous loads. 0 when parsed; a negative status otherwise (the parse
  // error's code when there is one). No external entity or DTD is ever read,
  // no network is reached, entity expansion and depth are bounded, and the
  // engine prints nothing.
  int load(const char* path);
  // The same from a file the caller opened (and keeps): it must be a regular
  // file, and one larger than a document may be is refused unread. url names
  // it in the parse error.
  int loadFile(int fd, const char* url);
  int loadBytes(const char* data, size_t length);
  // The error of the last load (errorCode 0 if it parsed).
  int get_parseError(ParseError& out) const;

  // Null out (kFalse) when the document has no element.
  int get_documentElement(Node& out) const;

  // Transforms with the stylesheet held by stylesheet (a document loaded from
  // the stylesheet text) starting from source, which may be a free-standing
  // element; result receives the output tree. The stylesheet can't read or
  // write files, make directories, reach the network or load code. A
  // transformation that runs out of its budget stops with kOutOfTime or
  // kOutOfMemory. report, when given, receives what the engine said on the
  // way (its errors and the text of xsl:message, lines ending in "\n"),
  // appended, at most 64 KiB of it.
  static int transformNodeToObject(const Node& source, const Document& stylesheet,
                                   Document& result,
                                   const TransformBudget& budget = TransformBudget(),
                                   std::string* report = nullptr);

 private:
  friend struct NodeAccess;
  struct Object;
  Object* m_object = nullptr;
};

// A reference that does not keep its node alive and can tell when it's gone.
class WeakNode {
 public:
  WeakNode() noexcept = default;
  WeakNode(const WeakNode&) = delete;
  WeakNode& operator=(const WeakNode&) = delete;
  ~WeakNode();
  void assign(const Node& node);
  void reset() noexcept;
  // A counted reference, or a null node when the node no longer exists.
  Node lock() const;

 private:
  friend struct NodeAccess;
  struct Cell;
  Cell* m_cell = nullptr;
};

// Failure seams for the unit tests (not part of the public interface).
namespace testing {
// The next `count` calls of InitThread (or Document::Create) fail.
void FailInitThread(int count);
void FailDocumentCreate(int count);
// The node's text as the engine's serialiser writes it: the reference that
// Node::get_xml must match byte for byte.
int EngineXml(const Node& node, std::string& out);
// The text of the whole document node belongs to, copied into the library's
// own model and written by that model's serialiser; kFalse when the model
// can't hold the document.
int ModelXml(const Node& node, AboveBmp form, std::string& out);
// The text of the document the bytes hold, built into the library's own model
// from the engine's events and written by the model's serialiser: kOk, kFalse
// when the builder leaves the document to the engine's tree, or the load's
// failure.
int BuiltModelXml(const char* data, size_t length, AboveBmp form, std::string& out);
// The document node belongs to, copied into the model and from the model
// into a new engine tree, as the engine's serialiser writes that tree.
int RoundTripXml(const Node& node, std::string& out);
// Builds the model of the bytes and lets it go; bytes receives what it held.
int BuildModel(const char* data, size_t length, size_t& bytes);
}  // namespace testing

}  // namespace tk::dom
