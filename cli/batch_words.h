// Splits one batch line into words the way a shell would quote them.
#pragma once

#include <string>
#include <vector>

namespace tkcli {

// Words are separated by blanks. '...' keeps its text as it stands; "..."
// keeps it too, but a backslash takes the next " \ $ or ` literally; outside
// quotes a backslash takes any next character literally. "" is an empty
// word. A # at the start of a word begins a comment. An open quote is a
// usage error (status 2).
std::vector<std::string> SplitWords(const std::string& line);

}  // namespace tkcli
