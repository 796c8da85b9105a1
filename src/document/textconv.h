// The library's text conversions and the text forms of numbers and byte
// strings. "Wide" text is the DOM's text (UTF-8); see codepage.h.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>

class outputstr;

namespace tk {

// The export encoder. Produces the library's text form of DOM text: each
// character above U+FFFF becomes the two 3-byte sequences of its UTF-16
// surrogate pair (U+1F600 -> ED A0 BD ED B8 80); everything else passes
// unchanged. The text is `src` up to its first NUL. `count` counts the units
// to take, a character above U+FFFF counting two; it never shortens the text,
// and a count past the text's end (or -1) takes the terminator too, as one
// byte. dstSize 0 measures; too small gives -1 and writes nothing. No
// terminator is written beyond what is taken. A text whose encoded size
// doesn't fit the count type measures 0.
int Ucs2ToUtf8Bytes(std::string_view src, int32_t count, char* dst, int32_t dstSize);

// Appends the text form of `src` (up to its first NUL) to `out` in one append.
// 0; -1 (out untouched) for empty text. Text with no character above U+FFFF
// is appended as it stands; the std::string and C-string forms need no copy.
int Ucs2ToUtf8(std::string_view src, outputstr& out);
int Ucs2ToUtf8(const std::string& src, outputstr& out);
int Ucs2ToUtf8(const char* src, outputstr& out);
// The same for text already in the text form, known to hold no NUL and to be
// followed by one (serialised XML), which is appended from where it lies.
int AppendTextFormTerminated(std::string_view form, outputstr& out);

// Narrow text -> DOM text: from the default code page, and from UTF-8.
// Malformed input is replaced, not refused. 0, or -1 (out untouched).
int AnsiToWide(const char* text, std::string& out);
int Utf8ToWide(const char* text, std::string& out);

// The same decode from the default code page, but a refusal raises a fault
// (std::system_error carrying 0x80070000 | last error). Null stays null:
// returns false and leaves out empty.
bool AnsiToWideOrFault(const char* text, std::string& out);

// The category of the faults above: its codes are 0x80070000 + the low 16
// bits of a conversion's last error (the last error itself if not positive).
const std::error_category& ConversionFaultCategory();
// Raises the fault for a refused conversion: std::bad_alloc when memory ran
// out, else std::system_error in ConversionFaultCategory().
[[noreturn]] void RaiseConversionFault(uint32_t lastError);

// DOM text -> default code page, names-and-digits form (best fit, '?' for the
// rest). When code page 0 is UTF-8 the DOM's bytes are returned unchanged and
// `scratch` is not used; otherwise the converted text is built in `scratch`.
// A refusal raises a fault.
std::string_view DomToAnsi(std::string_view dom, std::string& scratch);

// 1 for null, empty or all-ASCII-digit text, else 0.
int IsDecimalText(const char* text);
// The byte of the first two hex digits of text; a lone digit is a high nibble.
// *flag is 1 on success, 0 on a bad digit (result 0).
unsigned char HexPairToByte(const char* text, uint32_t* flag);
// Decodes hex text into dst ((length + 1) / 2 bytes). 1, or 0 at the first bad
// pair (that byte stored as 0).
int HexTextToBytes(unsigned char* dst, const char* text);
// Two lower-case hex digits per byte, high nibble first; no terminator.
void BytesToHexText(char* dst, const unsigned char* src, uint32_t count);

}  // namespace tk
