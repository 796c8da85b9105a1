// The text that a value write stores in the document: numbers as decimal
// digits, byte strings as hexadecimal digits, text as it comes.
#pragma once

#include <string>

namespace tk {

// How the data of a TK_VALUE_TEXT write is measured.
enum class TextExtent {
  kSizeBytes,  // `size` bytes at data; a NUL among them ends the text there
  kUpToNul,    // the bytes up to the NUL, whatever `size` says; null data is empty text
};

// Builds the value text of a write into `out` (replacing what it held):
//   TK_VALUE_NUMBER  the unsigned 32-bit number at data as decimal digits, no
//                    sign, no leading zeros; size is not looked at
//   TK_VALUE_BINARY  `size` bytes at data as lower-case hex, high nibble first
//   other types      text, measured as `extent` says
// The result never contains a NUL. Returns 0, or -1 when data is null where
// bytes are needed (a number, or a non-empty byte string or sized text).
int BuildValueText(int type, unsigned size, const void* data, TextExtent extent, std::string& out);

}  // namespace tk
