// Loading a tree from bytes or from a file.
//
// The parser never prints and never reads anything but the bytes given: no
// network, no external DTD, external entities refused by the guarded entity
// loader; internal entities are substituted within the engine's bounds.
#include <libxml/SAX2.h>
#include <libxml/parserInternals.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "dom/document_object.h"
#include "dom/load_bounds.h"
#include "dom/model/sax_builder.h"
#include "dom/model/write.h"
#include "dom/surrogates.h"

namespace tk::dom {
namespace {

int32_t ErrorCode(int engineCode) { return ParseErrorCode(engineCode); }
constexpr int32_t kCantOpen = static_cast<int32_t>(0x800C0005u);

// Largest document the engine takes.
constexpr size_t kMaxDocument = static_cast<size_t>(INT_MAX);

struct ParseResult {
  xmlDocPtr doc = nullptr;
  ParseError error;
  bool built = false;         // a builder of the own model built the tree
  bool leftToEngine = false;  // that builder left the document to the engine's tree
};

struct ContextCloser {
  void operator()(xmlParserCtxtPtr ctxt) const {
    if (ctxt->myDoc != nullptr) {
      xmlFreeDoc(ctxt->myDoc);
      ctxt->myDoc = nullptr;
    }
    xmlFreeParserCtxt(ctxt);
  }
};

// The first fatal error of the parse running on this thread. The engine
// keeps reading after an error and its context remembers only the last one;
// the first is the one that names the fault.
thread_local ParseError* t_firstFatal = nullptr;

// A reference to an entity that only an external DTD could declare is no
// fatal error to the engine, which would keep it as a reference node; the
// text it stands for is never read, so such a document is refused as well.
// The engine's tree builder reports memory running out as a mere error and
// stops reading, while the parse still counts as well-formed: the tree would
// come out cut short, so that ends the load too.
bool IsFatal(const xmlError* error) {
  return error->level == XML_ERR_FATAL || error->code == XML_WAR_UNDECLARED_ENTITY ||
         error->code == XML_ERR_NO_MEMORY;
}

// The tree builder says memory ran out also when a text node would grow past
// the engine's limit, which is the document's doing, not the process's.
bool IsTextTooLong(const xmlError* error) {
  return error->code == XML_ERR_NO_MEMORY && error->message != nullptr &&
         std::strstr(error->message, "huge text node") != nullptr;
}

void CollectError(void*, xmlErrorPtr error) {
  ParseError* first = t_firstFatal;
  if (first == nullptr || error == nullptr || !IsFatal(error)) return;
  if (first->errorCode != 0) return;
  first->errorCode = ErrorCode(error->code);
  first->line = error->line;
  first->linepos = error->int2;
  if (error->message != nullptr) first->reason = error->message;
  if (IsTextTooLong(error)) {
    first->errorCode = ErrorCode(XML_ERR_INTERNAL_ERROR);
    first->reason = "A text is longer than " + std::to_string(XML_MAX_TEXT_LENGTH) + " bytes\n";
  }
}

class CollectScope {
 public:
  explicit CollectScope(ParseError* into) : m_saved(t_firstFatal) { t_firstFatal = into; }
  ~CollectScope() { t_firstFatal = m_saved; }
  CollectScope(const CollectScope&) = delete;
  CollectScope& operator=(const CollectScope&) = delete;

 private:
  ParseError* m_saved;
};

// UTF-16 by its mark or by the pattern of a leading "<" or "<?".
bool LooksLikeUtf16(const char* data, size_t length) {
  if (length < 2) return false;
  const auto* p = reinterpret_cast<const unsigned char*>(data);
  if ((p[0] == 0xFF && p[1] == 0xFE) || (p[0] == 0xFE && p[1] == 0xFF)) {
    return !(length >= 4 && p[2] == 0 && p[3] == 0);  // UCS-4 little endian
  }
  return length >= 4 && ((p[0] == '<' && p[1] == 0 && p[2] != 0 && p[3] == 0) ||
                         (p[0] == 0 && p[1] == '<' && p[2] == 0 && p[3] != 0));
}

ParseResult TooLarge(const std::string& url) {
  ParseResult result;
  result.error.url = url;
  result.error.errorCode = ErrorCode(XML_ERR_INTERNAL_ERROR);
  result.error.reason = "The document is too large.\n";
  return result;
}

// The bytes parsed into the engine's tree, or, when builder is given, into
// the store it builds.
ParseResult ParseBytes(const char* data, size_t length, const std::string& url,
                       model::SaxBuilder* builder = nullptr) {
  ParseResult result;
  result.error.url = url;
  if (length % 2 != 0 && LooksLikeUtf16(data, length)) {
    // The engine would drop the odd byte at the end without a word.
    result.error.errorCode = ErrorCode(XML_ERR_INVALID_ENCODING);
    result.error.reason = "Input ends inside a UTF-16 character\n";
    return result;
  }
  std::string fixed;
  if (NeedsSurrogateFix(data, length)) {
    fixed = JoinSurrogatePairs(data, length);
    data = fixed.data();
    length = fixed.size();
  }
  if (length > kMaxDocument) return TooLarge(url);
  if (length == 0) {
    result.error.errorCode = ErrorCode(XML_ERR_DOCUMENT_EMPTY);
    result.error.line = 1;
    result.error.linepos = 1;
    result.error.reason = "Document is empty\n";
    return result;
  }
  CrowdedTag crowded;
  if (FindCrowdedTag(data, length, crowded)) {
    result.error.errorCode = ErrorCode(XML_ERR_INTERNAL_ERROR);
    result.error.line = crowded.line;
    result.error.linepos = crowded.column;
    result.error.reason = std::move(crowded.reason);
    return result;
  }
  ParseScope scope;
  std::unique_ptr<xmlParserCtxt, ContextCloser> ctxt(
      xmlCreateMemoryParserCtxt(data, static_cast<int>(length)));
  if (!ctxt) throw std::bad_alloc();
  ctxt->_private = ParserMark();
  xmlCtxtUseOptions(ctxt.get(), ParseOptions());
  // Errors go to this handler alone, never to a handler set for the thread.
  ctxt->sax->serror = CollectError;
  LoadGuard guard(ctxt.get(), length);
  ParseError first;
  CollectScope collect(&first);
  if (!url.empty() && ctxt->input != nullptr && ctxt->input->filename == nullptr) {
    ctxt->input->filename = reinterpret_cast<char*>(xmlStrdup(X(url.c_str())));
  }
  if (builder != nullptr) builder->install(ctxt.get());
  xmlParseDocument(ctxt.get());
  if (builder != nullptr && builder->leftToEngine()) {
    result.leftToEngine = true;
    return result;
  }
  if (builder != nullptr && ctxt->wellFormed && first.errorCode == 0) {
    builder->finish();
    result.built = true;
    return result;
  }
  if (ctxt->wellFormed && ctxt->myDoc != nullptr && first.errorCode == 0) {
    result.doc = ctxt->myDoc;
    ctxt->myDoc = nullptr;
    return result;
  }
  const xmlError* error = xmlCtxtGetLastError(ctxt.get());
  if (first.errorCode != 0) {
    first.url = result.error.url;
    result.error = std::move(first);
  } else if (error != nullptr && error->code != XML_ERR_OK) {
    result.error.errorCode = ErrorCode(error->code);
    result.error.line = error->line;
    result.error.linepos = error->int2;
    if (error->message != nullptr) result.error.reason = error->message;
  } else {
    result.error.errorCode = ErrorCode(XML_ERR_INTERNAL_ERROR);
    result.error.reason = "The document could not be read.\n";
  }
  // Memory running out is a fault of the process, not of the document.
  if (result.error.errorCode == ErrorCode(XML_ERR_NO_MEMORY) ||
      (first.errorCode == 0 && error != nullptr && error->code == XML_ERR_NO_MEMORY)) {
    throw std::bad_alloc();
  }
  return result;
}

// The whole of the regular file open on fd, refused unread when it is larger
// than a document may be. False with errno set when it can't be read.
bool ReadFile(int fd, std::string& bytes, bool& tooLarge) {
  struct stat info;
  if (fstat(fd, &info) != 0) return false;
  if (!S_ISREG(info.st_mode)) {
    errno = EISDIR;
    return false;
  }
  tooLarge = static_cast<uint64_t>(info.st_size) > kMaxDocument;
  if (tooLarge) return true;
  bytes.resize(static_cast<size_t>(info.st_size));
  size_t used = 0;
  for (;;) {
    if (used == bytes.size()) {  // the file grew meanwhile
      if (used > kMaxDocument) break;
      bytes.resize(used + 65536);
    }
    const ssize_t got = ::read(fd, bytes.data() + used, bytes.size() - used);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) break;
    used += static_cast<size_t>(got);
  }
  bytes.resize(used);
  tooLarge = used > kMaxDocument;
  return true;
}

int CantOpen(auto* object, const char* url, int err) {
  object->error = ParseError{};
  object->error.errorCode = kCantOpen;
  object->error.url = url;
  object->error.reason = std::string(std::strerror(err)) + "\n";
  return kCantOpen;
}

int Finish(auto* object, ParseResult&& result) {
  if (result.doc == nullptr) {
    object->error = std::move(result.error);
    return object->error.errorCode < 0 ? object->error.errorCode : kFail;
  }
  try {
    AdoptDocument(result.doc);
  } catch (...) {
    xmlFreeDoc(result.doc);
    throw;
  }
  object->error = ParseError{};
  object->Replace(result.doc);
  return kOk;
}

}  // namespace

int32_t ParseErrorCode(int engineCode) {
  return static_cast<int32_t>(0xC00C0000u | (static_cast<uint32_t>(engineCode) & 0xFFFFu));
}

ParseError* FirstFatalError() { return t_firstFatal; }

int Document::loadBytes(const char* data, size_t length) {
  if (m_object == nullptr) return kFail;
  if (data == nullptr && length != 0) return kInvalidArg;
  EnsureEngine();
  QuietEngine quiet;
  return Finish(m_object, ParseBytes(data, length, std::string()));
}

int Document::load(const char* path) {
  if (m_object == nullptr) return kFail;
  if (path == nullptr || *path == '\0') return kInvalidArg;
  const int fd = ::open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return CantOpen(m_object, path, errno);
  const int status = loadFile(fd, path);
  ::close(fd);
  return status;
}

int Document::loadFile(int fd, const char* url) {
  if (m_object == nullptr) return kFail;
  if (url == nullptr) url = "";
  EnsureEngine();
  QuietEngine quiet;
  std::string bytes;
  bool tooLarge = false;
  if (!ReadFile(fd, bytes, tooLarge)) return CantOpen(m_object, url, errno);
  if (tooLarge) return Finish(m_object, TooLarge(url));
  return Finish(m_object, ParseBytes(bytes.data(), bytes.size(), url));
}

namespace testing {

namespace {

// The model of the bytes, built from the engine's events.
int Build(const char* data, size_t length, model::Store& store) {
  EnsureEngine();
  QuietEngine quiet;
  model::SaxBuilder builder(store);
  const ParseResult result = ParseBytes(data, length, std::string(), &builder);
  if (result.leftToEngine) return kFalse;
  if (!result.built) return result.error.errorCode != 0 ? result.error.errorCode : kFail;
  return kOk;
}

}  // namespace

int BuiltModelXml(const char* data, size_t length, AboveBmp form, std::string& out) {
  model::Store store;
  const int status = Build(data, length, store);
  if (status != kOk) return status;
  out.clear();
  model::WriteXml(store, model::Store::kDocumentRecord, form, out);
  return kOk;
}

int BuildModel(const char* data, size_t length, size_t& bytes) {
  model::Store store;
  const int status = Build(data, length, store);
  if (status == kOk) bytes = store.bytes();
  return status;
}

}  // namespace testing

}  // namespace tk::dom
