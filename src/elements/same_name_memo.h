// The element children of one parent that carry one name, in document order,
// as the last same-name enumeration of an instance found them. Enumeration
// keeps no cursor: every call names its position, so a client that walks n
// same-named children asks n times for the same scan; the memo answers the
// repeated calls without one while the parent's document keeps its mark.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "dom/dom.h"

namespace tk {

class SameNameMemo {
 public:
  // The children of parent named name (compared as path components are),
  // from the memo when it still holds, else from a fresh scan.
  const std::vector<dom::NodePtr>& matches(const dom::Node& parent, std::string_view name);

 private:
  // No reference is held: the mark stands for "no child list of that
  // document changed and none of its nodes was freed", so the borrowed
  // pointers, the parent's included, still stand for the same nodes.
  bool m_valid = false;
  dom::TreeMark m_mark;
  dom::NodePtr m_parent;
  bool m_defaultIsUtf8 = false;
  std::string m_name;
  std::vector<dom::NodePtr> m_matches;
};

}  // namespace tk
