// Reading and writing one value: an element's text, its CDATA section or an
// attribute, as text, as an unsigned number or as hexadecimal bytes.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "document_io.h"

namespace tkcli {

constexpr unsigned kUtf8CodePage = 65001;

enum class ValueForm { kText, kNumber, kHex };

struct ValueTarget {
  std::string attribute;  // empty for the element's own value
  bool cdata = false;
  ValueForm form = ValueForm::kText;
};

// The value of target on the element of handle, as it is printed: text as
// it stands (in codePage where the library offers one), a number in
// decimal, bytes as lower-case hex. An element without text has the empty
// value; a missing attribute is status 1, a value not in the form asked
// for status 5 (a number over 4294967295 or an odd count of hex digits
// too). The value of an element is that of its last text child.
std::string ReadValue(const Document& document, unsigned handle, const std::string& path,
                      const ValueTarget& target, unsigned codePage);

// Checks a value from the command line against the form it is given in and
// returns it as the library takes it: text (and an attribute's name) typed
// in the locale's character set becomes UTF-8. Status 2 if it doesn't fit:
// a number or hex that isn't one, text that isn't valid in the locale's
// character set, or a character XML can't hold. WriteValue checks, then
// writes.
std::string CheckValue(const ValueTarget& target, const std::string& path,
                       const std::string& value);
void WriteValue(const Document& document, unsigned handle, const std::string& path,
                const ValueTarget& target, const std::string& value);

// The text the document holds after WriteValue with value (which
// CheckValue has passed): a number in decimal, bytes as lower-case hex, text
// in UTF-8.
std::string StoredText(const ValueTarget& target, const std::string& path,
                       const std::string& value);

// The attributes of the element of handle, names and values, in the
// library's order, values in codePage.
std::vector<std::pair<std::string, std::string>> ReadAttributes(const Document& document,
                                                                unsigned handle,
                                                                const std::string& path,
                                                                unsigned codePage);

}  // namespace tkcli
