// Replacing a file's content so that a failure leaves the old content whole:
// the new bytes go to a new file beside it, which takes its place only once
// every byte has reached the disk.
#pragma once

#include <cstdio>
#include <functional>

namespace tk {

enum class Replaced {
  kDone,     // the new content stands under the name
  kFailed,   // a write, the flush, the sync, the close or the rename failed:
             // the old file, or its absence, is as it was
  kNoPlace,  // no new file can stand there (no file can be made in the
             // directory, the name is no regular file, the file can't be
             // written or replaced): nothing was touched
};

// Writes the file that fileName names through write, which gets the open
// stream and says false when a write fell short. A symbolic link is followed
// to the file it names, which may be yet to be made; the link stays. A file
// that is there keeps its mode, and its owner and group where the process may
// set them; a new one is made as a plain create would make it.
Replaced ReplaceFile(const char* fileName, const std::function<bool(std::FILE*)>& write);

}  // namespace tk
