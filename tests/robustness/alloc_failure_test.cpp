// Allocation failure: the N-th allocation of a mixed workload fails, for
// every N until the workload runs through. Both kinds of allocation are
// counted: the C++ heap (global operator new, replaced in this program) and
// the XML engine's (its allocator hooks, installed before the engine is
// first used). Only the thread that runs the workload is counted.
//
// Every failure must end as the contract says: the operation gives its
// normal result, one of its failure codes, or lets std::bad_alloc through to
// the caller. Afterwards another thread gets the instance lock at once, the
// same instance runs a normal sequence correctly, the engine has written
// nothing to stderr, and (under the asan preset) nothing leaks.
#include <dlfcn.h>
#include <execinfo.h>
#include <libxml/xmlmemory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <new>
#include <source_location>
#include <string>
#include <utility>

#include "robustness/robustness_support.h"
#include "support/test_support.h"

namespace {

// Allocations still to go before the one that fails; 0 while not counting.
thread_local long t_left = 0;
thread_local bool t_fired = false;
// In the exhausted mode every allocation after the first failed one fails
// too, until the caller disarms.
thread_local bool t_sticky = false;
thread_local bool t_exhausted = false;
// The countdown reached its allocation, whether that one failed or was spared.
thread_local bool t_reached = false;

void Arm(long failAt) {
  t_fired = t_reached = t_exhausted = false;
  t_left = failAt;
}

void Disarm() {
  t_left = 0;
  t_exhausted = false;
}

bool FailThisOne() {
  if (t_exhausted) return true;
  if (t_left <= 0 || --t_left != 0) return false;
  t_reached = t_fired = true;
  t_exhausted = t_sticky;
  return true;
}

// The XSLT processor of this platform (libxslt 1.1.35) dereferences the null
// of a failed engine allocation made while a transformation runs, inside its
// own code. Those points are spared: the allocation succeeds. Compiling a
// stylesheet, parsing and our own allocations inside ApplyXSLT still fail.
bool InsideTransformation() {
  void* frames[128];
  const int depth = backtrace(frames, 128);
  bool processor = false;
  for (int i = 0; i < depth; ++i) {
    Dl_info info;
    if (dladdr(frames[i], &info) == 0) continue;
    if (info.dli_sname != nullptr && std::strcmp(info.dli_sname, "xsltParseStylesheetUser") == 0) {
      return false;  // compiling, not transforming
    }
    processor = processor || (info.dli_fname != nullptr && std::strstr(info.dli_fname, "libxslt"));
  }
  return processor;
}

bool FailEngineAllocation() {
  const bool already = t_exhausted;
  if (!FailThisOne()) return false;
  if (!InsideTransformation()) return true;
  // The chosen point itself is spared: no failure in this run.
  if (!already) t_fired = t_exhausted = false;
  return false;
}

void* CountedMalloc(size_t size) { return FailEngineAllocation() ? nullptr : std::malloc(size); }
void* CountedRealloc(void* block, size_t size) {
  return FailEngineAllocation() ? nullptr : std::realloc(block, size);
}
char* CountedStrdup(const char* text) { return FailEngineAllocation() ? nullptr : strdup(text); }
void PlainFree(void* block) { std::free(block); }

// The engine's allocator has to be set before the engine allocates anything;
// the library sets the engine up lazily, on its first instance.
const bool g_engineHooked = [] {
  void* warm[1];
  backtrace(warm, 1);  // loads the unwinder now rather than at a failure point
  xmlGcMemSetup(PlainFree, CountedMalloc, CountedMalloc, CountedRealloc, CountedStrdup);
  return true;
}();

void* NewOrNull(std::size_t size) {
  return FailThisOne() ? nullptr : std::malloc(size != 0 ? size : 1);
}

void* NewBlock(std::size_t size) {
  void* block = NewOrNull(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

// Every form is replaced, so no block crosses between this heap and another.
void* operator new(std::size_t size) { return NewBlock(size); }
void* operator new[](std::size_t size) { return NewBlock(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return NewOrNull(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return NewOrNull(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }

namespace tk::test {
namespace {

using Tk = ITreeKeeper*;

constexpr const char* kOldFile = "<old/>\r\n";

// Judges the calls of the workload in turn. A call's normal result is 0 (or
// the one given); anything else must be one of its failure codes, after an
// allocation failed. False ends the run: a call failed, or an allocation
// failure was absorbed by a call that still gave its normal result.
struct Judge {
  long failAt;
  int calls = 0;
  bool operator()(int result, std::initializer_list<int> failureCodes, int normal = 0,
                  std::source_location at = std::source_location::current()) {
    ++calls;
    if (result == normal) return !t_fired;
    const bool listed =
        std::find(failureCodes.begin(), failureCodes.end(), result) != failureCodes.end();
    EXPECT_TRUE(t_fired && listed) << "the call on line " << at.line() << " gave " << result
                                   << " after failing allocation " << failAt;
    return false;
  }
};

// A check of what a call read, as a result: -999 when it read the wrong thing.
int Right(bool right) { return right ? 0 : -999; }

// The workload: a document made, filled, read, written out, read back in and
// transformed.
void Workload(Tk tk, Judge& ok, const std::string& exportFile, const std::string& sourceFile) {
  const std::string value = "h\xC3\xB6st \xF0\x9F\x98\x80 one";
  const uint32_t port = 8080;
  const unsigned char key[] = {0xDE, 0xAD, 0xBE, 0xEF};
  unsigned handle = 0, size = 0, opened = 0, type = 0;
  if (!ok(tk->CreateEmpty("config"), {-1}) ||
      !ok(tk->CreateElement(100, "net/host/name", &handle), {-1, -113}) ||
      !ok(tk->SetElementValue(handle, nullptr, TK_VALUE_TEXT, value.size(), value.data()),
          {-1, -107}) ||
      !ok(tk->CreateElement(100, "net/port", nullptr), {-1, -113}) ||
      !ok(tk->SetElementValue(100, "net/port", TK_VALUE_NUMBER, 4, &port), {-1, -107}) ||
      !ok(tk->SetElementCDATAValue(100, "net", TK_VALUE_TEXT, 9, "a < b & c"), {-1, -107}) ||
      !ok(tk->setAttributeValue(100, "net/host", "id", TK_VALUE_TEXT, 0, "h-1"), {-1}) ||
      !ok(tk->setAttributeValue(100, "net/host", "key", TK_VALUE_BINARY, 4, key), {-1}) ||
      !ok(tk->GetElementValue(handle, nullptr, TK_VALUE_TEXT, &size, nullptr), {}, -105)) {
    return;
  }
  // Reads through a code page, of a binary value, of names.
  std::string text(size, '\0');
  unsigned char got[4] = {};
  char elementName[16];
  unsigned gotRoom = sizeof got, nameRoom = sizeof elementName, attributeIndex = 1, hostIndex = 0;
  outputstr name, attribute, out;
  if (!ok(tk->GetElementValue(handle, nullptr, TK_VALUE_TEXT, &size, text.data(), 1252), {-1}) ||
      !ok(Right(std::strlen(text.c_str()) + 1 == size), {}) ||
      !ok(tk->GetAttributeValue(100, "net/host", "key", TK_VALUE_BINARY, &gotRoom, got), {-1}) ||
      !ok(Right(got[0] == 0xDE && got[3] == 0xEF), {}) ||
      // No memory for the conversion gives the platform's code for that.
      !ok(tk->EnumAttribute(100, "net/host", &attributeIndex, name, attribute, 28591), {-1, 8}) ||
      !ok(Right(std::string(name.text()) == "key"), {}) ||
      !ok(tk->EnumElement(100, "net", "host", &hostIndex, &opened), {-1, -107}) ||
      !ok(tk->CloseElement(opened), {-1}) ||
      !ok(tk->GetElementName(handle, elementName, &nameRoom), {-1}) ||
      !ok(tk->ExportToStream(out), {-1})) {
    return;
  }
  const std::string exported = out.text();
  if (!ok(tk->ExportToFile(exportFile.c_str()), {-101, -111}) ||
      !ok(tk->DeleteAttribute(100, "net/host", "id"), {-1}) ||
      !ok(tk->DeleteElement(100, "net/port"), {-1})) {
    return;
  }
  tk->CloseAllElements();
  const int length = static_cast<int>(exported.size()) + 1;
  if (!ok(tk->ImportFromStream(exported.c_str(), length, "copy"), {-1, -106})) return;
  opened = tk->OpenElement("config/net/host");
  if (!ok(opened != 0 ? tk->CloseElement(opened) : -1, {-1}) ||
      !ok(TkXslt(tk)->ApplyXSLT(kIdentity, 0), {-1}) ||
      !ok(tk->ExportSubTreeToStream(100, out), {-1, -102})) {
    return;
  }
  tk->CloseAllElements();
  unsigned tailIndex = 1;  // after the comment
  if (!ok(tk->ImportFromFile(sourceFile.c_str()), {-1, -106}) ||
      !ok(tk->GetAttributeText(100, "item", "name", out), {-1}) ||
      !ok(Right(std::string(out.text()) == "\xC3\xA9t\xC3\xA9"), {}) ||
      !ok(tk->OpenElement(100, 1, &handle, &type), {-1}) || !ok(Right(type == 1), {}) ||
      // A read through an element that left the tree.
      !ok(tk->DeleteElement(100, "item"), {-1}) ||
      !ok(tk->GetElementValue(handle, "v", TK_VALUE_TEXT, &size, nullptr), {-1}, -105) ||
      !ok(Right(size == 4), {}) ||
      !ok(tk->EnumElement(100, nullptr, &tailIndex, &opened), {-1, -107, -109})) {
    return;
  }
  ok(tk->CloseElement(opened), {-1});
}

struct Files {
  std::string exportTarget;
  std::string source;
};

// Makes an instance and runs the workload on it, failing allocation failAt
// (none for 0). Gives whether an allocation failed, and how many calls ran.
std::pair<bool, int> RunWorkload(Tk* tk, long failAt, const Files& files) {
  Judge ok{failAt};
  Arm(failAt);
  try {
    *tk = TkCreateTreeKeeper(nullptr);
    if (*tk != nullptr && !t_fired) Workload(*tk, ok, files.exportTarget, files.source);
  } catch (const std::bad_alloc&) {
  }
  Disarm();
  return {t_fired, ok.calls};
}

// Runs the workload once for every allocation it makes, failing that one
// (and, when sticky, every one after it).
void FailEachPoint(const Files& files, const std::string& exported, long* injected) {
  for (long failAt = 1;; ++failAt) {
    WriteFile(files.exportTarget, kOldFile);
    Tk tk = nullptr;
    const auto [fired, calls] = RunWorkload(&tk, failAt, files);
    if (!fired) {
      ASSERT_NE(tk, nullptr) << "creation gave null at allocation " << failAt;
      TkDeleteTreeKeeper(tk);
      if (t_reached) continue;  // a spared point
      return;                   // the workload ran through
    }
    ++*injected;
    if (tk == nullptr) continue;  // creation failed: null, or std::bad_alloc let through
    const std::string where =
        "allocation " + std::to_string(failAt) + ", after call " + std::to_string(calls);
    ASSERT_TRUE(LockIsFree(tk)) << "the instance lock was not left: " << where;
    // An existing export target holds either its old or its new text, whole.
    const std::string file = ReadFile(files.exportTarget);
    EXPECT_TRUE(file == kOldFile || file == exported) << where;
    {
      // The same instance then runs the whole workload normally.
      SCOPED_TRACE(where);
      Judge ok{0};
      Arm(0);
      tk->CloseAllElements();
      Workload(tk, ok, files.exportTarget, files.source);
      EXPECT_EQ(ReadFile(files.exportTarget), exported);
    }
    TkDeleteTreeKeeper(tk);
    if (::testing::Test::HasFatalFailure()) return;
  }
}

void EveryFailurePoint(bool sticky) {
  t_sticky = sticky;
  TempDir dir;
  const Files files{dir.path("out.xml"), dir.path("source.xml")};
  WriteFile(files.source, "<?xml version='1.0' encoding='ISO-8859-1'?>\n"
                          "<doc><!--c--><item name='\xE9t\xE9'><v>abc</v></item><tail/></doc>");
  // A run without failures sets up the engine's process-wide state.
  Tk tk = nullptr;
  RunWorkload(&tk, 0, files);
  ASSERT_NE(tk, nullptr);
  TkDeleteTreeKeeper(tk);
  if (::testing::Test::HasFailure()) return;
  // The engine stays silent when its memory runs out: only parse errors of
  // a file load may reach stderr.
  long injected = 0;
  testing::internal::CaptureStderr();
  FailEachPoint(files, ReadFile(files.exportTarget), &injected);
  EXPECT_EQ(testing::internal::GetCapturedStderr().find("Memory allocation failed"),
            std::string::npos);
  EXPECT_GT(injected, 100);
  t_sticky = false;
}

TEST(AllocationFailure, EverySingleFailurePointOfAMixedWorkloadEndsCleanly) {
  EveryFailurePoint(false);
}

TEST(AllocationFailure, EveryPointFromWhichTheHeapStaysExhaustedEndsCleanly) {
  EveryFailurePoint(true);
}

}  // namespace
}  // namespace tk::test
