#include "document/import.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>

#include "document/textconv.h"
#include "frame/ctreekeeper.h"
#include "frame/debug_output.h"

namespace tk {
namespace {

// The file must exist as a regular file and open for reading. Only regular
// files are tried, so a directory fails here and a pipe or device can't block.
bool ProbeFile(const char* fileName) {
  struct stat info;
  if (stat(fileName, &info) != 0 || !S_ISREG(info.st_mode)) return false;
  std::FILE* file = std::fopen(fileName, "r");
  if (file == nullptr) return false;
  std::fclose(file);
  return true;
}

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

int LoadFromFile(dom::Document& document, const std::string& path) {
  const int loaded = document.load(path.c_str());
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
  // The probe runs before the lock: a name that is no readable local file
  // never reaches the loader.
  if (!ProbeFile(fileName)) {
    Report("ImportFromFile:  file open failed");
    return -101;
  }

  LockGuard guard(m_lock);
  SetSourceName(fileName);
  std::string path;
  if (AnsiToWide(fileName, path) < 0) return -1;
  if (LoadFromFile(m_document, path) < 0) {
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
