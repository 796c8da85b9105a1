// Counting the engine's allocations against a transformation's budget.
#include "dom/transform_budget.h"

#include <libxml/xmlmemory.h>
#include <libxml/xpath.h>
#include <malloc.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace tk::dom {
namespace {

// The allocator found at set-up, which every call is passed on to.
xmlFreeFunc g_free = std::free;
xmlMallocFunc g_malloc = std::malloc;
xmlMallocFunc g_mallocAtomic = std::malloc;
xmlReallocFunc g_realloc = std::realloc;
// Whether that allocator is the C library's, whose blocks tell their size.
bool g_sized = false;

// Scopes alive in the process: while there are none, no call looks further.
std::atomic<int> g_scopes{0};
thread_local BudgetScope* t_scope = nullptr;

// The clock is read every 128 calls, and at every block this large: filling
// a large block takes a while on its own.
constexpr size_t kLargeBlock = size_t{64} << 10;

// The scope of the calling thread, if any.
BudgetScope* Scope() { return g_scopes.load(std::memory_order_relaxed) != 0 ? t_scope : nullptr; }

int64_t SizeOf(void* block) {
  return g_sized && block != nullptr ? static_cast<int64_t>(malloc_usable_size(block)) : 0;
}

void* CountedMalloc(size_t size) {
  BudgetScope* scope = Scope();
  void* block = g_malloc(size);
  if (scope != nullptr) scope->charge(SizeOf(block), size);
  return block;
}

void* CountedMallocAtomic(size_t size) {
  BudgetScope* scope = Scope();
  void* block = g_mallocAtomic(size);
  if (scope != nullptr) scope->charge(SizeOf(block), size);
  return block;
}

void* CountedRealloc(void* block, size_t size) {
  BudgetScope* scope = Scope();
  if (scope == nullptr) return g_realloc(block, size);
  const int64_t before = SizeOf(block);
  void* moved = g_realloc(block, size);
  if (moved != nullptr) scope->charge(SizeOf(moved) - before, size);
  return moved;
}

void CountedFree(void* block) {
  BudgetScope* scope = Scope();
  if (scope != nullptr && block != nullptr) scope->charge(-SizeOf(block), 0);
  g_free(block);
}

char* CountedStrdup(const char* text) {
  const size_t size = std::strlen(text) + 1;
  auto* copy = static_cast<char*>(CountedMallocAtomic(size));
  if (copy != nullptr) std::memcpy(copy, text, size);
  return copy;
}

// Ends the transformation at its next step: the state ends every sequence of
// instructions, the operation limits end the instruction and the XPath
// expression under way.
void Stop(xsltTransformContextPtr ctxt) {
  ctxt->state = XSLT_STATE_STOPPED;
  ctxt->opLimit = ctxt->opCount = 1;
  if (ctxt->xpathCtxt != nullptr) ctxt->xpathCtxt->opLimit = ctxt->xpathCtxt->opCount = 1;
}

}  // namespace

void InstallCountingAllocator() {
  xmlStrdupFunc previousStrdup = nullptr;
  if (xmlGcMemGet(&g_free, &g_malloc, &g_mallocAtomic, &g_realloc, &previousStrdup) != 0) {
    return;
  }
  g_sized = g_free == &std::free && g_malloc == &std::malloc && g_mallocAtomic == &std::malloc &&
            g_realloc == &std::realloc;
  // Copies are made through the allocator found, whatever its strdup was.
  xmlGcMemSetup(CountedFree, CountedMalloc, CountedMallocAtomic, CountedRealloc, CountedStrdup);
}

BudgetScope::BudgetScope(const TransformBudget& budget, Clock::time_point start)
    : m_outer(t_scope),
      m_limit(budget.bytes == 0 || budget.bytes > uint64_t{INT64_MAX}
                  ? INT64_MAX
                  : static_cast<int64_t>(budget.bytes)),
      m_deadline(start + std::chrono::milliseconds(budget.milliseconds)),
      m_timed(budget.milliseconds != 0) {
  g_scopes.fetch_add(1, std::memory_order_relaxed);
  t_scope = this;
}

BudgetScope::~BudgetScope() {
  t_scope = m_outer;
  g_scopes.fetch_sub(1, std::memory_order_relaxed);
}

void BudgetScope::watch(xsltTransformContextPtr ctxt) {
  m_ctxt = ctxt;
  if (m_ctxt != nullptr && m_status != kOk) Stop(m_ctxt);
}

void BudgetScope::charge(int64_t bytes, size_t asked) {
  m_held += bytes;
  if (m_held > m_limit || (++m_calls & 127) == 0 || asked >= kLargeBlock) [[unlikely]] {
    check();
  }
}

void BudgetScope::check() {
  if (m_status != kOk) return;
  if (m_held > m_limit) {
    runOut(kOutOfMemory);
  } else if (m_timed && Clock::now() > m_deadline) {
    runOut(kOutOfTime);
  }
}

void BudgetScope::runOut(int status) {
  m_status = status;
  if (m_ctxt != nullptr) Stop(m_ctxt);
}

}  // namespace tk::dom
