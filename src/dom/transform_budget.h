// The budget of one transformation: the time since it started, and the
// memory the engine holds for it.
//
// The engine's allocator is fronted, process-wide and once, by one that
// passes every call on to the allocator it found there. While a BudgetScope
// lives on a thread, the engine's allocations and frees on that thread (and
// only those) are counted against it, and every so often the clock is read.
// When a bound is passed the transformation is stopped: the engine ends it at
// its next instruction or XPath step and unwinds. No allocation is ever
// refused (the engine doesn't survive that everywhere), so the memory bound
// may be passed by what one step allocates.
//
// Memory is counted only where the blocks come from the C library's
// allocator, which can tell their size: a process that installed an engine
// allocator of its own keeps the time bound alone.
#pragma once

#include <libxslt/xsltInternals.h>

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "dom/dom.h"

namespace tk::dom {

// Puts the counting allocator in front of the engine's; at engine set-up.
void InstallCountingAllocator();

class BudgetScope {
 public:
  using Clock = std::chrono::steady_clock;
  BudgetScope(const TransformBudget& budget, Clock::time_point start);
  ~BudgetScope();
  BudgetScope(const BudgetScope&) = delete;
  BudgetScope& operator=(const BudgetScope&) = delete;

  // The transformation to stop when the budget runs out (null: none now).
  void watch(xsltTransformContextPtr ctxt);
  // kOk while the budget holds; kOutOfTime or kOutOfMemory once it ran out.
  int status() const { return m_status; }

  // From the allocator: bytes taken (positive) or given back (negative), for
  // a call that asked for `asked` bytes.
  void charge(int64_t bytes, size_t asked);

 private:
  [[gnu::noinline]] void check();
  void runOut(int status);

  BudgetScope* m_outer;
  int64_t m_limit;  // bytes held at most
  Clock::time_point m_deadline;
  bool m_timed;
  int64_t m_held = 0;
  unsigned m_calls = 0;
  int m_status = kOk;
  xsltTransformContextPtr m_ctxt = nullptr;
};

}  // namespace tk::dom
