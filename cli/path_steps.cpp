#include "path_steps.h"

#include <charconv>

#include "errors.h"

namespace tkcli {
namespace {

// The components of path as written: split at slashes that are outside
// brackets and quotes.
std::vector<std::string> Components(const std::string& path) {
  std::vector<std::string> parts(1);
  char quote = 0;
  bool inBrackets = false;
  for (const char c : path) {
    if (quote != 0) {
      if (c == quote) quote = 0;
    } else if (inBrackets && (c == '\'' || c == '"')) {
      quote = c;
    } else if (c == '[') {
      inBrackets = true;
    } else if (c == ']') {
      inBrackets = false;
    } else if (c == '/' && !inBrackets) {
      parts.emplace_back();
      continue;
    }
    parts.back() += c;
  }
  if (parts.size() > 1 && parts.back().empty()) parts.pop_back();
  return parts;
}

[[noreturn]] void Malformed(const std::string& path, const std::string& part) {
  const std::string where = path == part ? "" : "'" + path + "': ";
  throw CliError(kUsage, where + "'" + part +
                             "' is no step: use name, name[N] (from 1), name[last()] or "
                             "name[@attribute='value']");
}

PathStep ParseStep(const std::string& path, const std::string& part) {
  PathStep step;
  const size_t open = part.find('[');
  step.name = part.substr(0, open);
  if (open == std::string::npos) return step;
  if (step.name.empty() || part.back() != ']') Malformed(path, part);
  const std::string condition = part.substr(open + 1, part.size() - open - 2);
  if (condition == "last()") {
    step.kind = PathStep::Kind::kLast;
    return step;
  }
  if (!condition.empty() && condition.find_first_not_of("0123456789") == std::string::npos) {
    const char* end = condition.data() + condition.size();
    const auto parsed = std::from_chars(condition.data(), end, step.position);
    if (parsed.ec != std::errc() || parsed.ptr != end || step.position == 0) {
      Malformed(path, part);
    }
    step.kind = PathStep::Kind::kNth;
    return step;
  }
  // @name='value' or @name="value", the value holding no quote of its kind.
  const size_t equals = condition.find('=');
  if (condition.size() < 5 || condition[0] != '@' || equals == std::string::npos ||
      equals < 2 || equals + 2 >= condition.size()) {
    Malformed(path, part);
  }
  const char quote = condition[equals + 1];
  const std::string quoted = condition.substr(equals + 2);
  if ((quote != '\'' && quote != '"') || quoted.find(quote) != quoted.size() - 1) {
    Malformed(path, part);
  }
  step.kind = PathStep::Kind::kAttribute;
  step.attribute = condition.substr(1, equals - 1);
  step.value = quoted.substr(0, quoted.size() - 1);
  if (step.attribute.find_first_of(" \t[]'\"") != std::string::npos) Malformed(path, part);
  return step;
}

}  // namespace

bool HasConditions(const std::string& path) { return path.find('[') != std::string::npos; }

std::vector<PathStep> ParseSteps(const std::string& path) {
  std::vector<PathStep> steps;
  for (const std::string& part : Components(path)) steps.push_back(ParseStep(path, part));
  return steps;
}

std::string StepsText(const std::string& path, size_t count) {
  const std::vector<std::string> parts = Components(path);
  std::string text;
  for (size_t i = 0; i < count && i < parts.size(); ++i) text += (i > 0 ? "/" : "") + parts[i];
  return text;
}

}  // namespace tkcli
