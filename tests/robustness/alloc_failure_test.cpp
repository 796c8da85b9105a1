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
#include <functional>
#include <new>
#include <string>
#include <vector>

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

// One call of the workload: the codes it may give instead of its normal
// result (0) when memory runs out on the way, and the call.
struct Step {
  const char* name;
  std::vector<int> failureCodes;
  std::function<int(Tk)> call;
};

// What a read gives when it succeeded but read the wrong thing: no failure code.
int Checked(int result, bool right) { return result != 0 ? result : right ? 0 : -999; }

// The workload: a document made, filled, read, written out, read back in and
// transformed.
std::vector<Step> Workload(const std::string& exportFile, const std::string& sourceFile) {
  auto text = std::make_shared<std::string>();
  auto handle = std::make_shared<unsigned>(0);
  return {
      {"CreateEmpty", {-1}, [](Tk tk) { return tk->CreateEmpty("config"); }},
      {"CreateElement", {-1, -113},
       [handle](Tk tk) { return tk->CreateElement(100, "net/host/name", handle.get()); }},
      {"SetElementValue text and number", {-1, -107},
       [handle](Tk tk) {
         const std::string value = "h\xC3\xB6st \xF0\x9F\x98\x80 one";
         const uint32_t port = 8080;
         tk->CreateElement(100, "net/port", nullptr);
         const int text =
             tk->SetElementValue(*handle, nullptr, TK_VALUE_TEXT, value.size(), value.data());
         return text != 0 ? text : tk->SetElementValue(100, "net/port", TK_VALUE_NUMBER, 4, &port);
       }},
      {"SetElementCDATAValue", {-1, -107},
       [](Tk tk) { return tk->SetElementCDATAValue(100, "net", TK_VALUE_TEXT, 9, "a < b & c"); }},
      {"setAttributeValue text and binary", {-1},
       [](Tk tk) {
         const unsigned char key[] = {0xDE, 0xAD, 0xBE, 0xEF};
         const int id = tk->setAttributeValue(100, "net/host", "id", TK_VALUE_TEXT, 0, "h-1");
         if (id != 0) return id;
         return tk->setAttributeValue(100, "net/host", "key", TK_VALUE_BINARY, 4, key);
       }},
      {"GetElementValue", {-1},
       [handle](Tk tk) {
         unsigned size = 0;
         const unsigned h = *handle;
         if (tk->GetElementValue(h, nullptr, TK_VALUE_TEXT, &size, nullptr) != -105) return -999;
         std::vector<char> got(size);
         const int result = tk->GetElementValue(h, nullptr, TK_VALUE_TEXT, &size, got.data(), 1252);
         return Checked(result, std::strlen(got.data()) + 1 == size);
       }},
      {"GetAttributeValue", {-1},
       [](Tk tk) {
         unsigned char key[4] = {};
         unsigned size = sizeof key;
         const int result =
             tk->GetAttributeValue(100, "net/host", "key", TK_VALUE_BINARY, &size, key);
         return Checked(result, key[0] == 0xDE && key[3] == 0xEF);
       }},
      // No memory for the conversion gives the platform's code for that.
      {"EnumAttribute", {-1, 8},
       [](Tk tk) {
         unsigned index = 1;
         outputstr name, value;
         const int result = tk->EnumAttribute(100, "net/host", &index, name, value, 28591);
         return Checked(result, std::string(name.text()) == "key");
       }},
      {"EnumElement", {-1, -107},
       [](Tk tk) {
         unsigned index = 0, opened = 0;
         const int result = tk->EnumElement(100, "net", "host", &index, &opened);
         return result == 0 ? tk->CloseElement(opened) : result;
       }},
      {"GetElementName", {-1},
       [handle](Tk tk) {
         char name[16];
         unsigned size = sizeof name;
         return tk->GetElementName(*handle, name, &size);
       }},
      {"ExportToStream", {-1},
       [text](Tk tk) {
         outputstr out;
         const int result = tk->ExportToStream(out);
         if (result == 0) *text = out.text();
         return result;
       }},
      {"ExportToFile", {-101, -111},
       [exportFile](Tk tk) { return tk->ExportToFile(exportFile.c_str()); }},
      {"DeleteAttribute and DeleteElement", {-1},
       [](Tk tk) {
         const int attribute = tk->DeleteAttribute(100, "net/host", "id");
         return attribute != 0 ? attribute : tk->DeleteElement(100, "net/port");
       }},
      {"ImportFromStream", {-1, -106},
       [text](Tk tk) {
         tk->CloseAllElements();
         return tk->ImportFromStream(text->c_str(), static_cast<int>(text->size()) + 1, "copy");
       }},
      {"OpenElement", {-1},
       [](Tk tk) {
         const unsigned opened = tk->OpenElement("config/net/host");
         return opened != 0 ? tk->CloseElement(opened) : -1;
       }},
      {"ApplyXSLT", {-1}, [](Tk tk) { return TkXslt(tk)->ApplyXSLT(kIdentity, 0); }},
      {"ExportSubTreeToStream", {-1, -102},
       [](Tk tk) {
         outputstr out;
         return tk->ExportSubTreeToStream(100, out);
       }},
      {"ImportFromFile", {-1, -106},
       [sourceFile](Tk tk) {
         tk->CloseAllElements();
         return tk->ImportFromFile(sourceFile.c_str());
       }},
      {"GetAttributeText", {-1},
       [](Tk tk) {
         outputstr out;
         const int result = tk->GetAttributeText(100, "item", "name", out);
         return Checked(result, std::string(out.text()) == "\xC3\xA9t\xC3\xA9");
       }},
      {"OpenElement typed", {-1},
       [handle](Tk tk) {
         unsigned type = 0;
         const int result = tk->OpenElement(100, 1, handle.get(), &type);
         return Checked(result, type == 1);
       }},
      {"read through a detached element", {-1},
       [handle](Tk tk) {
         unsigned size = 0;
         const int removed = tk->DeleteElement(100, "item");
         if (removed != 0) return removed;
         const int result = tk->GetElementValue(*handle, "v", TK_VALUE_TEXT, &size, nullptr);
         return result == -105 && size == 4 ? 0 : -999;
       }},
      {"EnumElement positional", {-1, -107, -109},
       [](Tk tk) {
         unsigned index = 1, opened = 0;  // after the comment: the tail element
         const int result = tk->EnumElement(100, nullptr, &index, &opened);
         return result == 0 ? tk->CloseElement(opened) : result;
       }},
  };
}

// A normal sequence on an instance that went through a failure.
void ExpectUsable(Tk tk, const std::string& where) {
  SCOPED_TRACE(where);
  tk->CloseAllElements();
  ASSERT_EQ(tk->CreateEmpty("after"), 0);
  unsigned item = 0;
  ASSERT_EQ(tk->CreateElement(100, "list/item", &item), 0);
  ASSERT_EQ(tk->SetElementValue(item, nullptr, TK_VALUE_TEXT, 2, "ok"), 0);
  ASSERT_EQ(tk->setAttributeValue(100, "list", "n", TK_VALUE_TEXT, 0, "1"), 0);
  const std::string text = ExportText(tk);
  EXPECT_EQ(text,
            std::string(kDeclaration) + "<after><list n=\"1\"><item>ok</item></list></after>");
  tk->CloseAllElements();
  ASSERT_EQ(tk->ImportFromStream(text.c_str(), static_cast<int>(text.size()) + 1, nullptr), 0);
  EXPECT_EQ(ExportText(tk), text);
  tk->CloseAllElements();
}

struct Outcome {
  bool fired = false;
  size_t step = 0;  // the step that failed, or the count when none did
};

// Runs the steps, failing allocation failAt of them (none for 0). Every
// step's normal result is 0; anything else must be one of its failure codes.
Outcome RunWorkload(Tk tk, const std::vector<Step>& steps, long failAt) {
  Outcome outcome;
  Arm(failAt);
  for (; outcome.step < steps.size(); ++outcome.step) {
    const Step& step = steps[outcome.step];
    int result = 0;
    try {
      result = step.call(tk);
    } catch (const std::bad_alloc&) {
      break;
    }
    if (result != 0) {
      const std::vector<int>& codes = step.failureCodes;
      EXPECT_TRUE(t_fired && std::find(codes.begin(), codes.end(), result) != codes.end())
          << step.name << " gave " << result << " after failing allocation " << failAt;
      break;
    }
    if (t_fired) break;  // absorbed: the call still gave its normal result
  }
  Disarm();
  outcome.fired = t_fired;
  return outcome;
}

// Makes an instance and runs the workload once for every allocation they
// make, failing that one (and, when sticky, every one after it).
void FailEachPoint(const std::vector<Step>& steps, const std::string& exportFile,
                   const std::string& exported, long* injected) {
  for (long failAt = 1;; ++failAt) {
    WriteFile(exportFile, kOldFile);
    Tk tk = nullptr;
    Arm(failAt);
    try {
      tk = TkCreateTreeKeeper(nullptr);
    } catch (const std::bad_alloc&) {
      Disarm();
      ++*injected;
      continue;
    }
    Outcome outcome{t_fired, 0};
    const long left = t_left;
    Disarm();
    ASSERT_NE(tk, nullptr) << "creation gave null at allocation " << failAt;
    if (!outcome.fired && left > 0) outcome = RunWorkload(tk, steps, left);
    if (!outcome.fired) {
      TkDeleteTreeKeeper(tk);
      if (t_reached) continue;  // a spared point
      ASSERT_EQ(outcome.step, steps.size());
      return;
    }
    ++*injected;
    const std::string where = "allocation " + std::to_string(failAt) + ", step " +
                              (outcome.step < steps.size() ? steps[outcome.step].name : "-");
    ASSERT_TRUE(LockIsFree(tk)) << "the instance lock was not left: " << where;
    // An existing export target holds either its old or its new text, whole.
    const std::string file = ReadFile(exportFile);
    EXPECT_TRUE(file == kOldFile || file == exported) << where;
    ExpectUsable(tk, where);
    TkDeleteTreeKeeper(tk);
    if (::testing::Test::HasFatalFailure()) return;
  }
}

void EveryFailurePoint(bool sticky) {
  t_sticky = sticky;
  TempDir dir;
  const std::string exportFile = dir.path("out.xml");
  const std::string sourceFile = dir.path("source.xml");
  WriteFile(sourceFile, "<?xml version='1.0' encoding='ISO-8859-1'?>\n"
                        "<doc><!--c--><item name='\xE9t\xE9'><v>abc</v></item><tail/></doc>");
  const std::vector<Step> steps = Workload(exportFile, sourceFile);
  {
    // A run without failures sets up the engine's process-wide state.
    Instance warmUp;
    ASSERT_EQ(RunWorkload(warmUp.tk, steps, 0).step, steps.size());
  }
  // The engine stays silent when its memory runs out: only parse errors of
  // a file load may reach stderr.
  long injected = 0;
  testing::internal::CaptureStderr();
  FailEachPoint(steps, exportFile, ReadFile(exportFile), &injected);
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
