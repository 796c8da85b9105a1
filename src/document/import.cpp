#include "document/import.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "document/textconv.h"
#include "frame/ctreekeeper.h"
#include "frame/debug_output.h"

namespace tk {
namespace {

// The file to import, opened once by its name as the system knows it and
// read from that descriptor alone, so a name swapped meanwhile can't change
// what is read. The open doesn't block, and only a regular file is kept: a
// directory, pipe or device fails here and can never hold the call.
class OpenFile {
 public:
  explicit OpenFile(const char* fileName) : m_fd(::open(fileName, O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
    struct stat info;
    if (m_fd >= 0 && (fstat(m_fd, &info) != 0 || !S_ISREG(info.st_mode))) {
      ::close(m_fd);
      m_fd = -1;
    }
  }
  ~OpenFile() {
    if (m_fd >= 0) ::close(m_fd);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  int fd() const { return m_fd; }

 private:
  int m_fd;
};

}  // namespace

void ReportParseError(const dom::ParseError& error) {
  std::fputs(error.reason.c_str(), stderr);
  if (error.line > 0) {
    std::fprintf(stderr, "Error on line %d, position %d in \"%s\".\n", static_cast<int>(error.line),
                 static_cast<int>(error.linepos), error.url.c_str());
  }
}

int CheckParseError(const dom::Document& document) {
  dom::ParseError error;
  if (document.get_parseError(error) < 0) return dom::kFail;
  if (error.errorCode != 0) ReportParseError(error);
  return error.errorCode;
}

int LoadFromFile(dom::Document& document, int fd, const std::string& path) {
  const int loaded = document.loadFile(fd, path.c_str());
  const int parsed = CheckParseError(document);
  if (parsed != 0) return parsed;
  return loaded < 0 ? loaded : 0;
}

int LoadFromText(dom::Document& document, const char* text) {
  if (text == nullptr) text = "";
  return document.loadBytes(text, std::strlen(text));
}

int CTreeKeeper::ImportFromFile(const char* fileName) {
  if (fileName == nullptr || fileName[0] == '\0') {
    Report("ImportFromFile:  file name is invalid");
    return -101;
  }
  // The file is opened before the lock: a name that is no readable local file
  // never reaches the loader.
  const OpenFile file(fileName);
  if (file.fd() < 0) {
    Report("ImportFromFile:  file open failed");
    return -101;
  }

  LockGuard guard(m_lock);
  SetSourceName(fileName);
  std::string path;
  if (AnsiToWide(fileName, path) < 0) return -1;
  if (LoadFromFile(m_document, file.fd(), path) < 0) {
    Report("ImportFromFile : load failed");
    return -1;
  }
  dom::Node element;
  if (m_document.get_documentElement(element) < 0) {
    Report("ImportFromFile : get_documentElement failed");
    return -1;
  }
  if (!element) {
    Report("ImportFromFile:  parse failed");
    return -106;
  }
  // The loaded tree becomes what whole-document export writes even when the
  // open handles below refuse the import; they keep naming the old nodes.
  m_root.assign(element);
  if (!m_table.empty()) {
    Report("ImportFromFile:  uncorrect usage");
    return -1;
  }
  m_table.append(std::move(element));
  return 0;
}

int CTreeKeeper::ImportFromStream(const char* text, int size, const char* name) {
  if (size < 1) return -105;

  LockGuard guard(m_lock);
  if (!m_table.empty()) {
    Report("ImportFromStream:  incorrect usage");
    return -1;
  }
  if (name != nullptr && name[0] != '\0') SetSourceName(name);
  if (LoadFromText(m_document, text) < 0) {
    Report("ImportFromStream :  loadXML failed");
    return -1;
  }
  dom::Node element;
  m_document.get_documentElement(element);
  if (!element) return -106;
  m_root.assign(element);
  m_table.append(std::move(element));
  return 0;
}

}  // namespace tk
