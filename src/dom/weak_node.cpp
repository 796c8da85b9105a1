// WeakNode: a cell linked into the control block of its node's document and
// cleared when the node's subtree or document is freed.
#include "dom/internal.h"

namespace tk::dom {

struct WeakNode::Cell : WeakCell {};

WeakCell* NodeAccess::Cell(const WeakNode& weak) { return weak.m_cell; }

WeakNode::~WeakNode() {
  reset();
  delete m_cell;
}

void WeakNode::assign(const Node& node) {
  reset();
  xmlNodePtr raw = NodeAccess::Raw(node);
  if (raw == nullptr) return;
  if (m_cell == nullptr) m_cell = new Cell;
  LinkWeakCell(m_cell, raw, NodeAccess::Ns(node));
}

void WeakNode::reset() noexcept {
  if (m_cell != nullptr) UnlinkWeakCell(m_cell);
}

Node WeakNode::lock() const {
  if (m_cell == nullptr || m_cell->node == nullptr) return Node();
  return NodeAccess::Make(m_cell->node, m_cell->ns);
}

}  // namespace tk::dom
