// Extensions: no stylesheet makes the engine load code.
//
// For an extension namespace, extension function, element-available() name
// or foreign top-level element that it can't place, the engine looks for a
// plugin, a shared object named after the namespace in its plugin directory,
// and loads it. Our transformations never let that search start: a
// stylesheet that declares extension namespaces is refused; foreign
// top-level elements are out of the tree while the stylesheet compiles; and
// at run time functions in a namespace resolve to the engine's own node-set()
// alone, and element-available() answers from what the engine has built in.
#pragma once

#include <libxslt/xsltInternals.h>

#include <utility>
#include <vector>

namespace tk::dom {

// True when an element of the stylesheet names extension element prefixes.
bool DeclaresExtensions(xmlDocPtr stylesheet);

// Takes the top-level elements of another namespace than XSLT's out of the
// stylesheet's tree while it lives (or until restore); they go back in place,
// where document('') finds them.
class ForeignTopLevelAside {
 public:
  explicit ForeignTopLevelAside(xmlDocPtr stylesheet);
  ~ForeignTopLevelAside() { restore(); }
  ForeignTopLevelAside(const ForeignTopLevelAside&) = delete;
  ForeignTopLevelAside& operator=(const ForeignTopLevelAside&) = delete;
  void restore();

 private:
  xmlNodePtr m_top = nullptr;
  // Each element set aside, with the XSLT element it stood before (null: last).
  std::vector<std::pair<xmlNodePtr, xmlNodePtr>> m_aside;
};

// Makes the context's function lookups and element-available() answer
// without the plugin search.
void CloseExtensionLookups(xsltTransformContextPtr ctxt);

}  // namespace tk::dom
