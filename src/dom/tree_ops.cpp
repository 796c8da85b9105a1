// Structural changes: appendChild and removeChild.
//
// Nodes are linked by hand: the engine's own insertion merges adjacent text
// nodes and may free a node a reference still names.
#include "dom/internal.h"

namespace tk::dom {
namespace {

bool CanHoldChild(const xmlNode* parent, const xmlNode* child) {
  switch (child->type) {
    case XML_ELEMENT_NODE:
    case XML_TEXT_NODE:
    case XML_CDATA_SECTION_NODE:
    case XML_PI_NODE:
    case XML_COMMENT_NODE:
      break;
    default:
      return false;
  }
  if (parent->type == XML_ELEMENT_NODE) return true;
  if (!IsDocumentNode(parent)) return false;
  // A document holds one element and no text.
  if (child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE) return false;
  if (child->type == XML_ELEMENT_NODE) {
    xmlNodePtr root = xmlDocGetRootElement(reinterpret_cast<const xmlDoc*>(parent));
    if (root != nullptr && root != child) return false;
  }
  return true;
}

void LinkLast(xmlNodePtr parent, xmlNodePtr child) {
  child->parent = parent;
  child->next = nullptr;
  child->prev = parent->last;
  if (parent->last != nullptr) {
    parent->last->next = child;
  } else {
    parent->children = child;
  }
  parent->last = child;
}

}  // namespace

int Node::appendChild(const Node& child, Node& inTree) {
  // inTree may be the very object child is (or this): it is written last.
  auto fail = [&inTree](int status) {
    inTree.reset();
    return status;
  };
  if (m_node == nullptr || child.m_node == nullptr) return fail(kInvalidArg);
  if (m_ns != nullptr || child.m_ns != nullptr) return fail(kFail);
  xmlNodePtr parent = m_node;
  xmlNodePtr node = child.m_node;
  if (!CanHoldChild(parent, node)) return fail(kFail);
  // A node can't go below itself; only a node with children can be an ancestor.
  if (node == parent) return fail(kFail);
  if (node->children != nullptr) {
    for (xmlNodePtr up = parent->parent; up != nullptr; up = up->parent) {
      if (up == node) return fail(kFail);
    }
  }
  QuietEngine quiet;
  xmlDocPtr targetDoc = IsDocumentNode(parent) ? reinterpret_cast<xmlDocPtr>(parent) : parent->doc;
  xmlNodePtr oldParent = node->parent;
  DocBlock* from = BlockOf(node->doc);
  DocBlock* to = BlockOf(targetDoc);
  if (from != to) {
    // Names, dictionary strings and namespace references move over.
    if (xmlDOMWrapAdoptNode(nullptr, node->doc, node, targetDoc,
                            IsDocumentNode(parent) ? nullptr : parent, 0) != 0) {
      ShapeChanged(from);  // the engine may have taken it out of its list
      if (node->parent == nullptr) Unlinked(node, oldParent);
      return fail(kFail);
    }
    if (node->parent != nullptr) xmlUnlinkNode(node);
    TransferSubtree(node, from, to);
  } else if (node->parent != nullptr) {
    xmlUnlinkNode(node);
  }
  LinkLast(parent, node);
  ShapeChanged(from);
  if (to != from) ShapeChanged(to);
  Linked(node);
  if (node->type == XML_ELEMENT_NODE) xmlDOMWrapReconcileNamespaces(nullptr, node, 0);
  Node pin(child);  // keeps the node while inTree takes it over
  inTree = pin;
  Unlinked(node, oldParent);  // last: the tree it left may go now
  if (from != to) FreeDocumentIfUnused(from);
  return kOk;
}

int Node::removeChild(const Node& child, Node& removed) {
  // removed may be the very object child is: it is written last.
  auto fail = [&removed](int status) {
    removed.reset();
    return status;
  };
  if (m_node == nullptr || child.m_node == nullptr) return fail(kInvalidArg);
  if (m_ns != nullptr || child.m_ns != nullptr) return fail(kInvalidArg);
  xmlNodePtr node = child.m_node;
  if (node->type == XML_ATTRIBUTE_NODE || node->parent != m_node) return fail(kInvalidArg);
  QuietEngine quiet;
  xmlNodePtr oldParent = node->parent;
  // Namespace references inside the branch are made to stand on their own.
  if (xmlDOMWrapRemoveNode(nullptr, node->doc, node, 0) != 0) {
    ShapeChanged(BlockOf(node->doc));  // the engine may have taken it out of its list
    if (node->parent == nullptr) Unlinked(node, oldParent);
    return fail(kFail);
  }
  if (node->parent != nullptr) xmlUnlinkNode(node);
  ShapeChanged(BlockOf(node->doc));
  Unlinked(node, oldParent);
  removed = Node(child);
  return kOk;
}

}  // namespace tk::dom
