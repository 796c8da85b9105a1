// UTF-8 as the tool writes and reads it. The library's exports spell a
// character above U+FFFF as two 3-byte sequences (one per UTF-16 half);
// everything the tool writes uses the one 4-byte sequence that other XML
// tools expect. Values typed by the user come in the locale's character set.
#pragma once

#include <cstdint>
#include <string>

namespace tkcli {

// Replaces each pair of 3-byte sequences for a high and a low surrogate with
// the 4-byte sequence of their character. Anything else stays as it is.
void JoinSurrogatePairs(std::string& text);

// Appends the UTF-8 sequence of a Unicode scalar value.
void AppendUtf8(std::string& out, uint32_t character);

// Text typed in the locale's character set (the one the library reads paths
// in), as UTF-8. False if it is no valid text in that character set. A
// locale whose character set is UTF-8 or ASCII takes UTF-8, as the library
// does.
bool LocaleToUtf8(const std::string& text, std::string& utf8);

// The locale's character set, for messages.
std::string LocaleCharacterSet();

// The first character of valid UTF-8 text that XML can't hold (a control
// character other than tab and line ends, U+FFFE, U+FFFF), or -1.
long FirstNonXmlCharacter(const std::string& utf8);

}  // namespace tkcli
