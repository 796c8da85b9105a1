// The file form of an export: the text form with every line feed written as
// CR LF, then CR CR LF. The text is built in full (under the instance lock,
// by the stream operation) before the file is opened, so an export that
// produces nothing never creates, truncates or touches a file. The text then
// goes to a new file that replaces the old one only when all of it was
// written, so a failed write leaves the old file as it was.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "document/replace_file.h"
#include "frame/ctreekeeper.h"
#include "frame/debug_output.h"

namespace tk {
namespace {

struct FileMessages {
  const char* invalidName;
  const char* guard;
};

constexpr FileMessages kDocumentMessages = {
    "ExportToFile:  file name is invalid",
    "ExportToFile : ExportToStream failed to export file name ",
};
constexpr FileMessages kSubTreeMessages = {
    "ExportSubTreeToFile:  file name is invalid",
    "ERROR!, The file size becomes 0, So it is not over written, Filename: ",
};

// The closing bytes: a CR LF of which the LF, like every other, became CR LF.
constexpr char kFileEnd[] = "\r\r\n";

// Writes text with each 0x0A as 0x0D 0x0A, in one pass through a bounded
// buffer, and flushes it. False when any of it failed to reach the file.
bool WriteTranslated(std::FILE* file, const char* text, size_t length) {
  char buffer[64 * 1024];
  size_t used = 0;
  auto flush = [&]() {
    if (used != 0 && std::fwrite(buffer, 1, used, file) != used) return false;
    used = 0;
    return true;
  };
  size_t pos = 0;
  while (pos < length) {
    const void* lf = std::memchr(text + pos, '\n', length - pos);
    const size_t runEnd = lf != nullptr ? static_cast<const char*>(lf) - text : length;
    while (pos < runEnd) {
      if (used == sizeof buffer && !flush()) return false;
      const size_t n = std::min(runEnd - pos, sizeof buffer - used);
      std::memcpy(buffer + used, text + pos, n);
      used += n;
      pos += n;
    }
    if (lf != nullptr) {
      if (sizeof buffer - used < 2 && !flush()) return false;
      buffer[used++] = '\r';
      buffer[used++] = '\n';
      ++pos;
    }
  }
  return flush() && std::fflush(file) == 0;
}

// Shared by both file operations; produce fills a local text through the
// stream operation and gives its result.
template <typename Produce>
int ExportFile(const char* fileName, const FileMessages& messages, Produce produce) {
  if (fileName == nullptr || fileName[0] == '\0') {
    Report(messages.invalidName);
    return -101;
  }
  outputstr text;
  if (produce(text) != 0 || text.text()[0] == '\0') {
    DebugOutput(EmptyText() + messages.guard + fileName);
    return -101;
  }
  auto write = [&text](std::FILE* file) {
    return WriteTranslated(file, text.text(), text.length()) &&
           std::fwrite(kFileEnd, 1, sizeof kFileEnd - 1, file) == sizeof kFileEnd - 1;
  };
  auto failed = [&]() {
    DebugOutput(EmptyText() + "Error!!! : Failed to Export the file, Name  " + fileName +
                " , Data :  " + text.text());
    return -111;
  };
  switch (ReplaceFile(fileName, write)) {
    case Replaced::kDone:
      return 0;
    case Replaced::kFailed:
      return failed();
    case Replaced::kNoPlace:
      break;
  }
  // No new file can stand beside this one (a directory the process can't
  // write, a device, a file it may not replace): it is written in place.
  std::FILE* file = std::fopen(fileName, "wb");
  if (file == nullptr) {
    DebugOutput(EmptyText() + "Failed to open the file to export File name " + fileName);
    return -111;
  }
  const bool written = write(file);
  if (std::fclose(file) != 0 || !written) return failed();
  return 0;
}

}  // namespace

int CTreeKeeper::ExportToFile(const char* fileName) {
  return ExportFile(fileName, kDocumentMessages, [this](outputstr& text) {
    return static_cast<ITreeKeeper*>(this)->ExportToStream(text);
  });
}

int CTreeKeeper::ExportSubTreeToFile(unsigned handle, const char* fileName) {
  return ExportFile(fileName, kSubTreeMessages, [this, handle](outputstr& text) {
    return static_cast<ITreeKeeper*>(this)->ExportSubTreeToStream(handle, text);
  });
}

}  // namespace tk
