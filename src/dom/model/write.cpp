#include "dom/model/write.h"

#include <string_view>

#include "dom/xml_escape.h"
#include "dom/xml_writer.h"

namespace tk::dom::model {
namespace {

using namespace escape;

class Writer {
 public:
  Writer(const Store& store, AboveBmp form, std::string& out)
      : m_store(store), m_out(out), m_pairs(form == AboveBmp::kSurrogatePairs) {}

  void subtree(NodeRef top);

 private:
  void put(std::string_view text) {
    if (m_pairs && HasFourByteLead(text.data(), text.size())) {
      AppendSurrogateForm(text, m_out);
    } else {
      m_out.append(text);
    }
  }
  void putName(NameRef name) { put(m_store.name(name)); }

  void escaped(std::string_view text, unsigned char kind) {
    AppendEscaped(text, kind, m_pairs, m_out);
  }

  // The prefix of the declaration ns and a colon, when it has one.
  void prefix(NodeRef ns) {
    if (ns == 0 || m_store.at(ns).u.declaration.prefix == 0) return;
    putName(m_store.at(ns).u.declaration.prefix);
    m_out += ':';
  }

  void qualifiedName(const Record& element) {
    prefix(element.u.element.ns);
    putName(element.u.element.local);
  }

  // A declaration as the engine writes it: the xml prefix never, a value in
  // double quotes unless it holds one (then in single quotes, or with
  // &quot; when it holds both).
  void declaration(const Record& record) {
    const std::string_view prefixName = m_store.name(record.u.declaration.prefix);
    if (prefixName == "xml") return;
    if (record.u.declaration.prefix != 0) {
      m_out += " xmlns:";
      put(prefixName);
    } else {
      m_out += " xmlns";
    }
    m_out += '=';
    std::string_view href = m_store.name(record.u.declaration.href);
    if (href.find('"') == std::string_view::npos) {
      m_out += '"';
      put(href);
      m_out += '"';
    } else if (href.find('\'') == std::string_view::npos) {
      m_out += '\'';
      put(href);
      m_out += '\'';
    } else {
      m_out += '"';
      for (size_t quote = href.find('"'); quote != std::string_view::npos;
           href.remove_prefix(quote + 1), quote = href.find('"')) {
        put(href.substr(0, quote));
        m_out += "&quot;";
      }
      put(href);
      m_out += '"';
    }
  }

  void startTag(const Record& element) {
    m_out += '<';
    qualifiedName(element);
    for (NodeRef a = element.u.element.attributes; a != 0; a = m_store.at(a).next) {
      const Record& attribute = m_store.at(a);
      if (attribute.kind == kDeclaration) {
        declaration(attribute);
        continue;
      }
      m_out += ' ';
      prefix(attribute.prev);
      putName(attribute.u.attribute.local);
      m_out += "=\"";
      escaped(Value(attribute), kInValue);
      m_out += '"';
    }
  }

  // "]]>" can't stand inside a section: it ends after "]]" and the next
  // starts with ">".
  void cdata(std::string_view text) {
    if (text.empty()) {
      m_out += "<![CDATA[]]>";
      return;
    }
    for (size_t end = text.find("]]>"); end != std::string_view::npos; end = text.find("]]>")) {
      m_out += "<![CDATA[";
      put(text.substr(0, end + 2));
      m_out += "]]>";
      text.remove_prefix(end + 2);
    }
    m_out += "<![CDATA[";
    put(text);
    m_out += "]]>";
  }

  void leaf(const Record& node) {
    const bool noData = (node.flags & kNoData) != 0;
    switch (node.kind) {
      case kText:
        if ((node.flags & kUnescaped) != 0) {
          put(LeafText(node));
        } else {
          escaped(LeafText(node), kInText);
        }
        break;
      case kCData:
        cdata(LeafText(node));
        break;
      case kComment:
        if (noData) break;
        m_out += "<!--";
        put(LeafText(node));
        m_out += "-->";
        break;
      case kProcessingInstruction:
        m_out += "<?";
        putName(node.u.leaf.target);
        if (!noData) {
          m_out += ' ';
          put(LeafText(node));
        }
        m_out += "?>";
        break;
      default:
        break;
    }
  }

  const Store& m_store;
  std::string& m_out;
  const bool m_pairs;
};

void Writer::subtree(NodeRef top) {
  NodeRef ref = top;
  while (true) {
    const Record& node = m_store.at(ref);
    if (node.kind == kElement) {
      startTag(node);
      if (node.u.element.first != 0) {
        m_out += '>';
        ref = node.u.element.first;
        continue;
      }
      m_out += "/>";
    } else {
      leaf(node);
    }
    while (true) {
      if (ref == top) return;
      const Record& done = m_store.at(ref);
      if (done.next != 0) {
        ref = done.next;
        break;
      }
      ref = done.parent;
      m_out += "</";
      qualifiedName(m_store.at(ref));
      m_out += '>';
    }
  }
}

}  // namespace

void WriteXml(const Store& store, NodeRef top, AboveBmp form, std::string& out) {
  Writer writer(store, form, out);
  if (store.at(top).kind != kDocumentNode) {
    writer.subtree(top);
    return;
  }
  for (NodeRef child = store.at(top).u.element.first; child != 0; child = store.at(child).next) {
    if (child != store.at(top).u.element.first) out += '\n';
    writer.subtree(child);
  }
}

}  // namespace tk::dom::model
