// The shared object behind Document handles.
#pragma once

#include <atomic>

#include "dom/internal.h"

namespace tk::dom {

struct Document::Object {
  std::atomic<int> refs{1};
  xmlDocPtr doc = nullptr;  // the tree held (an empty document before any load)
  ParseError error;         // of the last load

  Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  ~Object();
  // Holds next in place of the current tree, which goes if nothing else holds it.
  void Replace(xmlDocPtr next);
};

// A new, empty document ready for our use.
xmlDocPtr NewEmptyDocument();

}  // namespace tk::dom
