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

#include <sys/stat.h>

#include "dom/document_object.h"
#include "dom/surrogates.h"

namespace tk::dom {
namespace {

// Negative codes of parse errors: the engine's error number in the low bits.
int32_t ErrorCode(int engineCode) {
  return static_cast<int32_t>(0xC00C0000u | (static_cast<uint32_t>(engineCode) & 0xFFFFu));
}
constexpr int32_t kCantOpen = static_cast<int32_t>(0x800C0005u);

struct ParseResult {
  xmlDocPtr doc = nullptr;
  ParseError error;
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
bool IsFatal(const xmlError* error) {
  return error->level == XML_ERR_FATAL || error->code == XML_WAR_UNDECLARED_ENTITY;
}

void CollectError(void*, xmlErrorPtr error) {
  ParseError* first = t_firstFatal;
  if (first == nullptr || error == nullptr || !IsFatal(error)) return;
  if (first->errorCode != 0) return;
  first->errorCode = ErrorCode(error->code);
  first->line = error->line;
  first->linepos = error->int2;
  if (error->message != nullptr) first->reason = error->message;
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

// Attributes one element may carry. The engine's tree builder adds each
// attribute by walking the list before it, so an element with hundreds of
// thousands of them would take minutes to load; real documents stay far below.
constexpr int kMaxAttributesPerElement = 10000;

// The engine's element start, refusing an element with too many attributes:
// the parse stops there and fails with an error that says why.
// Stops the parse at the current element with an error that says why.
void StopAtElement(xmlParserCtxtPtr ctxt, std::string reason) {
  ParseError* first = t_firstFatal;
  if (first != nullptr && first->errorCode == 0) {
    first->errorCode = ErrorCode(XML_ERR_INTERNAL_ERROR);
    first->line = ctxt->input != nullptr ? ctxt->input->line : 0;
    first->linepos = ctxt->input != nullptr ? ctxt->input->col : 0;
    first->reason = std::move(reason);
  }
  ctxt->wellFormed = 0;
  xmlStopParser(ctxt);
}

// The engine's element start, refusing an element with too many attributes,
// and a namespace declaration whose value the export could not write back.
void StartElementBounded(void* context, const xmlChar* localname, const xmlChar* prefix,
                         const xmlChar* uri, int namespaceCount, const xmlChar** namespaces,
                         int attributeCount, int defaultedCount, const xmlChar** attributes) {
  auto* ctxt = static_cast<xmlParserCtxtPtr>(context);
  auto name = [&]() {
    std::string qname = prefix != nullptr ? std::string(C(prefix)) + ":" : std::string();
    return qname + C(localname);
  };
  if (attributeCount > kMaxAttributesPerElement) {
    StopAtElement(ctxt, "Element " + name() + " has more than " +
                            std::to_string(kMaxAttributesPerElement) + " attributes\n");
    return;
  }
  for (int i = 0; i < namespaceCount; ++i) {
    const xmlChar* href = namespaces[2 * i + 1];
    if (href != nullptr && !IsWritableNamespaceUri(C(href))) {
      StopAtElement(ctxt, "Element " + name() +
                              " declares a namespace name with '&', '<' or a line break\n");
      return;
    }
  }
  xmlSAX2StartElementNs(context, localname, prefix, uri, namespaceCount, namespaces,
                        attributeCount, defaultedCount, attributes);
}

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

ParseResult ParseBytes(const char* data, size_t length, const std::string& url) {
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
  if (length > static_cast<size_t>(INT_MAX)) {
    result.error.errorCode = ErrorCode(XML_ERR_INTERNAL_ERROR);
    result.error.reason = "The document is too large.\n";
    return result;
  }
  if (length == 0) {
    result.error.errorCode = ErrorCode(XML_ERR_DOCUMENT_EMPTY);
    result.error.line = 1;
    result.error.linepos = 1;
    result.error.reason = "Document is empty\n";
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
  ctxt->sax->startElementNs = StartElementBounded;
  ParseError first;
  CollectScope collect(&first);
  if (!url.empty() && ctxt->input != nullptr && ctxt->input->filename == nullptr) {
    ctxt->input->filename = reinterpret_cast<char*>(xmlStrdup(X(url.c_str())));
  }
  xmlParseDocument(ctxt.get());
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
      (error != nullptr && error->code == XML_ERR_NO_MEMORY)) {
    throw std::bad_alloc();
  }
  return result;
}

// The whole of a regular file, read in place.
bool ReadFile(const char* path, std::string& bytes) {
  FILE* file = std::fopen(path, "rb");
  if (file == nullptr) return false;
  struct stat info;
  if (fstat(fileno(file), &info) != 0 || !S_ISREG(info.st_mode)) {
    std::fclose(file);
    errno = EISDIR;
    return false;
  }
  size_t used = 0;
  bytes.resize(static_cast<size_t>(info.st_size));
  for (;;) {
    if (used == bytes.size()) bytes.resize(used + 65536);  // the file grew meanwhile
    const size_t got = std::fread(bytes.data() + used, 1, bytes.size() - used, file);
    used += got;
    if (got == 0) break;
  }
  bytes.resize(used);
  const bool ok = std::ferror(file) == 0;
  std::fclose(file);
  return ok;
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
  BumpStamp();
  return kOk;
}

}  // namespace

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
  EnsureEngine();
  QuietEngine quiet;
  std::string bytes;
  if (!ReadFile(path, bytes)) {
    const int err = errno;
    m_object->error = ParseError{};
    m_object->error.errorCode = kCantOpen;
    m_object->error.url = path;
    m_object->error.reason = std::string(std::strerror(err)) + "\n";
    return kCantOpen;
  }
  return Finish(m_object, ParseBytes(bytes.data(), bytes.size(), path));
}

}  // namespace tk::dom
