// Element paths as the tool uses them: "a/b/c" below the root, where the
// first component may name the root itself (ASCII case ignored). Names of
// any length are reached, also those longer than a library path takes.
// Steps may pick one element of a name (see path_steps.h); each function
// can also give the way to its element as the file holds it (a chain).
#pragma once

#include <string>
#include <vector>

#include "document_io.h"
#include "source_tree.h"

namespace tkcli {

// Element handles opened during one command step, closed together in the
// reverse order of opening so that the library's table shrinks back.
class HandleScope {
 public:
  explicit HandleScope(const Document& document) : m_document(document) {}
  ~HandleScope();
  HandleScope(const HandleScope&) = delete;
  HandleScope& operator=(const HandleScope&) = delete;

  // Takes over a handle the library made (0 and the root pass through).
  unsigned Keep(unsigned handle);
  const Document& document() const { return m_document; }

 private:
  const Document& m_document;
  std::vector<unsigned> m_handles;
};

// The element at path, or 0 if there is none. Status 2 for a malformed step.
unsigned FindElement(HandleScope& scope, const std::string& path, ElementChain* chain = nullptr);
// The element at path; status 1 if there is none.
unsigned RequireElement(HandleScope& scope, const std::string& path,
                        ElementChain* chain = nullptr);
// The element at path, made with whatever elements of the path are missing;
// made receives their names, the last ones of chain. Only steps without a
// condition are made: status 1 for one with a condition that matches nothing.
unsigned EnsureElement(HandleScope& scope, const std::string& path, ElementChain* chain = nullptr,
                       std::vector<std::string>* made = nullptr);
// Takes the element at path out of the document; status 1 if there is none.
// It may load the document afresh, so no handle of it may be open.
void RemoveElement(Document& document, const std::string& path, ElementChain* chain = nullptr);

// The name of the element (or processing instruction) of handle.
std::string ElementName(const Document& document, unsigned handle);

}  // namespace tkcli
