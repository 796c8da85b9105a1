// Writing a command's result: to standard output, or to a file that is
// replaced atomically.
#pragma once

#include <string>
#include <string_view>

namespace tkcli {

// Writes bytes to target: standard output for "-", else a file. A file is
// replaced as a whole: the bytes go to a temporary file in the same
// directory, which is flushed to disk and renamed over target, keeping the
// permissions of the file it replaces, and its owner and group where the
// process may set them. Through a symbolic link, the file the link names is
// replaced, or made. Devices and pipes are written as they stand. An
// interrupted or failed run leaves target as it was. Status 4 if the bytes
// can't be written; a directory that takes no new file is named.
void WriteOutput(const std::string& target, std::string_view bytes);

// Writes all of bytes to fd, going on after interrupted writes; false on failure.
bool WriteAll(int fd, std::string_view bytes);

}  // namespace tkcli
