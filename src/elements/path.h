// Paths: "/"-separated element names relative to a start element, in the
// default code page. A component holds at most 63 bytes.
#pragma once

#include <memory>
#include <string_view>

#include "dom/dom.h"

namespace tk {

constexpr size_t kMaxComponent = 63;

// Null for a null or empty path; otherwise a copy that ends in "/" (one is
// added unless the path already ends in one).
std::unique_ptr<char[]> NormalizePath(const char* path);

// True when child is an element whose name, in the default code page, equals
// component byte for byte. Compares the DOM's bytes directly (no allocation)
// when the default code page is UTF-8.
bool ElementNameMatches(dom::NodePtr child, std::string_view component);

// Follows a path from start through element children, first match at each
// level, no backtracking; one trailing "/" is allowed, so a normalised path
// walks the same. Returns start itself for a null or empty path, the element
// found, or a null node when nothing matches (also for an empty component or
// one longer than kMaxComponent).
dom::Node WalkPath(const dom::Node& start, const char* path);
// The same walk without a counted reference to the result: for reads and
// writes that finish before the tree changes.
dom::NodePtr WalkPath(dom::NodePtr start, const char* path);

}  // namespace tk
