#include "paths.h"

#include "errors.h"
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

unsigned FindElement(HandleScope& scope, const std::string& path) {
  const std::vector<std::string> parts = Split(path);
  if (HasLongComponent(parts)) return WalkByEnumeration(scope, parts);
  return scope.Keep(scope.document()->OpenElement(path.c_str()));
}

unsigned RequireElement(HandleScope& scope, const std::string& path) {
  const unsigned handle = FindElement(scope, path);
  if (handle == 0) {
    throw CliError(kNotThere, scope.document().name() + ": no element at '" + path + "'");
  }
  return handle;
}

unsigned EnsureElement(HandleScope& scope, const std::string& path) {
  const unsigned found = FindElement(scope, path);
  if (found != 0) return found;
  const std::vector<std::string> parts = Split(path);
  for (const std::string& part : parts) {
    if (part.empty()) throw CliError(kUsage, "'" + path + "': empty path component");
  }
  // The deepest element of the path that exists; the library makes the
  // rest below it. (It always makes the last component new, so it must
  // only be given the part that is missing.)
  for (size_t depth = parts.size(); depth-- > 0;) {
    const unsigned parent = depth == 0 ? kRootHandle : FindElement(scope, Join(parts, 0, depth));
    if (parent == 0) continue;
    CheckNewElements(path, parts, depth);
    unsigned made = 0;
    const int result =
        scope.document()->CreateElement(parent, Join(parts, depth, parts.size()).c_str(), &made);
    if (result == 0) return scope.Keep(made);
    const std::string what = scope.document().name() + ": cannot create '" + path + "'";
    if (result == -1) throw CliError(kUsage, what + ": not a valid element name");
    throw CliError(kFailed, what + " (" + std::to_string(result) + ")");
  }
  throw CliError(kFailed, scope.document().name() + ": cannot create '" + path + "'");
}

void RemoveElement(Document& document, const std::string& path) {
  std::string rest;
  {
    HandleScope scope(document);
    const unsigned handle = RequireElement(scope, path);
    if (handle == kRootHandle) {
      throw CliError(kUsage, document.name() + ": the root element can't be removed");
    }
    // The library removes an element below a parent, never the parent's own.
    const std::vector<std::string> parts = Split(path);
    if (parts.back().size() > kMaxComponent) {
      rest = XmlWithout(scope, handle);
    } else {
      const unsigned parent =
          parts.size() == 1 ? kRootHandle : RequireElement(scope, Join(parts, 0, parts.size() - 1));
      const int result = document->DeleteElement(parent, parts.back().c_str());
      if (result == 0) return;
      if (result == -102) {
        throw CliError(kNotThere, document.name() + ": no element at '" + path + "'");
      }
      throw CliError(kFailed, document.name() + ": cannot remove '" + path + "' (" +
                                  std::to_string(result) + ")");
    }
  }
  // A name too long for a library path is removed from the XML instead,
  // and the document loaded again from it.
  document.Reload(rest);
}

}  // namespace tkcli
