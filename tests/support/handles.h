// Handle set-ups that many tests share: a closed slot in the element table,
// and a handle on a node that is no element.
#pragma once

#include <treekeeper/treekeeper.h>

namespace tk::test {

// Opens the element at path twice and closes the first: a closed slot with a
// live handle above it. Returns the closed handle.
inline unsigned OpenClosedSlot(ITreeKeeper* tk, const char* path) {
  const unsigned closed = tk->OpenElement(path);
  tk->OpenElement(path);
  tk->CloseElement(closed);
  return closed;
}

// Opens the child node at index of handle, of any node type; 0 on failure.
inline unsigned OpenChildNode(ITreeKeeper* tk, unsigned handle, unsigned index) {
  unsigned opened = 0, nodeType = 0;
  return tk->OpenElement(handle, index, &opened, &nodeType) == 0 ? opened : 0;
}

}  // namespace tk::test
