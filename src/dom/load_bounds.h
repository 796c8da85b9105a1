// What one load may cost. The engine checks each attribute of a start tag
// against every earlier one, finds a namespace prefix by walking every
// declaration in scope, and keeps names in a table that stops growing at a
// few thousand buckets; entity references in attribute values are expanded
// anew at every use. Left alone, a few megabytes of crowded or repetitive
// markup buy minutes of CPU and gigabytes of memory. These bounds keep every
// load, accepted or refused, in time and memory proportional to its input;
// documents people write stay far below each of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "dom/internal.h"

namespace tk::dom {

// Attributes and namespace declarations of one start tag, together.
constexpr int kMaxAttributesPerElement = 1000;
// Namespace declarations in scope at any element, its own included.
constexpr int kMaxNamespacesInScope = 128;
// Distinct names the parse may meet: element, attribute and entity names,
// prefixes and namespace names together.
constexpr size_t kMaxDistinctNames = 100000;
// Characters entity references may produce: this many per byte of input...
constexpr size_t kExpansionPerInputByte = 10;
// ...plus this many.
constexpr size_t kExpansionAllowance = 1 << 20;

// A start tag that crosses one of the bounds above, found by a pass over the
// raw bytes before the engine sees them.
struct CrowdedTag {
  int line = 0;        // of the tag's "<", counted from 1
  int column = 0;      // in characters, counted from 1
  std::string reason;  // what was too many, with its own line end
};

// Scans text (in any encoding the engine reads) for start tags with too many
// attributes and declarations, and for declarations piling up in scope.
// True when it found one; where and why go to found.
bool FindCrowdedTag(const char* data, size_t length, CrowdedTag& found);

// The same scan over text already in UTF-8 (an entity's replacement text).
bool FindCrowdedTagUtf8(const char* data, size_t length, CrowdedTag& found);

// Installs the bounds of one parse on the engine's context: counts what
// entity expansion produces, the names met and the defaults declared, and
// stops the parse with a reason when one is crossed. Lives as long as the
// parse.
class LoadGuard {
 public:
  LoadGuard(xmlParserCtxtPtr ctxt, size_t inputLength);
  ~LoadGuard();
  LoadGuard(const LoadGuard&) = delete;
  LoadGuard& operator=(const LoadGuard&) = delete;

  struct State;

 private:
  State* m_state;
};

// The checks of one element start: a namespace name the export could not
// write back, too many distinct names, and what defaults and declarations
// add. False when one failed and the parse was stopped.
bool ElementWithinBounds(xmlParserCtxtPtr ctxt, const xmlChar* localname, const xmlChar* prefix,
                         int namespaceCount, const xmlChar** namespaces, int attributeCount,
                         int defaultedCount, const xmlChar** attributes);

// Negative codes of parse errors: the engine's error number in the low bits.
int32_t ParseErrorCode(int engineCode);
// Where the parse running on this thread keeps its first fatal error, or null.
ParseError* FirstFatalError();

// Stops the parse at the current input position with reason (the first
// fatal error of the parse, unless one came before).
void StopParse(xmlParserCtxtPtr ctxt, std::string reason);

}  // namespace tk::dom
