#include "paths.h"

#include "errors.h"
#include "path_steps.h"
#include "utf8_text.h"
#include "xml_text.h"

namespace tkcli {
namespace {

// The library gathers a path component in a 64-byte buffer. Longer names
// are walked here by enumeration, which takes names of any length.
constexpr size_t kMaxComponent = 63;

// Components of path; a single "/" at the end is no component of its own.
std::vector<std::string> Split(const std::string& path) {
  std::vector<std::string> parts;
  size_t begin = 0;
  while (begin <= path.size()) {
    size_t end = path.find('/', begin);
    if (end == std::string::npos) end = path.size();
    if (!(end == path.size() && begin == end && !parts.empty())) {
      parts.push_back(path.substr(begin, end - begin));
    }
    begin = end + 1;
  }
  return parts;
}

std::string Join(const std::vector<std::string>& parts, size_t begin, size_t end) {
  std::string path;
  for (size_t i = begin; i < end; ++i) {
    if (i > begin) path += '/';
    path += parts[i];
  }
  return path;
}

bool HasLongComponent(const std::vector<std::string>& parts, size_t begin = 0) {
  for (size_t i = begin; i < parts.size(); ++i) {
    if (parts[i].size() > kMaxComponent) return true;
  }
  return false;
}

bool EqualIgnoringAsciiCase(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

// What the library's OpenElement by path does, one component at a time: a
// first component that names the root is dropped, and each one goes to the
// first child element of that name.
unsigned WalkByEnumeration(HandleScope& scope, const std::vector<std::string>& parts) {
  const Document& document = scope.document();
  size_t begin = 0;
  if (EqualIgnoringAsciiCase(parts.front(), ElementName(document, kRootHandle))) begin = 1;
  unsigned current = kRootHandle;
  for (size_t i = begin; i < parts.size(); ++i) {
    unsigned index = 0;
    unsigned child = 0;
    if (document->EnumElement(current, "", parts[i].c_str(), &index, &child) != 0) return 0;
    current = scope.Keep(child);
  }
  return current;
}

// Elements are made for parts from begin on: each must be a name the
// library can make.
void CheckNewElements(const std::string& path, const std::vector<std::string>& parts,
                      size_t begin) {
  if (HasLongComponent(parts, begin)) {
    throw CliError(kUsage, "'" + path + "': an element can't be made with a name longer than " +
                               std::to_string(kMaxComponent) + " bytes");
  }
}

ChildLink Link(const std::string& name, unsigned ordinal) {
  ChildLink link;
  if (!LocaleToUtf8(name, link.name)) link.name = name;
  link.ordinal = ordinal;
  return link;
}

// The chain of the first end parts of a path without conditions, where each
// part goes to the first child of its name.
ElementChain PlainChain(const Document& document, const std::vector<std::string>& parts,
                        size_t end) {
  ElementChain chain;
  size_t begin = 0;
  if (end > 0 && EqualIgnoringAsciiCase(parts.front(), ElementName(document, kRootHandle))) {
    begin = 1;
  }
  for (size_t i = begin; i < end; ++i) chain.push_back(Link(parts[i], 0));
  return chain;
}

// How far steps lead from the root: the element of each step followed.
struct Walked {
  std::vector<unsigned> handles;  // the root, then one element a step followed
  ElementChain chain;
  size_t steps = 0;
};

// The child of parent that step picks, and its ordinal among the children
// of its name; 0 if there is none.
unsigned PickChild(HandleScope& scope, unsigned parent, const PathStep& step, unsigned& ordinal) {
  const Document& document = scope.document();
  const char* name = step.name.c_str();
  unsigned index = 0;
  unsigned child = 0;
  switch (step.kind) {
    case PathStep::Kind::kFirst:
    case PathStep::Kind::kNth:
      index = step.position - 1;
      break;
    case PathStep::Kind::kLast:
      // The first call counts the children of the name.
      if (document->EnumElement(parent, "", name, &index, &child) != 0) return 0;
      scope.Keep(child);
      if (index <= 1) {
        ordinal = 0;
        return child;
      }
      index -= 1;
      break;
    case PathStep::Kind::kAttribute: {
      std::string wanted;
      if (!LocaleToUtf8(step.value, wanted)) wanted = step.value;
      for (;; ++index) {
        unsigned at = index;
        child = 0;
        if (document->EnumElement(parent, "", name, &at, &child) != 0) return 0;
        outputstr value;
        if (document->GetAttributeText(child, "", step.attribute.c_str(), value) == 0 &&
            std::string_view(value.text(), value.length()) == wanted) {
          ordinal = index;
          return scope.Keep(child);
        }
        document->CloseElement(child);
      }
    }
  }
  ordinal = index;
  if (document->EnumElement(parent, "", name, &index, &child) != 0) return 0;
  return scope.Keep(child);
}

Walked WalkSteps(HandleScope& scope, const std::vector<PathStep>& steps) {
  Walked walked;
  walked.handles.push_back(kRootHandle);
  for (; walked.steps < steps.size(); ++walked.steps) {
    const PathStep& step = steps[walked.steps];
    if (walked.steps == 0 && step.kind == PathStep::Kind::kFirst &&
        EqualIgnoringAsciiCase(step.name, ElementName(scope.document(), kRootHandle))) {
      continue;  // the root itself
    }
    unsigned ordinal = 0;
    const unsigned child = PickChild(scope, walked.handles.back(), step, ordinal);
    if (child == 0) break;
    walked.handles.push_back(child);
    walked.chain.push_back(Link(step.name, ordinal));
  }
  return walked;
}

[[noreturn]] void NoElement(const Document& document, const std::string& path) {
  throw CliError(kNotThere, document.name() + ": no element at '" + path + "'");
}

// The XML of the whole document without the element of handle.
std::string XmlWithout(HandleScope& scope, unsigned handle) {
  const Document& document = scope.document();
  // A mark on the element finds its start tag; a mark that the text holds
  // anywhere else is taken off again and another one tried.
  for (unsigned attempt = 0;; ++attempt) {
    const std::string mark = "treekeeper-cut-" + std::to_string(attempt);
    const int marked = document->setAttributeValue(handle, "", mark.c_str(), TK_VALUE_TEXT, 1, "1");
    if (marked != 0) {
      throw CliError(kFailed, document.name() + ": cannot mark an element to remove (" +
                                  std::to_string(marked) + ")");
    }
    const std::string xml = document.Render(kRootHandle, false);
    const std::string attribute = " " + mark + "=\"1\"";
    const size_t at = xml.find(attribute);
    if (at != std::string::npos && xml.find(attribute, at + 1) == std::string::npos) {
      const size_t begin = xml.rfind('<', at);
      const size_t end = ElementEnd(xml, begin);
      if (end == std::string::npos) break;
      return xml.substr(0, begin) + xml.substr(end);
    }
    document->DeleteAttribute(handle, "", mark.c_str());
  }
  throw CliError(kFailed, document.name() + ": cannot find an element to remove in the XML");
}

}  // namespace

std::string ElementName(const Document& document, unsigned handle) {
  unsigned size = 0;
  int result = document->GetElementName(handle, nullptr, &size);
  std::vector<char> name;
  if (result == -105 && size > 0) {
    name.assign(size, '\0');
    result = document->GetElementName(handle, name.data(), &size);
  }
  if (result != 0) {
    throw CliError(kFailed, document.name() + ": cannot read a node's name (" +
                                std::to_string(result) + ")");
  }
  return std::string(name.data());
}

HandleScope::~HandleScope() {
  for (auto it = m_handles.rbegin(); it != m_handles.rend(); ++it) {
    m_document->CloseElement(*it);
  }
}

unsigned HandleScope::Keep(unsigned handle) {
  if (handle > kRootHandle) m_handles.push_back(handle);
  return handle;
}

unsigned FindElement(HandleScope& scope, const std::string& path, ElementChain* chain) {
  if (HasConditions(path)) {
    const std::vector<PathStep> steps = ParseSteps(path);
    Walked walked = WalkSteps(scope, steps);
    if (walked.steps < steps.size()) return 0;
    if (chain != nullptr) *chain = std::move(walked.chain);
    return walked.handles.back();
  }
  const std::vector<std::string> parts = Split(path);
  const unsigned handle = HasLongComponent(parts)
                              ? WalkByEnumeration(scope, parts)
                              : scope.Keep(scope.document()->OpenElement(path.c_str()));
  // The empty path is the root's.
  if (handle != 0 && chain != nullptr && !path.empty()) {
    *chain = PlainChain(scope.document(), parts, parts.size());
  }
  return handle;
}

unsigned RequireElement(HandleScope& scope, const std::string& path, ElementChain* chain) {
  const unsigned handle = FindElement(scope, path, chain);
  if (handle == 0) NoElement(scope.document(), path);
  return handle;
}

namespace {

// Makes names (a path without conditions) below parent.
unsigned CreateBelow(HandleScope& scope, unsigned parent, const std::string& path,
                     const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    if (name.empty()) throw CliError(kUsage, "'" + path + "': empty path component");
  }
  CheckNewElements(path, names, 0);
  unsigned made = 0;
  const int result =
      scope.document()->CreateElement(parent, Join(names, 0, names.size()).c_str(), &made);
  if (result == 0) return scope.Keep(made);
  const std::string what = scope.document().name() + ": cannot create '" + path + "'";
  if (result == -1) throw CliError(kUsage, what + ": not a valid element name");
  throw CliError(kFailed, what + " (" + std::to_string(result) + ")");
}

}  // namespace

unsigned EnsureElement(HandleScope& scope, const std::string& path, ElementChain* chain,
                       std::vector<std::string>* made) {
  const unsigned found = FindElement(scope, path, chain);
  if (made != nullptr) made->clear();
  if (found != 0) return found;
  std::vector<std::string> names;
  unsigned parent = 0;
  ElementChain way;
  if (HasConditions(path)) {
    const std::vector<PathStep> steps = ParseSteps(path);
    Walked walked = WalkSteps(scope, steps);
    // Only steps without a condition are made.
    for (size_t i = walked.steps; i < steps.size(); ++i) {
      if (steps[i].kind != PathStep::Kind::kFirst) {
        NoElement(scope.document(), StepsText(path, i + 1));
      }
      names.push_back(steps[i].name);
    }
    parent = walked.handles.back();
    way = std::move(walked.chain);
  } else {
    const std::vector<std::string> parts = Split(path);
    for (const std::string& part : parts) {
      if (part.empty()) throw CliError(kUsage, "'" + path + "': empty path component");
    }
    // The deepest element of the path that exists; the library makes the
    // rest below it. (It always makes the last component new, so it must
    // only be given the part that is missing.)
    size_t depth = parts.size();
    while (depth-- > 0) {
      parent = depth == 0 ? kRootHandle : FindElement(scope, Join(parts, 0, depth));
      if (parent != 0) break;
    }
    names.assign(parts.begin() + static_cast<std::ptrdiff_t>(depth), parts.end());
    way = PlainChain(scope.document(), parts, depth);
  }
  const unsigned handle = CreateBelow(scope, parent, path, names);
  // A new element is the last of its name below its parent.
  for (const std::string& name : names) way.push_back(Link(name, ChildLink::kLastOrdinal));
  if (chain != nullptr) *chain = std::move(way);
  if (made != nullptr) {
    for (const std::string& name : names) made->push_back(Link(name, 0).name);
  }
  return handle;
}

void RemoveElement(Document& document, const std::string& path, ElementChain* chain) {
  std::string rest;
  {
    HandleScope scope(document);
    ElementChain way;
    const unsigned handle = RequireElement(scope, path, &way);
    if (handle == kRootHandle) {
      throw CliError(kUsage, document.name() + ": the root element can't be removed");
    }
    if (chain != nullptr) *chain = way;
    // The library removes an element below a parent, never the parent's
    // own, and only the first of its name.
    std::string name;
    unsigned parent = 0;
    if (HasConditions(path)) {
      const std::vector<PathStep> steps = ParseSteps(path);
      if (way.back().ordinal == 0) {
        name = steps.back().name;
        parent = steps.size() == 1 ? kRootHandle
                                   : RequireElement(scope, StepsText(path, steps.size() - 1));
      }
    } else {
      const std::vector<std::string> parts = Split(path);
      name = parts.back();
      parent = parts.size() == 1 ? kRootHandle
                                 : RequireElement(scope, Join(parts, 0, parts.size() - 1));
    }
    if (name.empty() || name.size() > kMaxComponent) {
      rest = XmlWithout(scope, handle);
    } else {
      const int result = document->DeleteElement(parent, name.c_str());
      if (result == 0) return;
      if (result == -102) NoElement(document, path);
      throw CliError(kFailed, document.name() + ": cannot remove '" + path + "' (" +
                                  std::to_string(result) + ")");
    }
  }
  // The element is cut from the XML instead, and the document loaded again
  // from it.
  document.Reload(rest);
}

}  // namespace tkcli
