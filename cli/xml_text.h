// XML text as the library writes it, read where the tool needs more than
// the library's calls give.
#pragma once

#include <string>
#include <string_view>

namespace tkcli {

// Character data with its references (&lt; &#233; &#xE9; ...) resolved.
std::string DecodeCharacterData(std::string_view text);

// The text after the library's XML declaration line, if it has one.
std::string_view WithoutDeclaration(std::string_view xml);

// Where the element whose start tag begins at begin ends (one past its last
// byte), in well-formed XML; npos if the text ends first.
size_t ElementEnd(std::string_view xml, size_t begin);

}  // namespace tkcli
