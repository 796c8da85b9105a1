#include "source_tree.h"

#include <algorithm>
#include <deque>
#include <optional>

#include "errors.h"
#include "xml_text.h"

namespace tkcli {
namespace {

bool IsSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

bool IsBlank(std::string_view text) {
  for (const char c : text) {
    if (!IsSpace(c)) return false;
  }
  return true;
}

// Deeper than the library ever reads or writes, and still far from what the
// scanner's recursion can take.
constexpr size_t kMaxDepth = 1000;

void AppendReplacing(std::string& out, std::string_view text, std::string_view from,
                     std::string_view to) {
  for (size_t at = text.find(from); at != std::string_view::npos; at = text.find(from)) {
    out.append(text.substr(0, at)).append(to);
    text.remove_prefix(at + from.size());
  }
  out.append(text);
}

// Element text as XML writes it; line breaks take the file's line end.
std::string EscapeText(std::string_view value, std::string_view lineEnd) {
  std::string out;
  for (size_t i = 0; i < value.size(); ++i) {
    const char c = value[i];
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '\r': out += "&#13;"; break;
      case '\n': out += lineEnd; break;
      case '>': out += i >= 2 && value.substr(i - 2, 2) == "]]" ? "&gt;" : ">"; break;
      default: out += c;
    }
  }
  return out;
}

}  // namespace

struct SourceTree::Node {
  enum class Kind { kDocument, kElement, kText, kCData, kOther };  // kOther: comments, PIs, DTD
  struct Attribute {
    std::string_view lead;    // the white space before the name
    std::string_view name;
    std::string_view equals;  // "=" with any white space around it
    char quote = '"';
    std::string_view value;   // as written between the quotes
  };

  bool IsBlankText() const { return kind == Kind::kText && IsBlank(raw); }

  Kind kind = Kind::kOther;
  Node* up = nullptr;
  std::string_view raw;  // all but elements and the document: their bytes
  std::string_view name;
  std::vector<Attribute> attributes;
  std::string_view tagEnd;  // what closes the start tag: white space, ">" or "/>"
  bool empty = false;       // the element is one empty tag
  std::vector<Node*> children;
  std::string_view endTag;
};

using Kind = SourceTree::Node::Kind;

// Nodes are made in blocks: a document has about as many as it has tags.
struct SourceTree::Store {
  static constexpr size_t kBlock = 4096;
  std::vector<std::unique_ptr<Node[]>> blocks;
  size_t used = kBlock;
  std::deque<std::string> owned;
};

SourceTree::Node* SourceTree::NewNode(int kind, Node* up) {
  Store& store = *m_store;
  if (store.used == Store::kBlock) {
    store.blocks.push_back(std::make_unique<Node[]>(Store::kBlock));
    store.used = 0;
  }
  Node* node = &store.blocks.back()[store.used++];
  node->kind = static_cast<Kind>(kind);
  node->up = up;
  return node;
}

// Reads well-formed XML into nodes; anything it can't follow ends the
// command with status 5 rather than guess.
class SourceTree::Scanner {
 public:
  Scanner(std::string_view text, SourceTree& tree) : m_text(text), m_tree(tree) {}

  Node* Document(Node*& root) {
    Node* document = m_tree.NewNode(static_cast<int>(Kind::kDocument), nullptr);
    size_t markupEnd = 0;
    for (;;) {
      SkipSpace();
      if (At("<?")) {
        SkipPast("?>");
      } else if (At("<!--")) {
        SkipPast("-->");
      } else if (At("<!DOCTYPE")) {
        SkipDoctype();
      } else {
        break;
      }
      markupEnd = m_pos;
    }
    if (!At("<")) Fail();
    Add(*document, Kind::kOther, 0, markupEnd);
    Add(*document, Kind::kText, markupEnd, m_pos);
    document->children.push_back(Element(document, 0));
    root = document->children.back();
    const size_t rootEnd = m_pos;
    SkipSpace();
    Add(*document, Kind::kText, rootEnd, m_pos);
    Add(*document, Kind::kOther, m_pos, m_text.size());
    return document;
  }

 private:
  [[noreturn]] static void Fail() {
    throw CliError(kFailed, "the tool can't follow the markup of the document's text");
  }
  bool At(std::string_view s) const { return m_text.compare(m_pos, s.size(), s) == 0; }
  char Here() const {
    if (m_pos >= m_text.size()) Fail();
    return m_text[m_pos];
  }
  void SkipSpace() {
    while (m_pos < m_text.size() && IsSpace(m_text[m_pos])) ++m_pos;
  }
  void SkipPast(std::string_view terminator) {
    const size_t end = m_text.find(terminator, m_pos);
    if (end == std::string_view::npos) Fail();
    m_pos = end + terminator.size();
  }
  void SkipQuoted() {
    const char quote = Here();
    ++m_pos;
    SkipPast(std::string_view(&quote, 1));
  }
  std::string_view From(size_t begin) const { return m_text.substr(begin, m_pos - begin); }
  void Add(Node& parent, Kind kind, size_t begin, size_t end) {
    if (end <= begin) return;
    Node* node = m_tree.NewNode(static_cast<int>(kind), &parent);
    node->raw = m_text.substr(begin, end - begin);
    parent.children.push_back(node);
  }
  std::string_view Name() {
    const size_t begin = m_pos;
    while (m_pos < m_text.size() && !IsSpace(m_text[m_pos]) &&
           std::string_view("/>=").find(m_text[m_pos]) == std::string_view::npos) {
      ++m_pos;
    }
    if (m_pos == begin) Fail();
    return From(begin);
  }

  // The document type declaration, with its internal subset: brackets and
  // '>' inside quoted literals, comments and PIs don't count.
  void SkipDoctype() {
    bool inSubset = false;
    while (m_pos < m_text.size()) {
      const char c = m_text[m_pos];
      if (c == '"' || c == '\'') {
        SkipQuoted();
      } else if (inSubset && At("<!--")) {
        SkipPast("-->");
      } else if (inSubset && At("<?")) {
        SkipPast("?>");
      } else {
        ++m_pos;
        if (c == '[') inSubset = true;
        if (c == ']') inSubset = false;
        if (c == '>' && !inSubset) return;
      }
    }
    Fail();
  }

  Node* Element(Node* up, size_t depth) {
    if (depth > kMaxDepth) Fail();
    Node* element = m_tree.NewNode(static_cast<int>(Kind::kElement), up);
    ++m_pos;  // '<'
    element->name = Name();
    for (;;) {
      const size_t lead = m_pos;
      SkipSpace();
      if (At("/>") || At(">")) {
        element->empty = At("/>");
        m_pos += element->empty ? 2 : 1;
        element->tagEnd = From(lead);
        break;
      }
      if (m_pos == lead) Fail();
      Node::Attribute attribute;
      attribute.lead = From(lead);
      attribute.name = Name();
      const size_t equals = m_pos;
      SkipSpace();
      if (Here() != '=') Fail();
      ++m_pos;
      SkipSpace();
      attribute.equals = From(equals);
      attribute.quote = Here();
      if (attribute.quote != '"' && attribute.quote != '\'') Fail();
      const size_t value = ++m_pos;
      SkipPast(std::string_view(&attribute.quote, 1));
      attribute.value = m_text.substr(value, m_pos - 1 - value);
      element->attributes.push_back(attribute);
    }
    if (element->empty) return element;
    for (;;) {
      const size_t begin = m_pos;
      if (At("</")) {
        SkipPast(">");
        element->endTag = From(begin);
        return element;
      }
      if (At("<!--")) {
        SkipPast("-->");
        Add(*element, Kind::kOther, begin, m_pos);
      } else if (At("<![CDATA[")) {
        SkipPast("]]>");
        Add(*element, Kind::kCData, begin, m_pos);
      } else if (At("<?")) {
        SkipPast("?>");
        Add(*element, Kind::kOther, begin, m_pos);
      } else if (Here() == '<') {
        element->children.push_back(Element(element, depth + 1));
      } else {
        m_pos = m_text.find('<', m_pos);
        if (m_pos == std::string_view::npos) Fail();
        Add(*element, Kind::kText, begin, m_pos);
      }
    }
  }

  std::string_view m_text;
  SourceTree& m_tree;
  size_t m_pos = 0;
};

namespace {

using Node = SourceTree::Node;

size_t IndexOf(const Node* node) {
  const auto& siblings = node->up->children;
  for (size_t i = 0; i < siblings.size(); ++i) {
    if (siblings[i] == node) return i;
  }
  return siblings.size();
}

// The indentation of a node that begins a line (after white space with a
// line break), or nothing if it shares its line with what comes before.
std::optional<std::string_view> LineIndent(const Node* node) {
  const size_t index = IndexOf(node);
  if (index == 0) {
    if (node->up->kind == Kind::kDocument) return std::string_view();
    return std::nullopt;
  }
  const Node& before = *node->up->children[index - 1];
  if (!before.IsBlankText()) return std::nullopt;
  const size_t lineBreak = before.raw.rfind('\n');
  if (lineBreak == std::string_view::npos) return std::nullopt;
  return before.raw.substr(lineBreak + 1);
}

// The first step of indentation the document uses: what a child on a line
// of its own has more than its parent on a line of its own.
std::optional<std::string_view> FindIndentStep(const Node* element) {
  const auto outer =
      element->up->kind == Kind::kDocument ? std::string_view() : LineIndent(element);
  for (const auto& child : element->children) {
    if (child->kind != Kind::kElement) continue;
    if (outer) {
      const auto inner = LineIndent(child);
      if (inner && inner->size() > outer->size() && inner->substr(0, outer->size()) == *outer) {
        return inner->substr(outer->size());
      }
    }
    if (const auto step = FindIndentStep(child)) return step;
  }
  return std::nullopt;
}

char FindQuote(const Node* element) {
  if (!element->attributes.empty()) return element->attributes.front().quote;
  for (const auto& child : element->children) {
    if (child->kind == Kind::kElement) {
      const char quote = FindQuote(child);
      if (quote != 0) return quote;
    }
  }
  return 0;
}

}  // namespace

std::string WithoutLayout(std::string_view xml) {
  std::string out;
  out.reserve(xml.size());
  bool afterStartTag = false;  // nothing but white space since a start tag
  const auto past = [&](size_t pos, std::string_view terminator) {
    const size_t end = xml.find(terminator, pos);
    return end == std::string_view::npos ? xml.size() : end + terminator.size();
  };
  for (size_t pos = 0; pos < xml.size();) {
    size_t end;
    if (xml[pos] != '<') {
      end = std::min(xml.find('<', pos), xml.size());
      if (IsBlank(xml.substr(pos, end - pos))) {
        pos = end;
        continue;
      }
    } else if (xml.compare(pos, 2, "</") == 0) {
      end = past(pos, ">");
      if (afterStartTag) {
        out.back() = '/';
        out += '>';
        afterStartTag = false;
        pos = end;
        continue;
      }
    } else if (xml.compare(pos, 4, "<!--") == 0) {
      end = past(pos, "-->");
    } else if (xml.compare(pos, 9, "<![CDATA[") == 0) {
      end = past(pos, "]]>");
    } else if (xml.compare(pos, 2, "<?") == 0) {
      end = past(pos, "?>");
    } else {
      // A start tag: '>' inside quoted values doesn't end it.
      end = std::min(PastTag(xml, pos), xml.size());
      out.append(xml.substr(pos, end - pos));
      afterStartTag = xml[end - 2] != '/';
      pos = end;
      continue;
    }
    out.append(xml.substr(pos, end - pos));
    afterStartTag = false;
    pos = end;
  }
  return out;
}

SourceTree::SourceTree(std::string text)
    : m_text(std::move(text)), m_store(std::make_unique<Store>()) {
  m_document = Scanner(m_text, *this).Document(m_root);
  m_lineBreak = m_text.find('\n');
}

SourceTree::~SourceTree() = default;

std::string_view SourceTree::Own(std::string text) {
  return m_store->owned.emplace_back(std::move(text));
}

std::string_view SourceTree::LineEnd() const {
  return m_lineBreak != std::string::npos && m_lineBreak > 0 && m_text[m_lineBreak - 1] == '\r'
             ? "\r\n"
             : "\n";
}

std::string_view SourceTree::IndentStep() {
  if (m_indentStep.empty()) {
    const auto step = FindIndentStep(m_root);
    m_indentStep = step ? *step : "  ";
  }
  return m_indentStep;
}

SourceTree::Node* SourceTree::Find(const ElementChain& chain) const {
  Node* current = m_root;
  for (const ChildLink& link : chain) {
    // The n-th child of a name stays the same while elements are only
    // added (always after the others), so it is looked for once.
    std::string key(reinterpret_cast<const char*>(&current), sizeof current);
    key.append(reinterpret_cast<const char*>(&link.ordinal), sizeof link.ordinal);
    key += link.name;
    const bool remembered = link.ordinal != ChildLink::kLastOrdinal;
    if (remembered) {
      const auto known = m_found.find(key);
      if (known != m_found.end()) {
        current = known->second;
        continue;
      }
    }
    Node* found = nullptr;
    unsigned seen = 0;
    for (const auto& child : current->children) {
      if (child->kind != Kind::kElement || child->name != link.name) continue;
      if (link.ordinal == ChildLink::kLastOrdinal) {
        found = child;
      } else if (seen++ == link.ordinal) {
        found = child;
        break;
      }
    }
    if (found == nullptr) return nullptr;
    if (remembered) m_found.emplace(std::move(key), found);
    current = found;
  }
  return current;
}

void SourceTree::WriteNode(const Node& node, Form form, std::string_view lineEnd, size_t depth,
                           std::string& out) const {
  if (node.kind == Kind::kDocument) {
    for (const auto& child : node.children) {
      if (form == Form::kIndented && child->IsBlankText()) continue;
      WriteNode(*child, form, lineEnd, depth, out);
      if (form == Form::kIndented) out += lineEnd;
    }
    return;
  }
  if (node.kind != Kind::kElement) {
    out += node.raw;
    return;
  }
  out += '<';
  out += node.name;
  for (const Node::Attribute& attribute : node.attributes) {
    out.append(attribute.lead).append(attribute.name).append(attribute.equals);
    out.append(1, attribute.quote).append(attribute.value).append(1, attribute.quote);
  }
  out += node.tagEnd;
  if (node.empty) return;
  bool lines = form == Form::kIndented && !node.children.empty();
  for (const auto& child : node.children) {
    lines = lines && child->kind != Kind::kText && child->kind != Kind::kCData;
  }
  for (const auto& child : node.children) {
    if (lines) out.append(lineEnd).append(2 * (depth + 1), ' ');
    WriteNode(*child, lines ? form : Form::kAsHeld, lineEnd, depth + 1, out);
  }
  if (lines) out.append(lineEnd).append(2 * depth, ' ');
  out += node.endTag;
}

std::string SourceTree::Write(Form form, std::string_view lineEnd) const {
  std::string out;
  out.reserve(m_text.size());
  WriteNode(*m_document, form, lineEnd, 0, out);
  return out;
}

std::string SourceTree::WriteElement(const ElementChain& chain) const {
  std::string out;
  if (const Node* element = Find(chain)) WriteNode(*element, Form::kAsHeld, "\n", 0, out);
  return out;
}

void SourceTree::Expand(Node* element) {
  if (!element->empty) return;
  std::string_view tagEnd = element->tagEnd;
  tagEnd.remove_suffix(2);  // "/>"
  element->tagEnd = Own(std::string(tagEnd) + ">");
  element->endTag = Own("</" + std::string(element->name) + ">");
  element->empty = false;
}

void SourceTree::InsertChild(Node* parent, Node* child) {
  child->up = parent;
  auto& children = parent->children;
  bool mixed = false;
  bool markup = false;
  for (const auto& node : children) {
    mixed = mixed || (node->kind == Kind::kText && !node->IsBlankText());
    markup = markup || node->kind != Kind::kText;
  }
  // Children on lines of their own set the indentation; where there are
  // none, the parent's line does, one step in. Text beside the children, a
  // parent that shares its line, or a file of one line keep the new element
  // on the line.
  std::optional<std::string> indent;
  const auto parentIndent = LineIndent(parent);
  if (!mixed && markup) {
    for (size_t i = children.size(); i-- > 0 && !indent;) {
      if (children[i]->kind == Kind::kText) continue;
      if (const auto found = LineIndent(children[i])) indent = std::string(*found);
    }
  } else if (!mixed && parentIndent && m_lineBreak != std::string::npos) {
    indent = std::string(*parentIndent) + std::string(IndentStep());
  }
  Expand(parent);
  if (!indent) {
    children.push_back(child);
    return;
  }
  const auto blank = [&](std::string_view indentation) {
    Node* node = NewNode(static_cast<int>(Kind::kText), parent);
    node->raw = Own(std::string(LineEnd()) + std::string(indentation));
    return node;
  };
  if (!markup) {
    // Empty or white space only: the element goes on a line of its own,
    // and the parent's end tag on the next.
    children.clear();
    children.push_back(blank(*indent));
    children.push_back(child);
    children.push_back(blank(parentIndent.value_or("")));
    return;
  }
  auto at = children.end();
  if (children.back()->IsBlankText()) --at;
  at = children.insert(at, blank(*indent));
  children.insert(at + 1, child);
}

bool SourceTree::AddElements(const ElementChain& chain, const std::vector<std::string>& names) {
  Node* parent = Find(chain);
  if (parent == nullptr) return false;
  for (const std::string& name : names) {
    Node* element = NewNode(static_cast<int>(Kind::kElement), nullptr);
    element->name = Own(name);
    element->tagEnd = "/>";
    element->empty = true;
    InsertChild(parent, element);
    parent = element;
  }
  return true;
}

bool SourceTree::SetText(const ElementChain& chain, std::string_view value) {
  Node* element = Find(chain);
  if (element == nullptr) return false;
  const std::string_view text = Own(EscapeText(value, LineEnd()));
  for (const auto& child : element->children) {
    if (child->kind == Kind::kText && !child->IsBlankText()) {
      child->raw = text;
      return true;
    }
  }
  // No text yet: it takes the place of the white space before the end tag.
  if (text.empty()) return true;
  Expand(element);
  auto& children = element->children;
  if (!children.empty() && children.back()->IsBlankText()) {
    children.back()->raw = text;
  } else {
    Node* node = NewNode(static_cast<int>(Kind::kText), element);
    node->raw = text;
    children.push_back(node);
  }
  return true;
}

bool SourceTree::SetCData(const ElementChain& chain, std::string_view value) {
  Node* element = Find(chain);
  if (element == nullptr) return false;
  std::string section = "<![CDATA[";
  AppendReplacing(section, value, "]]>", "]]]]><![CDATA[>");
  section += "]]>";
  for (const auto& child : element->children) {
    if (child->kind == Kind::kCData) {
      child->raw = Own(std::move(section));
      return true;
    }
  }
  Expand(element);
  auto& children = element->children;
  Node* node = NewNode(static_cast<int>(Kind::kCData), element);
  node->raw = Own(std::move(section));
  auto at = children.end();
  if (!children.empty() && children.back()->IsBlankText()) --at;
  children.insert(at, node);
  return true;
}

bool SourceTree::SetAttribute(const ElementChain& chain, std::string_view name,
                              std::string_view value) {
  Node* element = Find(chain);
  if (element == nullptr) return false;
  auto& attributes = element->attributes;
  for (Node::Attribute& attribute : attributes) {
    if (attribute.name == name) {
      attribute.value = Own(EscapeAttribute(value, attribute.quote));
      return true;
    }
  }
  // After the last attribute, in the quotes the element (or else the
  // document) uses; on a line of its own if the last one is.
  Node::Attribute added;
  const char quote = FindQuote(element) != 0 ? FindQuote(element) : FindQuote(m_root);
  added.quote = quote != 0 ? quote : '"';
  added.lead = " ";
  if (!attributes.empty() && attributes.back().lead.find('\n') != std::string_view::npos) {
    added.lead = attributes.back().lead;
  }
  added.name = Own(std::string(name));
  added.equals = "=";
  added.value = Own(EscapeAttribute(value, added.quote));
  attributes.push_back(added);
  return true;
}

bool SourceTree::RemoveAttribute(const ElementChain& chain, std::string_view name) {
  Node* element = Find(chain);
  if (element == nullptr) return false;
  auto& attributes = element->attributes;
  for (auto it = attributes.begin(); it != attributes.end(); ++it) {
    if (it->name == name) {
      attributes.erase(it);
      break;
    }
  }
  return true;
}

bool SourceTree::RemoveElement(const ElementChain& chain) {
  Node* element = Find(chain);
  if (element == nullptr || element == m_root) return false;
  auto& siblings = element->up->children;
  const size_t index = IndexOf(element);
  Node* before = index > 0 ? siblings[index - 1] : nullptr;
  Node* after = index + 1 < siblings.size() ? siblings[index + 1] : nullptr;
  if (before != nullptr && after != nullptr && before->IsBlankText() && after->IsBlankText()) {
    // Alone on its line(s): the indentation before it and the line end
    // after it go too.
    const size_t lineStart = before->raw.rfind('\n');
    const size_t lineEnd = after->raw.find('\n');
    if (lineStart != std::string_view::npos && lineEnd != std::string_view::npos) {
      before->raw = before->raw.substr(0, lineStart + 1);
      after->raw = after->raw.substr(lineEnd + 1);
    }
  }
  siblings.erase(siblings.begin() + static_cast<std::ptrdiff_t>(index));
  m_found.clear();
  return true;
}

}  // namespace tkcli
