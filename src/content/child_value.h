// The value of an element held in its children of one node type: text
// children for element values, CDATA sections for CDATA values. Reads and
// writes of both go through here; the operations add their handle test, path
// walk and messages around it.
#pragma once

#include <string>

#include "dom/dom.h"

namespace tk {

// How a read of TK_VALUE_TEXT converts the DOM's text.
struct TextReadForm {
  unsigned codePage;
  unsigned flags;
};

// Reads the value of `element` from its children of `nodeType`. Every such
// child is read in turn and the last one decides the result and *size; the
// size one child leaves is the capacity for the next, but no child writes
// more than the caller's buffer holds (the capacity *size had on entry):
// one that would gives -105 with the size it needs.
//   -107  the element has no children (*size untouched), or a number was
//         read from an empty text
//   -1    children, but none of nodeType (*size untouched)
//   -105  buffer null or too small: *size holds the bytes needed
//   0     read (a number with a non-digit text leaves the buffer as it was)
int ReadChildValue(dom::NodePtr element, int nodeType, int type, unsigned* size,
                   void* buffer, TextReadForm textForm);

// Writes valueText (UTF-8, no NUL) as the value of `element`: the first child
// of nodeType takes it; with none, a new node of that type is appended behind
// all children. Other children are left as they are. 0; -1; -107.
int WriteChildValue(dom::Document& document, dom::NodePtr element, int nodeType,
                    const std::string& valueText);

}  // namespace tk
