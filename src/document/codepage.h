// Code page conversion between client text and the DOM's text (UTF-8).
//
// This is the library's stand-in for the platform conversions its rules are
// written against: numbered code pages, a measuring call, counts that include
// the terminator, and a per-thread last-error value. 65001 is UTF-8 and is
// handled here directly; other Windows code page numbers go through iconv.
// Code page 0 is the codeset of the calling thread's LC_CTYPE locale, looked
// up on each call; the C/POSIX locale counts as UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tk::cp {

constexpr unsigned kDefault = 0;
constexpr unsigned kUtf8 = 65001;
constexpr unsigned kNoBestFitChars = 0x400;

constexpr uint32_t kErrorInvalidParameter = 87;
constexpr uint32_t kErrorInsufficientBuffer = 122;
constexpr uint32_t kErrorNotEnoughMemory = 8;

// The calling thread's last-error value, set by a failing conversion.
uint32_t GetLastError();
void SetLastError(uint32_t error);

// True when code page 0 currently stands for UTF-8.
bool DefaultIsUtf8();

// True when codePage is a number this layer converts (0 and 65001 included).
bool IsKnownCodePage(unsigned codePage);

// Decodes `src` (narrow text in codePage) into DOM text, appended to `out`
// (which is cleared first). What can't be decoded becomes U+FFFD. Returns the
// measure: bytes of DOM text plus one for the terminator; 0 on failure, with
// the last error set (87 for a refused code page) and `out` untouched.
int NarrowToDom(unsigned codePage, std::string_view src, std::string& out);

// Encodes DOM text `src` into codePage, with the terminator. With dstSize 0
// it only measures (dst may be null). Returns the bytes including the
// terminator, or 0 on failure with the last error set (87 refused code page,
// 122 dst too small). A character the code page lacks becomes '?' (after a
// best-fit attempt unless flags holds kNoBestFitChars).
int DomToNarrow(unsigned codePage, unsigned flags, std::string_view src, char* dst, int dstSize);

// The same conversion in one pass into `out` (replaced, no terminator stored).
// Returns the same count as the measuring call; 0 with `out` untouched on
// failure.
int DomToNarrow(unsigned codePage, unsigned flags, std::string_view src, std::string& out);

namespace testing {
// Makes code page 0 stand for `codeset` (an iconv name) on the calling thread,
// whatever its locale says; null goes back to the locale.
void SetDefaultCodeset(const char* codeset);
}  // namespace testing

}  // namespace tk::cp
