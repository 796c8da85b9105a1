// Engine set-up: once per process, and the per-thread pairing of InitThread.
#include <libxml/parserInternals.h>
#include <libxslt/xslt.h>
#include <libxslt/xsltutils.h>

#include <atomic>
#include <mutex>

#include "dom/internal.h"
#include "dom/transform_budget.h"
#include "dom/transform_report.h"

namespace tk::dom {
namespace {

std::atomic<int> g_failInit{0};
std::atomic<int> g_failCreate{0};
thread_local int t_initCount = 0;
thread_local int t_parsing = 0;

std::once_flag g_engineOnce;
xmlExternalEntityLoader g_previousLoader = nullptr;
char g_parserMark = 0;

bool TakeFailure(std::atomic<int>& counter) {
  int n = counter.load();
  while (n > 0) {
    if (counter.compare_exchange_weak(n, n - 1)) return true;
  }
  return false;
}

// Our parses never read an external entity, an external parameter entity or
// an external DTD: the request is refused while one of our loads runs on
// this thread, or when the context carries our mark (entity sub-contexts
// inherit it). Everyone else in the process keeps the loader they had.
xmlParserInputPtr GuardedLoader(const char* url, const char* id, xmlParserCtxtPtr ctxt) {
  if (t_parsing > 0 || (ctxt != nullptr && ctxt->_private == &g_parserMark)) return nullptr;
  return g_previousLoader != nullptr ? g_previousLoader(url, id, ctxt) : nullptr;
}

void SilentGenericError(void*, const char*, ...) {}
void SilentStructuredError(void*, xmlErrorPtr) {}

void SetUpEngine() {
  xmlInitParser();
  InstallCountingAllocator();
  QuietEngine quiet;  // the rest of the set-up allocates through the engine
  g_previousLoader = xmlGetExternalEntityLoader();
  xmlSetExternalEntityLoader(GuardedLoader);
  // Stylesheet compilation reports only through libxslt's process-wide
  // generic handler (no per-stylesheet hook exists), so that one handler is
  // set here once: it keeps the text for the transformation running on the
  // calling thread, and drops it otherwise.
  xsltSetGenericErrorFunc(nullptr, ReportXsltText);
  xsltInit();
}

}  // namespace

namespace testing {
void FailInitThread(int count) { g_failInit = count; }
void FailDocumentCreate(int count) { g_failCreate = count; }
}  // namespace testing

bool TakeCreateFailure() { return TakeFailure(g_failCreate); }

void EnsureEngine() { std::call_once(g_engineOnce, SetUpEngine); }

int ParseOptions() {
  return XML_PARSE_NOENT | XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING |
         XML_PARSE_NOBLANKS | XML_PARSE_BIG_LINES;
}

QuietEngine::QuietEngine()
    : m_generic(xmlGenericError),
      m_genericContext(xmlGenericErrorContext),
      m_structured(xmlStructuredError),
      m_structuredContext(xmlStructuredErrorContext) {
  xmlSetGenericErrorFunc(nullptr, SilentGenericError);
  xmlSetStructuredErrorFunc(nullptr, SilentStructuredError);
}

QuietEngine::~QuietEngine() {
  xmlSetStructuredErrorFunc(m_structuredContext, m_structured);
  xmlSetGenericErrorFunc(m_genericContext, m_generic);
}

ParseScope::ParseScope() { ++t_parsing; }
ParseScope::~ParseScope() { --t_parsing; }
void* ParserMark() { return &g_parserMark; }

int InitThread() {
  if (TakeFailure(g_failInit)) return kFail;
  EnsureEngine();
  return t_initCount++ == 0 ? kOk : kFalse;
}

void UninitThread() {
  if (t_initCount > 0) --t_initCount;
}


}  // namespace tk::dom
