#include "values.h"

#include <cctype>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>

#include "errors.h"
#include "paths.h"
#include "utf8_text.h"
#include "xml_text.h"

namespace tkcli {
namespace {

using Reader = std::function<int(unsigned* size, void* buffer)>;

bool IsDigits(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

bool IsHexDigits(const std::string& text) {
  return text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

std::vector<unsigned char> FromHex(const std::string& text) {
  std::vector<unsigned char> bytes(text.size() / 2);
  for (size_t i = 0; i < bytes.size(); ++i) {
    std::from_chars(text.data() + 2 * i, text.data() + 2 * i + 2, bytes[i], 16);
  }
  return bytes;
}

[[noreturn]] void Failed(const Document& document, const std::string& what, int result) {
  throw CliError(kFailed, document.name() + ": " + what + " (" + std::to_string(result) + ")");
}

[[noreturn]] void RefusedCodePage(unsigned codePage) {
  throw CliError(kUsage, "code page " + std::to_string(codePage) + " can't be used here");
}

std::string Describe(const std::string& path, const ValueTarget& target) {
  std::string what = "'" + path + "'";
  if (!target.attribute.empty()) what = "attribute '" + target.attribute + "' of " + what;
  return what;
}

[[noreturn]] void NoAttribute(const Document& document, const std::string& path,
                              const ValueTarget& target) {
  throw CliError(kNotThere, document.name() + ": no " + Describe(path, target));
}

// Text in the messages about it: long texts are cut short.
std::string Shown(const std::string& text) {
  constexpr size_t kShown = 40;
  if (text.size() <= kShown) return "'" + text + "'";
  size_t cut = kShown;
  while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
  return "'" + text.substr(0, cut) + "...'";
}

// The value text in the form asked for, as it is printed: a number in
// decimal, bytes as lower-case hex. Status 5 if the text is no such value.
std::string InForm(const Document& document, const std::string& text, const std::string& path,
                   const ValueTarget& target) {
  if (target.form == ValueForm::kText) return text;
  const std::string holds =
      document.name() + ": " + Describe(path, target) + " holds " + Shown(text);
  if (target.form == ValueForm::kNumber) {
    uint32_t number = 0;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, number, 10);
    if (!IsDigits(text) || parsed.ec != std::errc() || parsed.ptr != end) {
      throw CliError(kFailed, holds + ", not a number from 0 to 4294967295");
    }
    return std::to_string(number);
  }
  if (!IsHexDigits(text) || text.size() % 2 != 0) {
    throw CliError(kFailed, holds + ", not hexadecimal bytes (two digits a byte)");
  }
  std::string hex = text;
  for (char& c : hex) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return hex;
}

// The library's two-call protocol: the size first, then the bytes; asked
// again while the value needs more than the buffer had. A -105 with a size
// that the buffer already had is left to the caller.
int ReadSized(const Reader& read, std::vector<unsigned char>& bytes, unsigned& size) {
  size = 0;
  int result = read(&size, nullptr);
  unsigned capacity = 0;
  while (result == -105 && size > capacity) {
    capacity = size;
    bytes.assign(capacity, 0);
    result = read(&size, bytes.data());
  }
  return result;
}

// The element's last text child, the one whose text is the element's value,
// read from its XML. The library's read passes the size one text child
// leaves on to the next, so a value behind a shorter text can't be read
// through it at any buffer size.
std::string LastTextChild(const Document& document, unsigned handle, const std::string& path) {
  unsigned count = 0;
  if (document->EnumElement(handle, &count) != 0) return {};
  for (unsigned index = count; index-- > 0;) {
    HandleScope scope(document);
    unsigned child = 0;
    unsigned nodeType = 0;
    const int opened = document->OpenElement(handle, index, &child, &nodeType);
    if (opened != 0) Failed(document, "cannot read '" + path + "'", opened);
    scope.Keep(child);
    if (nodeType != 3) continue;
    outputstr xml;
    const int exported = document->ExportSubTreeToStream(child, xml);
    if (exported != 0) Failed(document, "cannot read '" + path + "'", exported);
    std::string text(WithoutDeclaration(std::string_view(xml.text(), xml.length())));
    JoinSurrogatePairs(text);
    return DecodeCharacterData(text);
  }
  return {};
}

std::string ReadElementText(const Document& document, unsigned handle, const std::string& path,
                            bool cdata, unsigned codePage);

// UTF-8 text in codePage, converted by the library.
std::string InCodePage(const std::string& text, unsigned codePage) {
  Document scratch;
  scratch.CreateEmpty("value");
  const int result = scratch->SetElementValue(kRootHandle, "", TK_VALUE_TEXT,
                                              static_cast<unsigned>(text.size()), text.c_str());
  if (result != 0) Failed(scratch, "cannot convert a value", result);
  return ReadElementText(scratch, kRootHandle, "", false, codePage);
}

// The text of an element or its CDATA section; empty if it has none.
std::string ReadElementText(const Document& document, unsigned handle, const std::string& path,
                            bool cdata, unsigned codePage) {
  ITreeKeeper* tk = document.tk();
  const Reader read = [&](unsigned* size, void* buffer) {
    return cdata ? tk->GetElementCDATAValue(handle, "", TK_VALUE_TEXT, size, buffer)
                 : tk->GetElementValue(handle, "", TK_VALUE_TEXT, size, buffer, codePage);
  };
  std::vector<unsigned char> bytes;
  unsigned size = 0;
  const int result = ReadSized(read, bytes, size);
  // -107: no child nodes; -1: children, but no text among them.
  if (result == -107 || result == -1) return {};
  // A code page the platform can't convert to measures 0 bytes.
  if (result == -105 && size == 0) RefusedCodePage(codePage);
  if (result == -105 && !cdata) {
    const std::string text = LastTextChild(document, handle, path);
    return codePage == kUtf8CodePage ? text : InCodePage(text, codePage);
  }
  if (result != 0) Failed(document, "cannot read '" + path + "'", result);
  const char* text = reinterpret_cast<const char*>(bytes.data());
  return std::string(text, strnlen(text, bytes.size()));
}

std::string ReadAttributeText(const Document& document, unsigned handle, const std::string& path,
                              const ValueTarget& target, unsigned codePage) {
  if (codePage != kUtf8CodePage) {
    // Only the enumeration delivers attribute values in another code page.
    for (const auto& [name, value] : ReadAttributes(document, handle, path, codePage)) {
      if (name == target.attribute) return value;
    }
    NoAttribute(document, path, target);
  }
  outputstr value;
  const int result = document->GetAttributeText(handle, "", target.attribute.c_str(), value);
  if (result == -1) NoAttribute(document, path, target);
  if (result != 0) Failed(document, "cannot read " + Describe(path, target), result);
  return std::string(value.text(), value.length());
}

}  // namespace

std::string ReadValue(const Document& document, unsigned handle, const std::string& path,
                      const ValueTarget& target, unsigned codePage) {
  // Numbers and bytes are read as text and checked here: the library's own
  // reads of them turn a stray character or an overflow into some value.
  if (target.form != ValueForm::kText) codePage = kUtf8CodePage;
  const std::string text =
      target.attribute.empty()
          ? ReadElementText(document, handle, path, target.cdata, codePage)
          : ReadAttributeText(document, handle, path, target, codePage);
  return InForm(document, text, path, target);
}

std::string CheckValue(const ValueTarget& target, const std::string& path,
                       const std::string& value) {
  if (target.form == ValueForm::kNumber) {
    uint32_t number;
    const char* end = value.data() + value.size();
    const auto parsed = std::from_chars(value.data(), end, number, 10);
    if (!IsDigits(value) || parsed.ec != std::errc() || parsed.ptr != end) {
      throw CliError(kUsage, "'" + value + "' is not a number from 0 to 4294967295");
    }
    return value;
  }
  if (target.form == ValueForm::kHex) {
    if (!IsHexDigits(value) || value.size() % 2 != 0) {
      throw CliError(kUsage, "'" + value + "' is not hexadecimal bytes (two digits a byte)");
    }
    return value;
  }
  const std::string what = "cannot set " + Describe(path, target) + ": ";
  std::string utf8;
  std::string name;
  if (!LocaleToUtf8(value, utf8) || !LocaleToUtf8(target.attribute, name)) {
    throw CliError(kUsage, what + "not valid text in the locale's character set (" +
                               LocaleCharacterSet() + ")");
  }
  const long refused = FirstNonXmlCharacter(utf8);
  if (refused >= 0) {
    char code[24];
    std::snprintf(code, sizeof code, "U+%04lX", refused);
    throw CliError(kUsage, what + "the value holds " + code + ", a character XML can't hold");
  }
  return utf8;
}

void WriteValue(const Document& document, unsigned handle, const std::string& path,
                const ValueTarget& target, const std::string& value) {
  const std::string checked = CheckValue(target, path, value);
  // Attribute names, like values, are UTF-8 for the library's writes.
  std::string attribute;
  LocaleToUtf8(target.attribute, attribute);
  uint32_t number = 0;
  std::vector<unsigned char> bytes;
  int type = TK_VALUE_TEXT;
  const void* data = checked.c_str();
  unsigned size = static_cast<unsigned>(checked.size());
  if (target.form == ValueForm::kNumber) {
    std::from_chars(checked.data(), checked.data() + checked.size(), number, 10);
    type = TK_VALUE_NUMBER;
    data = &number;
    size = sizeof number;
  } else if (target.form == ValueForm::kHex) {
    bytes = FromHex(checked);
    type = TK_VALUE_BINARY;
    data = bytes.data();
    size = static_cast<unsigned>(bytes.size());
  }
  int result;
  if (!target.attribute.empty()) {
    result = document->setAttributeValue(handle, "", attribute.c_str(), type, size, data);
  } else if (target.cdata) {
    result = document->SetElementCDATAValue(handle, "", type, size, data);
  } else {
    result = document->SetElementValue(handle, "", type, size, data);
  }
  if (result != 0) Failed(document, "cannot set " + Describe(path, target), result);
}

std::string StoredText(const ValueTarget& target, const std::string& path,
                       const std::string& value) {
  std::string text = CheckValue(target, path, value);
  if (target.form == ValueForm::kNumber) {
    uint32_t number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number, 10);
    return std::to_string(number);
  }
  if (target.form == ValueForm::kHex) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return text;
}

std::vector<std::pair<std::string, std::string>> ReadAttributes(const Document& document,
                                                                unsigned handle,
                                                                const std::string& path,
                                                                unsigned codePage) {
  std::vector<std::pair<std::string, std::string>> attributes;
  for (unsigned position = 0, count = 1; position < count; ++position) {
    unsigned index = position;
    outputstr name;
    outputstr value;
    const int result = document->EnumAttribute(handle, "", &index, name, value, codePage);
    if (result == -110) break;  // no attributes at all
    if (result > 0) RefusedCodePage(codePage);
    if (result != 0) Failed(document, "cannot list the attributes of '" + path + "'", result);
    count = index;
    attributes.emplace_back(std::string(name.text(), name.length()),
                            std::string(value.text(), value.length()));
  }
  return attributes;
}

}  // namespace tkcli
