// UTF-8 as the tool writes it: the library's exports spell a character above
// U+FFFF as two 3-byte sequences (one per UTF-16 half); everything the tool
// writes uses the one 4-byte sequence that other XML tools expect.
#pragma once

#include <cstdint>
#include <string>

namespace tkcli {

// Replaces each pair of 3-byte sequences for a high and a low surrogate with
// the 4-byte sequence of their character. Anything else stays as it is.
void JoinSurrogatePairs(std::string& text);

// Appends the UTF-8 sequence of a Unicode scalar value.
void AppendUtf8(std::string& out, uint32_t character);

}  // namespace tkcli
