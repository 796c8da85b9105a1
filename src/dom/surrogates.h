// The library's export writes a character above U+FFFF as two 3-byte
// surrogate sequences. Loading takes that form back: in UTF-8 input a 3-byte
// high surrogate followed by a 3-byte low surrogate becomes the one 4-byte
// character. Input in any other encoding is never touched, and a lone
// surrogate stays what it is (the parser refuses it).
#pragma once

#include <cstddef>
#include <string>

namespace tk::dom {

// True when the input is UTF-8 and holds at least one such pair. Cheap when
// there is no 0xED byte at all.
bool NeedsSurrogateFix(const char* data, size_t length);
// The input with every pair joined.
std::string JoinSurrogatePairs(const char* data, size_t length);

}  // namespace tk::dom
