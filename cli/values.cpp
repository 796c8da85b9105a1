#include "values.h"

#include <charconv>
#include <cstdint>
#include <cstring>
#include <functional>

#include "errors.h"

namespace tkcli {
namespace {

using Reader = std::function<int(unsigned* size, void* buffer)>;

bool IsDigits(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

bool IsHexDigits(const std::string& text) {
  return text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

std::string ToHex(const unsigned char* bytes, size_t count) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(count * 2);
  for (size_t i = 0; i < count; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0F];
  }
  return text;
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

// The library's two-call protocol: the size first, then the bytes. The
// value may need more on the second call; that is asked again.
int ReadSized(const Reader& read, std::vector<unsigned char>& bytes, unsigned& size) {
  size = 0;
  int result = read(&size, nullptr);
  for (int attempt = 0; result == -105 && size > 0 && attempt < 8; ++attempt) {
    bytes.assign(size, 0);
    result = read(&size, bytes.data());
  }
  return result;
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
  if (result != 0) Failed(document, "cannot read '" + path + "'", result);
  const char* text = reinterpret_cast<const char*>(bytes.data());
  return std::string(text, strnlen(text, bytes.size()));
}

std::string ReadElementValue(const Document& document, unsigned handle, const std::string& path,
                             const ValueTarget& target, unsigned codePage) {
  ITreeKeeper* tk = document.tk();
  if (target.form == ValueForm::kText) {
    return ReadElementText(document, handle, path, target.cdata, codePage);
  }
  // An element's number or hex read doesn't tell a stray character from a
  // good value, so the text is checked first.
  const std::string text = ReadElementText(document, handle, path, target.cdata, kUtf8CodePage);
  const int type = target.form == ValueForm::kNumber ? TK_VALUE_NUMBER : TK_VALUE_BINARY;
  const Reader read = [&](unsigned* size, void* buffer) {
    return target.cdata ? tk->GetElementCDATAValue(handle, "", type, size, buffer)
                        : tk->GetElementValue(handle, "", type, size, buffer, kUtf8CodePage);
  };
  if (target.form == ValueForm::kNumber) {
    if (!IsDigits(text)) {
      throw CliError(kFailed, document.name() + ": " + Describe(path, target) + " holds '" + text +
                                  "', not a number");
    }
    uint32_t number = 0;
    unsigned size = sizeof number;
    const int result = read(&size, &number);
    if (result != 0) Failed(document, "cannot read '" + path + "'", result);
    return std::to_string(number);
  }
  if (!IsHexDigits(text)) {
    throw CliError(kFailed, document.name() + ": " + Describe(path, target) + " holds '" + text +
                                "', not hexadecimal bytes");
  }
  if (text.empty()) return {};
  std::vector<unsigned char> bytes;
  unsigned size = 0;
  const int result = ReadSized(read, bytes, size);
  if (result != 0) Failed(document, "cannot read '" + path + "'", result);
  return ToHex(bytes.data(), size);
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

std::string ReadAttributeValue(const Document& document, unsigned handle, const std::string& path,
                               const ValueTarget& target, unsigned codePage) {
  if (target.form == ValueForm::kText) {
    return ReadAttributeText(document, handle, path, target, codePage);
  }
  const char* name = target.attribute.c_str();
  const int type = target.form == ValueForm::kNumber ? TK_VALUE_NUMBER : TK_VALUE_BINARY;
  const Reader read = [&](unsigned* size, void* buffer) {
    return document->GetAttributeValue(handle, "", name, type, size, buffer);
  };
  uint32_t number = 0;
  std::vector<unsigned char> bytes;
  unsigned size = sizeof number;
  const int result =
      target.form == ValueForm::kNumber ? read(&size, &number) : ReadSized(read, bytes, size);
  if (result == -1) NoAttribute(document, path, target);
  if (result == -104 || result == -108) {
    throw CliError(kFailed, document.name() + ": " + Describe(path, target) + " is not " +
                                (type == TK_VALUE_NUMBER ? "a number" : "hexadecimal bytes"));
  }
  // An empty value needs no bytes, and the size call says so.
  if (result == -105 && size == 0) return {};
  if (result != 0) Failed(document, "cannot read " + Describe(path, target), result);
  return type == TK_VALUE_NUMBER ? std::to_string(number) : ToHex(bytes.data(), size);
}

}  // namespace

std::string ReadValue(const Document& document, unsigned handle, const std::string& path,
                      const ValueTarget& target, unsigned codePage) {
  if (!target.attribute.empty()) {
    return ReadAttributeValue(document, handle, path, target, codePage);
  }
  return ReadElementValue(document, handle, path, target, codePage);
}

void CheckValue(const ValueTarget& target, const std::string& value) {
  if (target.form == ValueForm::kNumber) {
    uint32_t number;
    const char* end = value.data() + value.size();
    const auto parsed = std::from_chars(value.data(), end, number, 10);
    if (!IsDigits(value) || parsed.ec != std::errc() || parsed.ptr != end) {
      throw CliError(kUsage, "'" + value + "' is not a number from 0 to 4294967295");
    }
  } else if (target.form == ValueForm::kHex) {
    if (!IsHexDigits(value) || value.size() % 2 != 0) {
      throw CliError(kUsage, "'" + value + "' is not hexadecimal bytes (two digits a byte)");
    }
  }
}

void WriteValue(const Document& document, unsigned handle, const std::string& path,
                const ValueTarget& target, const std::string& value) {
  CheckValue(target, value);
  uint32_t number = 0;
  std::vector<unsigned char> bytes;
  int type = TK_VALUE_TEXT;
  const void* data = value.c_str();
  unsigned size = static_cast<unsigned>(value.size());
  if (target.form == ValueForm::kNumber) {
    std::from_chars(value.data(), value.data() + value.size(), number, 10);
    type = TK_VALUE_NUMBER;
    data = &number;
    size = sizeof number;
  } else if (target.form == ValueForm::kHex) {
    bytes = FromHex(value);
    type = TK_VALUE_BINARY;
    data = bytes.data();
    size = static_cast<unsigned>(bytes.size());
  }
  int result;
  if (!target.attribute.empty()) {
    result = document->setAttributeValue(handle, "", target.attribute.c_str(), type, size, data);
  } else if (target.cdata) {
    result = document->SetElementCDATAValue(handle, "", type, size, data);
  } else {
    result = document->SetElementValue(handle, "", type, size, data);
  }
  if (result != 0) Failed(document, "cannot set " + Describe(path, target), result);
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
