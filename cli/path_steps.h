// The steps of a tool path: an element name alone goes to the first child
// of that name; name[N] to the N-th (from 1), name[last()] to the last, and
// name[@attribute='value'] (or "value") to the first whose attribute has
// that value.
#pragma once

#include <string>
#include <vector>

namespace tkcli {

struct PathStep {
  enum class Kind { kFirst, kNth, kLast, kAttribute };
  std::string name;
  Kind kind = Kind::kFirst;
  unsigned position = 1;  // kNth
  std::string attribute;  // kAttribute
  std::string value;
};

// Whether any step of path has a condition in brackets.
bool HasConditions(const std::string& path);

// The steps of path, split at the slashes outside brackets; a single "/"
// at the end makes no step of its own. Status 2 for a condition that is none
// of the forms above.
std::vector<PathStep> ParseSteps(const std::string& path);

// The path of the first count steps, as the user wrote them.
std::string StepsText(const std::string& path, size_t count);

}  // namespace tkcli
