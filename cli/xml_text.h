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

// Skips a tag from its '<' to just past its '>', minding quoted values;
// npos if the text ends first.
size_t PastTag(std::string_view xml, size_t pos);

// An attribute value to stand between quotes of the given kind: & < and that
// quote escaped, and white space other than the space as references, which
// keep it through the normalisation of attribute values.
std::string EscapeAttribute(std::string_view value, char quote);

// Where the element whose start tag begins at begin ends (one past its last
// byte), in well-formed XML; npos if the text ends first.
size_t ElementEnd(std::string_view xml, size_t begin);

}  // namespace tkcli
