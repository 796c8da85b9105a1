// TreeKeeper for modern C++: documents and elements as objects, values with
// types, range-for over children and attributes, errors as exceptions.
//
// Header-only, C++17 and later, built on <treekeeper/treekeeper.h> alone: it
// adds nothing to the library and changes nothing its other clients see.
//
//   tk::Document doc = tk::Document::load("server.xml");
//   uint32_t port = doc.get<uint32_t>("listeners/listener/port");
//   for (tk::Element listener : doc.root().child("listeners").children("listener"))
//     std::cout << listener.attr("id") << '\n';
//   doc.set("metrics/port", 9100);                 // makes metrics and port
//   doc.save("server.xml");
//
// Ownership. A Document owns one instance and is move-only. An Element owns
// one handle and closes it when the last copy goes: copies share the handle.
// An Element keeps its instance alive, so it may outlive its Document; the
// instance is deleted with the last of them, on whichever thread that is.
// native() and handle() lead to the handle interface; don't end through it
// the handles that Elements hold (CloseElement, CloseAllElements, imports).
//
// Paths are "/"-separated element names below the element they are given to
// (below the root for a Document); each step goes to the first child of that
// name, and the empty path is the element itself. Text is std::string_view in
// and std::string out, UTF-8 throughout: values and names are handed over as
// they are, and paths are read in the locale's character set, which is UTF-8
// in the C locale and every UTF-8 locale. A character above U+FFFF comes out
// as one 4-byte sequence. get_text() reads element text in another code page.
//
// Values are read and written as std::string (text), uint32_t (decimal
// digits) or std::vector<std::byte> (two hexadecimal digits a byte); a write
// also takes string literals, std::string_view and unsigned integers. A read
// is strict: text that is not all decimal digits, or past 32 bits, is not a
// number (-104), empty text is no number (-107, attributes -108), and a byte
// string needs an even count of hex digits (-104). An element without text
// reads as "" and as no bytes. Ask for std::optional<T> where the element or
// attribute may be absent: absent gives std::nullopt, while a value that is
// there and doesn't convert still fails.
//
// Errors. Every failure is a tk::Error carrying the library's result code,
// its meaning, what was asked, and the library's last debug message of the
// failing call on the calling thread (when it sent one). Every operation also
// has a try_ form that throws nothing and returns a tk::Status or a
// tk::Result<T>; built without exceptions, only the try_ forms exist.
//
// The debug hook. The messages are taken from the library's debug callback,
// which is process-wide. This header installs its own capture once, while
// the program starts (before main). The rule for a program that wants the
// messages as well: hand your callback to tk::set_debug_output(), which
// keeps the capture and passes every message on to yours, on the thread
// that caused it. A callback installed with TkSetDebugOutput() directly
// takes the messages away from the capture: it gets every message as before,
// and a tk::Error then carries the code and its meaning but no message.
#ifndef TREEKEEPER_TREEKEEPER_HPP
#define TREEKEEPER_TREEKEEPER_HPP

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>
#if defined(__cpp_exceptions)
#include <stdexcept>
#endif

#include <treekeeper/treekeeper.h>

namespace tk {

using Bytes = std::vector<std::byte>;

// What a result code of the library means.
inline const char* describe(int code) {
  switch (code) {
    case 0: return "success";
    case -1: return "operation failed";
    case -6: return "element handle invalid or closed";
    case -101: return "file name invalid, file not readable, or nothing to export";
    case -102: return "no element at the path";
    case -103: return "attribute name missing";
    case -104: return "value not in the asked form";
    case -105: return "buffer too small";
    case -106: return "the text holds no document element";
    case -107: return "element has no value";
    case -108: return "empty attribute read as a number";
    case -109: return "element has no child nodes";
    case -110: return "position past the count";
    case -111: return "file not writable, or the write fell short";
    case -112: return "a document is open already";
    case -113: return "element not made (too deep or not appendable)";
    default: return code > 0 ? "system error" : "unknown result";
  }
}

// The outcome of one operation: the library's result code (0 is success),
// what was asked, and the library's message about the failure, if any.
class Status {
 public:
  Status() = default;
  Status(int code, std::string context, std::string message = {})
      : m_code(code), m_context(std::move(context)), m_message(std::move(message)) {}

  bool ok() const { return m_code == 0; }
  explicit operator bool() const { return ok(); }
  int code() const { return m_code; }
  const std::string& context() const { return m_context; }  // e.g. "get 'server/port'"
  const std::string& message() const { return m_message; }  // the library's, may be empty

  // "get 'a/b': no element at the path (-102)", then ": message" when there is one.
  std::string text() const {
    std::string out = m_context + ": " + describe(m_code) + " (" + std::to_string(m_code) + ")";
    if (!m_message.empty()) out += ": " + m_message;
    return out;
  }

 private:
  int m_code = 0;
  std::string m_context;
  std::string m_message;
};

#if defined(__cpp_exceptions)
// The one exception type of this interface.
class Error : public std::runtime_error {
 public:
  explicit Error(Status status) : std::runtime_error(status.text()), m_status(std::move(status)) {}
  int code() const { return m_status.code(); }
  const std::string& message() const { return m_status.message(); }
  const Status& status() const { return m_status; }

 private:
  Status m_status;
};
#endif

// A value or the Status of its failure.
template <class T>
class Result {
 public:
  Result(T value) : m_value(std::move(value)) {}
  Result(Status status) : m_status(std::move(status)) {}

  bool ok() const { return m_status.ok(); }
  explicit operator bool() const { return ok(); }
  int code() const { return m_status.code(); }
  const Status& status() const { return m_status; }

  // The value; on a failure this throws the Error (aborts when built without
  // exceptions): test ok() first in code that can't throw.
  T& value() & { check(); return *m_value; }
  const T& value() const& { check(); return *m_value; }
  T&& value() && { check(); return std::move(*m_value); }
  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }
  T&& operator*() && { return std::move(*this).value(); }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }

 private:
  void check() const;

  Status m_status;
  std::optional<T> m_value;
};

namespace detail {

// The failure as an Error, or an abort where exceptions are off.
[[noreturn]] inline void Raise(const Status& status) {
#if defined(__cpp_exceptions)
  throw Error(status);
#else
  (void)status;
  std::abort();
#endif
}
inline void Unwrap(const Status& status) {
  if (!status.ok()) Raise(status);
}
template <class T>
T Unwrap(Result<T>&& result) {
  return std::move(result).value();
}

}  // namespace detail

template <class T>
void Result<T>::check() const {
  if (!ok()) detail::Raise(m_status);
}

// Installs callback (null: none) to receive every debug message of the
// library, after this interface has taken its copy. Process-wide, like
// TkSetDebugOutput: install it before threads use the library.
void set_debug_output(void (*callback)(const char* text));

namespace detail {

// T, or the T of std::optional<T>.
template <class T>
struct IsOptional : std::false_type {
  using type = T;
};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {
  using type = T;
};

inline std::string& LastMessage() {
  thread_local std::string last;
  return last;
}
inline std::atomic<void (*)(const char*)>& Forward() {
  static std::atomic<void (*)(const char*)> forward{nullptr};
  return forward;
}
inline void Capture(const char* text) {
  if (text == nullptr) return;
  std::string& last = LastMessage();
  last = text;
  while (!last.empty() && (last.back() == '\n' || last.back() == '\r')) last.pop_back();
  if (void (*forward)(const char*) = Forward().load()) forward(text);
}
// Installed once per program, before main.
inline const bool kCaptureInstalled = (TkSetDebugOutput(&Capture), true);

// A failure of the call just made: its code, the context, and the message
// the call left on this thread.
inline Status Failed(int code, std::string context) {
  Status status(code, std::move(context), std::move(LastMessage()));
  LastMessage().clear();
  return status;
}
inline void Begin() { LastMessage().clear(); }

inline std::string Quoted(const char* what, std::string_view subject) {
  std::string out(what);
  out += " '";
  out += subject;
  out += '\'';
  return out;
}

// A NUL-terminated copy, or null for the empty text (the element itself).
class CStr {
 public:
  explicit CStr(std::string_view text) : m_text(text), m_null(text.empty()) {}
  const char* get() const { return m_null ? nullptr : m_text.c_str(); }
  const char* always() const { return m_text.c_str(); }

 private:
  std::string m_text;
  bool m_null;
};

inline void AppendUtf8(std::string& out, uint32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

// The library spells a character above U+FFFF as two 3-byte surrogate
// halves; this joins each such pair into one 4-byte sequence.
inline std::string JoinSurrogates(std::string text) {
  auto half = [&text](size_t at) -> uint32_t {
    if (at + 3 > text.size() || static_cast<unsigned char>(text[at]) != 0xED) return 0;
    const auto b1 = static_cast<unsigned char>(text[at + 1]);
    const auto b2 = static_cast<unsigned char>(text[at + 2]);
    if (b1 < 0xA0 || b1 > 0xBF || (b2 & 0xC0) != 0x80) return 0;
    return 0xD000u | ((b1 & 0x3Fu) << 6) | (b2 & 0x3Fu);
  };
  size_t next = text.find('\xED');
  if (next == std::string::npos) return text;
  std::string out;
  out.reserve(text.size());
  size_t done = 0;
  for (; next != std::string::npos; next = text.find('\xED', std::max(done, next + 1))) {
    const uint32_t high = half(next);
    const uint32_t low = high >= 0xD800 && high <= 0xDBFF ? half(next + 3) : 0;
    if (low < 0xDC00 || low > 0xDFFF) continue;
    out.append(text, done, next - done);
    AppendUtf8(out, 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00));
    done = next + 6;
  }
  out.append(text, done, std::string::npos);
  return out;
}

// Character data as the library exports it, references resolved.
inline std::string DecodeCharacterData(std::string_view xml) {
  std::string out;
  size_t done = 0;
  for (size_t amp = xml.find('&'); amp != std::string_view::npos; amp = xml.find('&', done)) {
    const size_t semi = xml.find(';', amp);
    if (semi == std::string_view::npos) break;
    const std::string_view name = xml.substr(amp + 1, semi - amp - 1);
    uint32_t c = 0;
    if (name == "lt") c = '<';
    else if (name == "gt") c = '>';
    else if (name == "amp") c = '&';
    else if (name == "quot") c = '"';
    else if (name == "apos") c = '\'';
    else if (name.size() > 1 && name[0] == '#') {
      const bool hex = name[1] == 'x';
      c = static_cast<uint32_t>(
          std::strtoul(std::string(name.substr(hex ? 2 : 1)).c_str(), nullptr, hex ? 16 : 10));
    }
    out.append(xml, done, amp - done);
    if (c != 0 && c <= 0x10FFFF) {
      AppendUtf8(out, c);
    } else {
      out.append(name.data() - 1, name.size() + 2);
    }
    done = semi + 1;
  }
  out.append(xml, done, std::string_view::npos);
  return out;
}

inline std::string FromOutput(const outputstr& text) {
  return JoinSurrogates(std::string(text.text(), static_cast<size_t>(text.length())));
}

// Strict conversions of value text.
inline Status ToValue(const std::string& text, std::string& out, int, const std::string&) {
  out = text;
  return {};
}
inline Status ToValue(const std::string& text, uint32_t& out, int emptyCode,
                      const std::string& context) {
  if (text.empty()) return Status(emptyCode, context, "the value is empty");
  uint64_t number = 0;
  for (const char c : text) {
    if (c < '0' || c > '9' || (number = number * 10 + static_cast<unsigned>(c - '0')) > UINT32_MAX)
      return Status(-104, context, "'" + text + "' is not an unsigned 32-bit number");
  }
  out = static_cast<uint32_t>(number);
  return {};
}
inline Status ToValue(const std::string& text, Bytes& out, int, const std::string& context) {
  auto digit = [](char c) {
    return c >= '0' && c <= '9' ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
  };
  out.clear();
  for (size_t i = 0; i < text.size(); i += 2) {
    const int high = digit(text[i]);
    const int low = i + 1 < text.size() ? digit(text[i + 1]) : -1;
    if (high < 0 || low < 0)
      return Status(-104, context, "'" + text + "' is not hexadecimal bytes (two digits a byte)");
    out.push_back(static_cast<std::byte>(high * 16 + low));
  }
  return {};
}

// A value to write, in the library's form.
struct WriteForm {
  int type = TK_VALUE_TEXT;
  unsigned size = 0;
  const void* data = nullptr;
  std::string text;    // keeps text alive, NUL-terminated
  uint32_t number = 0;
  bool inRange = true;
};

template <class V>
WriteForm ToWrite(const V& value) {
  WriteForm form;
  if constexpr (std::is_same_v<V, bool> || std::is_same_v<V, char>) {
    static_assert(!std::is_same_v<V, V>, "write a bool or a char as text or as a number");
  } else if constexpr (std::is_integral_v<V>) {
    form.type = TK_VALUE_NUMBER;
    if constexpr (std::is_signed_v<V>) form.inRange = value >= 0;
    form.inRange = form.inRange && static_cast<std::make_unsigned_t<V>>(value) <= UINT32_MAX;
    form.number = static_cast<uint32_t>(value);
    form.size = sizeof form.number;
  } else if constexpr (std::is_same_v<V, Bytes>) {
    form.type = TK_VALUE_BINARY;
    form.size = static_cast<unsigned>(std::min<size_t>(value.size(), UINT32_MAX));
    form.data = value.data();
  } else {
    static_assert(std::is_convertible_v<const V&, std::string_view>,
                  "values are text, unsigned numbers or tk::Bytes");
    form.text = std::string(std::string_view(value));
    form.size = static_cast<unsigned>(std::min<size_t>(form.text.size(), UINT32_MAX));
  }
  if (form.type == TK_VALUE_NUMBER) form.data = &form.number;
  if (form.type == TK_VALUE_TEXT) form.data = form.text.c_str();
  return form;
}

// An open instance, deleted with its last owner.
using Instance = std::shared_ptr<ITreeKeeper>;

// One open handle, closed with its last owner. The root's handle is never closed.
struct Handle {
  Handle(Instance owner, unsigned number) : instance(std::move(owner)), id(number) {}
  ~Handle() {
    if (id != 100) instance->CloseElement(id);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  Instance instance;
  unsigned id;
};

}  // namespace detail

inline void set_debug_output(void (*callback)(const char* text)) {
  detail::Forward().store(callback);
  TkSetDebugOutput(&detail::Capture);
}

class Element;

// The child elements of one element, all of them or those of one name,
// opened one at a time in document order. An input range: each step closes
// the previous child's handle unless a copy of it is kept.
class Children {
 public:
  class iterator;
  iterator begin() const;
  iterator end() const;

 private:
  friend class Element;
  Children(std::shared_ptr<detail::Handle> parent, std::optional<std::string> name)
      : m_parent(std::move(parent)), m_name(std::move(name)) {}
  std::shared_ptr<detail::Handle> m_parent;
  std::optional<std::string> m_name;
};

// The attributes of one element as (name, value) pairs, in the order of the
// element's attribute list, namespace declarations included.
class Attributes {
 public:
  using value_type = std::pair<std::string, std::string>;
  class iterator;
  iterator begin() const;
  iterator end() const;

 private:
  friend class Element;
  explicit Attributes(std::shared_ptr<detail::Handle> owner) : m_owner(std::move(owner)) {}
  std::shared_ptr<detail::Handle> m_owner;
};

// One element of a document, by its own handle.
class Element {
 public:
  Element() = default;  // empty: every operation fails with -6

  explicit operator bool() const { return m_handle != nullptr; }
  unsigned handle() const { return m_handle ? m_handle->id : 0; }
  ITreeKeeper* native() const { return m_handle ? m_handle->instance.get() : nullptr; }

  // The element's name.
  std::string name() const { return detail::Unwrap(try_name()); }
  Result<std::string> try_name() const {
    if (!m_handle) return Empty("name");
    unsigned size = 0;
    detail::Begin();
    int rc = native()->GetElementName(id(), nullptr, &size);
    std::string text;
    while (rc == -105 && size > text.size()) {
      text.assign(size, '\0');
      rc = native()->GetElementName(id(), text.data(), &size);
    }
    if (rc != 0) return detail::Failed(rc, "name");
    text.resize(std::strlen(text.c_str()));
    return text;
  }

  // The first element at path; child() fails with -102 where there is none.
  Element child(std::string_view path) const { return detail::Unwrap(try_child(path)); }
  std::optional<Element> find(std::string_view path) const {
    Result<Element> found = try_child(path);
    if (found.ok()) return std::move(*found);
    if (found.code() == -102) return std::nullopt;
    return detail::Unwrap(std::move(found));
  }
  Result<Element> try_child(std::string_view path) const {
    const std::string context = detail::Quoted("child", path);
    if (!m_handle) return Empty(context);
    if (path.empty()) return *this;
    const size_t slash = path.rfind('/');
    const detail::CStr parent(slash == std::string_view::npos ? "" : path.substr(0, slash));
    const std::string last(slash == std::string_view::npos ? path : path.substr(slash + 1));
    unsigned index = 0;
    unsigned opened = 0;
    detail::Begin();
    const int rc = native()->EnumElement(id(), parent.get(), last.c_str(), &index, &opened);
    // Not there: no such child (-1), no children at all (-109), no parent (-102).
    if (rc == -1 || rc == -109 || rc == -102 || (rc == 0 && opened == 0)) {
      detail::LastMessage().clear();
      return Status(-102, context);
    }
    if (rc != 0) return detail::Failed(rc, context);
    return Element(std::make_shared<detail::Handle>(m_handle->instance, opened));
  }

  // Makes a new element at path, and the missing ones on the way; the last
  // step is always a new element, after its siblings.
  Element append(std::string_view path) { return detail::Unwrap(try_append(path)); }
  Result<Element> try_append(std::string_view path) {
    const std::string context = detail::Quoted("append", path);
    if (!m_handle) return Empty(context);
    unsigned made = 0;
    detail::Begin();
    const int rc = native()->CreateElement(id(), detail::CStr(path).always(), &made);
    if (rc != 0) return detail::Failed(rc, context);
    return Element(std::make_shared<detail::Handle>(m_handle->instance, made));
  }

  // Removes the element at path (not the element itself) with its subtree.
  // Elements open on it keep working on the removed copy.
  void remove(std::string_view path) { detail::Unwrap(try_remove(path)); }
  Status try_remove(std::string_view path) {
    const std::string context = detail::Quoted("remove", path);
    if (!m_handle) return Empty(context);
    detail::Begin();
    const int rc = native()->DeleteElement(id(), detail::CStr(path).always());
    return rc == 0 ? Status() : detail::Failed(rc, context);
  }

  Children children() const { return Children(m_handle, std::nullopt); }
  Children children(std::string_view name) const {
    return Children(m_handle, std::string(name));
  }
  Attributes attributes() const { return Attributes(m_handle); }

  // The value of the element at path: T is std::string, uint32_t or
  // tk::Bytes, or std::optional of one of them.
  template <class T = std::string>
  T get(std::string_view path = {}) const {
    return detail::Unwrap(try_get<T>(path));
  }
  template <class T = std::string>
  Result<T> try_get(std::string_view path = {}) const {
    return Read<T>(detail::Quoted("get", path), [&](std::string& text) {
      return ReadText(path, false, 65001, text);
    }, -102, -107);
  }
  // Sets the value at path, making the elements that are missing.
  template <class V>
  void set(std::string_view path, const V& value) {
    detail::Unwrap(try_set(path, value));
  }
  template <class V>
  Status try_set(std::string_view path, const V& value) {
    return Write(path, detail::ToWrite(value), false);
  }

  // The element's CDATA section, as get and set do with its text.
  template <class T = std::string>
  T get_cdata(std::string_view path = {}) const {
    return detail::Unwrap(try_get_cdata<T>(path));
  }
  template <class T = std::string>
  Result<T> try_get_cdata(std::string_view path = {}) const {
    return Read<T>(detail::Quoted("get_cdata", path), [&](std::string& text) {
      return ReadText(path, true, 65001, text);
    }, -102, -107);
  }
  template <class V>
  void set_cdata(std::string_view path, const V& value) {
    detail::Unwrap(try_set_cdata(path, value));
  }
  template <class V>
  Status try_set_cdata(std::string_view path, const V& value) {
    return Write(path, detail::ToWrite(value), true);
  }

  // The element's text at path in a code page of the platform (65001 is
  // UTF-8). A code page that can't be used fails with -1.
  std::string get_text(std::string_view path, unsigned codePage) const {
    return detail::Unwrap(try_get_text(path, codePage));
  }
  Result<std::string> try_get_text(std::string_view path, unsigned codePage) const {
    const std::string context = detail::Quoted("get_text", path);
    if (!m_handle) return Empty(context);
    std::string text;
    const int rc = ReadText(path, false, codePage, text);
    if (rc == -102) return Status(rc, context);
    if (rc != 0) return detail::Failed(rc, context);
    return text;
  }

  // The attribute's value, typed as get's.
  template <class T = std::string>
  T attr(std::string_view name) const {
    return detail::Unwrap(try_attr<T>(name));
  }
  template <class T = std::string>
  Result<T> try_attr(std::string_view name) const {
    const detail::CStr cname(name);
    return Read<T>(detail::Quoted("attr", name), [&](std::string& text) {
      outputstr value;
      const int rc = native()->GetAttributeText(id(), nullptr, cname.always(), value);
      if (rc == 0) text = detail::FromOutput(value);
      return rc;
    }, -1, -108);  // -1: no such attribute
  }
  template <class V>
  void set_attr(std::string_view name, const V& value) {
    detail::Unwrap(try_set_attr(name, value));
  }
  template <class V>
  Status try_set_attr(std::string_view name, const V& value) {
    const std::string context = detail::Quoted("set_attr", name);
    if (!m_handle) return Empty(context);
    const detail::WriteForm form = detail::ToWrite(value);
    if (!form.inRange) return Status(-104, context, "not an unsigned 32-bit number");
    detail::Begin();
    const int rc = native()->setAttributeValue(id(), nullptr, detail::CStr(name).always(),
                                               form.type, form.size, form.data);
    return rc == 0 ? Status() : detail::Failed(rc, context);
  }
  // Removes the attribute; one that isn't there fails with -1.
  void remove_attr(std::string_view name) { detail::Unwrap(try_remove_attr(name)); }
  Status try_remove_attr(std::string_view name) {
    const std::string context = detail::Quoted("remove_attr", name);
    if (!m_handle) return Empty(context);
    detail::Begin();
    const int rc = native()->DeleteAttribute(id(), nullptr, detail::CStr(name).always());
    return rc == 0 ? Status() : detail::Failed(rc, context);
  }

  // The element with its subtree as XML text, with the declaration.
  std::string str() const { return detail::Unwrap(try_str()); }
  Result<std::string> try_str() const {
    if (!m_handle) return Empty("str");
    outputstr xml;
    detail::Begin();
    const int rc = native()->ExportSubTreeToStream(id(), xml);
    if (rc != 0) return detail::Failed(rc, "str");
    return detail::FromOutput(xml);
  }
  // Writes the element with its subtree to a file as the library writes
  // files (CR LF line ends), never leaving a half-written file.
  void save(std::string_view path) const { detail::Unwrap(try_save(path)); }
  Status try_save(std::string_view path) const {
    const std::string context = detail::Quoted("save", path);
    if (!m_handle) return Empty(context);
    detail::Begin();
    const int rc = native()->ExportSubTreeToFile(id(), detail::CStr(path).always());
    return rc == 0 ? Status() : detail::Failed(rc, context);
  }

 private:
  friend class Document;
  friend class Children;
  explicit Element(std::shared_ptr<detail::Handle> handle) : m_handle(std::move(handle)) {}

  unsigned id() const { return m_handle->id; }
  static Status Empty(std::string context) { return Status(-6, std::move(context), "empty element"); }

  // Reads the text or the CDATA of the element at path. No text at all
  // reads as "".
  int ReadText(std::string_view path, bool cdata, unsigned codePage, std::string& text) const {
    const detail::CStr cpath(path);
    auto read = [&](unsigned* size, void* buffer) {
      return cdata ? native()->GetElementCDATAValue(id(), cpath.get(), TK_VALUE_TEXT, size, buffer)
                   : native()->GetElementValue(id(), cpath.get(), TK_VALUE_TEXT, size, buffer,
                                               codePage);
    };
    detail::Begin();
    unsigned size = 0;
    int rc = read(&size, nullptr);
    std::vector<char> buffer;
    while (rc == -105 && size > buffer.size()) {
      buffer.assign(size, '\0');
      rc = read(&size, buffer.data());
    }
    text.clear();
    if (rc == -107 || rc == -1) return 0;  // no child nodes, or none of the kind
    if (rc == -105 && size == 0 && codePage != 65001) return -1;  // refused code page
    if (rc == -105) return LastChildText(path, cdata ? 4 : 3, codePage, text);
    if (rc != 0) return rc;
    text.assign(buffer.data(), strnlen(buffer.data(), buffer.size()));
    if (codePage == 65001) text = detail::JoinSurrogates(std::move(text));
    return 0;
  }

  // The library's read passes on the size one text node leaves to the next,
  // so a value behind a shorter text of the same element can't be read
  // through it; the last node of the kind is then read from its XML.
  int LastChildText(std::string_view path, unsigned kind, unsigned codePage,
                    std::string& text) const {
    Result<Element> element = try_child(path);
    if (!element.ok()) return element.code();
    ITreeKeeper* tk = native();
    unsigned count = 0;
    if (const int rc = tk->EnumElement(element->id(), &count); rc != 0) return rc;
    for (unsigned index = count; index-- > 0;) {
      unsigned node = 0;
      unsigned nodeType = 0;
      if (tk->OpenElement(element->id(), index, &node, &nodeType) != 0) continue;
      detail::Handle scope(m_handle->instance, node);
      if (nodeType != kind) continue;
      outputstr xml;
      if (const int rc = tk->ExportSubTreeToStream(node, xml); rc != 0) return rc;
      std::string_view body(xml.text(), static_cast<size_t>(xml.length()));
      if (const size_t end = body.find("?>"); body.substr(0, 5) == "<?xml" && end != body.npos)
        body.remove_prefix(body.find_first_not_of("\r\n", end + 2) == body.npos
                               ? body.size()
                               : body.find_first_not_of("\r\n", end + 2));
      if (kind == 4 && body.size() >= 12) body = body.substr(9, body.size() - 12);
      text = detail::JoinSurrogates(kind == 3 ? detail::DecodeCharacterData(body)
                                              : std::string(body));
      if (codePage != 65001) return -1;  // only UTF-8 is known here
      return 0;
    }
    return 0;
  }

  // T or std::optional<T>, converted from the text read gives; absent
  // (-102) is std::nullopt for the optional forms.
  template <class T, class Reader>
  Result<T> Read(const std::string& context, Reader read, int absentCode, int emptyCode) const {
    if (!m_handle) return Empty(context);
    std::string text;
    const int rc = read(text);
    if (rc == absentCode) {
      if constexpr (detail::IsOptional<T>::value) {
        detail::LastMessage().clear();
        return T(std::nullopt);
      }
      Status absent = detail::Failed(rc, context);
      if (absent.message().empty() && rc == -1) absent = Status(rc, context, "no such attribute");
      return absent;
    }
    if (rc != 0) return detail::Failed(rc, context);
    using Value = typename detail::IsOptional<T>::type;
    static_assert(std::is_same_v<Value, std::string> || std::is_same_v<Value, uint32_t> ||
                      std::is_same_v<Value, Bytes>,
                  "values read as std::string, uint32_t or tk::Bytes");
    Value value{};
    Status converted = detail::ToValue(text, value, emptyCode, context);
    if (!converted.ok()) return converted;
    return T(std::move(value));
  }

  Status Write(std::string_view path, const detail::WriteForm& form, bool cdata) {
    const std::string context = detail::Quoted(cdata ? "set_cdata" : "set", path);
    if (!m_handle) return Empty(context);
    if (!form.inRange) return Status(-104, context, "not an unsigned 32-bit number");
    ITreeKeeper* tk = native();
    auto write = [&](unsigned handle, const char* at) {
      return cdata ? tk->SetElementCDATAValue(handle, at, form.type, form.size, form.data)
                   : tk->SetElementValue(handle, at, form.type, form.size, form.data);
    };
    const detail::CStr cpath(path);
    detail::Begin();
    int rc = write(id(), cpath.get());
    if (rc == -102) {
      unsigned made = 0;
      detail::Begin();
      rc = tk->CreateElement(id(), cpath.always(), &made);
      if (rc == 0) {
        const detail::Handle scope(m_handle->instance, made);
        rc = write(made, nullptr);
      }
    }
    return rc == 0 ? Status() : detail::Failed(rc, context);
  }

  std::shared_ptr<detail::Handle> m_handle;
};

class Children::iterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = Element;
  using difference_type = std::ptrdiff_t;
  using pointer = const Element*;
  using reference = const Element&;

  iterator() = default;
  const Element& operator*() const { return m_current; }
  const Element* operator->() const { return &m_current; }
  iterator& operator++() {
    ++m_index;
    advance();
    return *this;
  }
  bool operator==(const iterator& other) const { return done() == other.done(); }
  bool operator!=(const iterator& other) const { return !(*this == other); }

 private:
  friend class Children;
  iterator(std::shared_ptr<detail::Handle> parent, std::optional<std::string> name)
      : m_parent(std::move(parent)), m_name(std::move(name)) {
    if (!m_parent) return;
    // The count first: the positional form needs it to skip other nodes.
    unsigned count = 0;
    const int rc = Enum(&count, nullptr);
    if (rc == 0 || (rc == -110 && !m_name)) m_count = count;
    else if (rc != -109) Fail(rc);  // -109: no child nodes
    advance();
  }
  // The positional form counts every child node; the other, those of the name.
  int Enum(unsigned* index, unsigned* opened) const {
    ITreeKeeper* tk = m_parent->instance.get();
    return m_name ? tk->EnumElement(m_parent->id, nullptr, m_name->c_str(), index, opened)
                  : tk->EnumElement(m_parent->id, nullptr, index, opened);
  }
  bool done() const { return !m_parent || m_index >= m_count; }
  // Opens the element at m_index or after it; the previous one is let go first.
  void advance() {
    m_current = Element();
    for (; m_index < m_count; ++m_index) {
      unsigned index = m_index;
      unsigned opened = 0;
      detail::Begin();
      const int rc = Enum(&index, &opened);
      if (rc == 0 && opened != 0) {
        m_count = index;
        m_current = Element(std::make_shared<detail::Handle>(m_parent->instance, opened));
        return;
      }
      if (rc == -110 || rc == -109) m_count = m_index;  // fewer now than counted
      else if (rc != -1) Fail(rc);                     // -1: a node that isn't an element
    }
  }
  void Fail(int rc) {
    m_count = m_index;
    detail::Raise(detail::Failed(rc, "children"));
  }

  std::shared_ptr<detail::Handle> m_parent;
  std::optional<std::string> m_name;
  unsigned m_index = 0;
  unsigned m_count = 0;
  Element m_current;
};

inline Children::iterator Children::begin() const { return iterator(m_parent, m_name); }
inline Children::iterator Children::end() const { return iterator(); }

class Attributes::iterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = Attributes::value_type;
  using difference_type = std::ptrdiff_t;
  using pointer = const value_type*;
  using reference = const value_type&;

  iterator() = default;
  const value_type& operator*() const { return m_current; }
  const value_type* operator->() const { return &m_current; }
  iterator& operator++() {
    ++m_index;
    read();
    return *this;
  }
  bool operator==(const iterator& other) const { return done() == other.done(); }
  bool operator!=(const iterator& other) const { return !(*this == other); }

 private:
  friend class Attributes;
  explicit iterator(std::shared_ptr<detail::Handle> owner) : m_owner(std::move(owner)) {
    if (m_owner) read();
  }
  bool done() const { return !m_owner || m_index >= m_count; }
  void read() {
    unsigned index = m_index;
    outputstr name;
    outputstr value;
    detail::Begin();
    const int rc = m_owner->instance->EnumAttribute(m_owner->id, nullptr, &index, name, value);
    if (rc == 0) {
      m_count = index;
      m_current = {detail::FromOutput(name), detail::FromOutput(value)};
      return;
    }
    m_count = m_index;
    if (rc != -110) detail::Raise(detail::Failed(rc, "attributes"));
  }

  std::shared_ptr<detail::Handle> m_owner;
  unsigned m_index = 0;
  unsigned m_count = 1;
  value_type m_current;
};

inline Attributes::iterator Attributes::begin() const { return iterator(m_owner); }
inline Attributes::iterator Attributes::end() const { return iterator(); }

// One XML document, owned; move-only. The value, child and iteration calls
// act on the root element, with paths below it.
class Document {
 public:
  Document(Document&&) noexcept = default;
  Document& operator=(Document&&) noexcept = default;
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  // A new document whose root element is named rootName.
  static Document create(std::string_view rootName) { return detail::Unwrap(try_create(rootName)); }
  static Result<Document> try_create(std::string_view rootName) {
    return Open(detail::Quoted("create", rootName), [&](ITreeKeeper* tk) {
      return tk->CreateEmpty(detail::CStr(rootName).always());
    });
  }
  // A document loaded from a file.
  static Document load(std::string_view path) { return detail::Unwrap(try_load(path)); }
  static Result<Document> try_load(std::string_view path) {
    return Open(detail::Quoted("load", path), [&](ITreeKeeper* tk) {
      return tk->ImportFromFile(detail::CStr(path).always());
    });
  }
  // A document parsed from XML text (up to a NUL byte, if it holds one).
  static Document parse(std::string_view text) { return detail::Unwrap(try_parse(text)); }
  static Result<Document> try_parse(std::string_view text) {
    return Open("parse", [&](ITreeKeeper* tk) {
      const std::string copy(text);
      const int size = static_cast<int>(std::min<size_t>(std::max<size_t>(copy.size(), 1), INT32_MAX));
      return tk->ImportFromStream(copy.c_str(), size, nullptr);
    });
  }

  // The root element (its handle, 100, is never closed).
  Element root() const { return m_root; }
  ITreeKeeper* native() const { return m_root.native(); }

  std::string str() const { return m_root.str(); }
  Result<std::string> try_str() const { return m_root.try_str(); }
  // Writes the document as the library writes files: CR LF line ends, and
  // an existing file is replaced whole or not at all.
  void save(std::string_view path) const { detail::Unwrap(try_save(path)); }
  Status try_save(std::string_view path) const {
    const std::string context = detail::Quoted("save", path);
    if (!m_root) return Status(-6, context, "moved-from document");
    detail::Begin();
    const int rc = native()->ExportToFile(detail::CStr(path).always());
    return rc == 0 ? Status() : detail::Failed(rc, context);
  }

  // Puts the document through an XSLT 1.0 stylesheet, all or nothing. Only
  // the root may be open: any other Element still held makes it fail.
  void transform(std::string_view stylesheet) { detail::Unwrap(try_transform(stylesheet)); }
  Status try_transform(std::string_view stylesheet) {
    if (!m_root) return Status(-6, "transform", "moved-from document");
    detail::Begin();
    const int rc = TkXslt(native())->ApplyXSLT(detail::CStr(stylesheet).always(), 0);
    return rc == 0 ? Status() : detail::Failed(rc, "transform");
  }
  // What each later transform may spend (0 lifts a bound).
  void set_xslt_budget(uint32_t milliseconds, uint64_t bytes) {
    if (m_root) TkXsltBudget(native())->SetXsltBudget(milliseconds, bytes);
  }

  Element child(std::string_view path) const { return m_root.child(path); }
  std::optional<Element> find(std::string_view path) const { return m_root.find(path); }
  Children children() const { return m_root.children(); }
  Children children(std::string_view name) const { return m_root.children(name); }
  template <class T = std::string>
  T get(std::string_view path = {}) const {
    return m_root.get<T>(path);
  }
  template <class T = std::string>
  Result<T> try_get(std::string_view path = {}) const {
    return m_root.try_get<T>(path);
  }
  template <class V>
  void set(std::string_view path, const V& value) {
    m_root.set(path, value);
  }
  template <class V>
  Status try_set(std::string_view path, const V& value) {
    return m_root.try_set(path, value);
  }

 private:
  explicit Document(Element root) : m_root(std::move(root)) {}

  template <class Load>
  static Result<Document> Open(std::string context, Load load) {
    detail::Begin();
    ITreeKeeper* raw = TkCreateTreeKeeper(nullptr);
    if (raw == nullptr) return detail::Failed(-1, std::move(context));
    detail::Instance instance(raw, [](ITreeKeeper* tk) { TkDeleteTreeKeeper(tk); });
    const int rc = load(raw);
    if (rc != 0) return detail::Failed(rc, std::move(context));
    return Document(Element(std::make_shared<detail::Handle>(std::move(instance), 100u)));
  }

  Element m_root;
};

}  // namespace tk

#endif  // TREEKEEPER_TREEKEEPER_HPP
