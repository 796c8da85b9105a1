// Loading a tree from bytes or from a file.
//
// The parser never prints and never reads anything but the bytes given: no
// network, no external DTD, external entities refused by the guarded entity
// loader; internal entities are substituted within the engine's bounds.
#include <libxml/parserInternals.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

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

ParseResult ParseBytes(const char* data, size_t length, const std::string& url) {
  ParseResult result;
  result.error.url = url;
  std::string fixed;
  if (NeedsSurrogateFix(data, length)) {
    fixed = JoinSurrogatePairs(data, length);
    data = fixed.data();
    length = fixed.size();
  }
  if (length > static_cast<size_t>(INT_MAX)) {
    result.error.errorCode = ErrorCode(XML_ERR_NO_MEMORY);
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
  if (!url.empty() && ctxt->input != nullptr && ctxt->input->filename == nullptr) {
    ctxt->input->filename = reinterpret_cast<char*>(xmlStrdup(X(url.c_str())));
  }
  xmlParseDocument(ctxt.get());
  if (ctxt->wellFormed && ctxt->myDoc != nullptr) {
    result.doc = ctxt->myDoc;
    ctxt->myDoc = nullptr;
    return result;
  }
  const xmlError* error = xmlCtxtGetLastError(ctxt.get());
  if (error != nullptr && error->code != XML_ERR_OK) {
    result.error.errorCode = ErrorCode(error->code);
    result.error.line = error->line;
    result.error.linepos = error->int2;
    if (error->message != nullptr) result.error.reason = error->message;
  } else {
    result.error.errorCode = ErrorCode(XML_ERR_INTERNAL_ERROR);
    result.error.reason = "The document could not be read.\n";
  }
  if (error != nullptr && error->code == XML_ERR_NO_MEMORY) throw std::bad_alloc();
  return result;
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
  return Finish(m_object, ParseBytes(data, length, std::string()));
}

int Document::load(const char* path) {
  if (m_object == nullptr) return kFail;
  if (path == nullptr || *path == '\0') return kInvalidArg;
  EnsureEngine();
  std::string bytes;
  FILE* file = std::fopen(path, "rb");
  bool readOk = file != nullptr;
  if (file != nullptr) {
    // Read in place; grows if the file grows while it is read.
    size_t used = 0;
    if (std::fseek(file, 0, SEEK_END) == 0) {
      const long size = std::ftell(file);
      if (size > 0) bytes.resize(static_cast<size_t>(size));
      std::fseek(file, 0, SEEK_SET);
    }
    for (;;) {
      if (used == bytes.size()) bytes.resize(used + 65536);
      const size_t got = std::fread(bytes.data() + used, 1, bytes.size() - used, file);
      used += got;
      if (got == 0) break;
    }
    bytes.resize(used);
    readOk = std::ferror(file) == 0;
    std::fclose(file);
  }
  if (!readOk) {
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
