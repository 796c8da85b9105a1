// Allocation failure: the N-th allocation of a mixed workload fails, for
// every N until the workload runs through. Both kinds of allocation are
// counted: the C++ heap (global operator new, replaced in this program) and
// the XML engine's (its allocator hooks, installed before the engine is
// first used). Only the thread that runs the workload is counted.
//
// Every failure must end as the contract says: the operation gives its
// normal result, one of its failure codes, or lets std::bad_alloc through to
// the caller. Afterwards another thread gets the instance lock at once, the
// same instance runs a normal sequence correctly, and (under the asan
// preset) nothing leaks.
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>
#include <libxml/globals.h>
#include <libxml/xmlmemory.h>

#include <gtest/gtest.h>

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
thread_local long t_spared = 0;

// TK_ALLOC_TRACE=1 prints the stack of every allocation made to fail.
const bool g_trace = std::getenv("TK_ALLOC_TRACE") != nullptr;

void Arm(long failAt) {
  t_fired = false;
  t_reached = false;
  t_exhausted = false;
  t_left = failAt;
}

void Disarm() {
  t_left = 0;
  t_exhausted = false;
}

bool FailThisOne() {
  if (t_exhausted) return true;
  if (t_left <= 0) return false;
  if (--t_left != 0) return false;
  t_reached = true;
  t_fired = true;
  t_exhausted = t_sticky;
  if (g_trace) {
    void* frames[32];
    const int depth = backtrace(frames, 32);
    std::fputs("---- failed allocation\n", stderr);
    backtrace_symbols_fd(frames, depth, 2);
  }
  return true;
}

// The XSLT processor of this platform (libxslt 1.1.35) dereferences the null
// of a failed engine allocation made while a transformation runs, inside its
// own code. Those points are spared: the allocation succeeds and the point
// is counted apart. Compiling a stylesheet, parsing and our own allocations
// inside ApplyXSLT still fail.
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
    if (info.dli_fname != nullptr && std::strstr(info.dli_fname, "libxslt") != nullptr) {
      processor = true;
    }
  }
  return processor;
}

bool FailEngineAllocation() {
  const bool already = t_exhausted;
  if (!FailThisOne()) return false;
  if (!InsideTransformation()) return true;
  if (!already) {
    // The chosen point itself is spared: no failure in this run.
    t_fired = false;
    t_exhausted = false;
    ++t_spared;
  }
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

void* NewBlock(std::size_t size) {
  if (FailThisOne()) throw std::bad_alloc();
  void* block = std::malloc(size != 0 ? size : 1);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

}  // namespace

void* operator new(std::size_t size) { return NewBlock(size); }
void* operator new[](std::size_t size) { return NewBlock(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return FailThisOne() ? nullptr : std::malloc(size != 0 ? size : 1);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return FailThisOne() ? nullptr : std::malloc(size != 0 ? size : 1);
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { std::free(block); }

namespace tk::test {
namespace {

constexpr const char* kOldFile = "<old/>\r\n";
constexpr const char* kIdentity =
    "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
    "<xsl:template match='@*|node()'><xsl:copy><xsl:apply-templates select='@*|node()'/>"
    "</xsl:copy></xsl:template></xsl:stylesheet>";

// One call of the workload: what it does, and the codes it may give instead
// of its normal result when memory runs out on the way.
struct Step {
  const char* name;
  std::function<int(ITreeKeeper*)> call;
  std::vector<int> failureCodes;
};

// The workload: a document made, filled, read, written out, read back in and
// transformed. Results are compared with a run without failures.
std::vector<Step> Workload(const std::string& exportFile, const std::string& sourceFile) {
  auto text = std::make_shared<std::string>();
  auto handle = std::make_shared<unsigned>(0);
  return {
      {"CreateEmpty", [](ITreeKeeper* tk) { return tk->CreateEmpty("config"); }, {-1}},
      {"CreateElement",
       [handle](ITreeKeeper* tk) { return tk->CreateElement(100, "net/host/name", handle.get()); },
       {-1, -113}},
      {"SetElementValue",
       [handle](ITreeKeeper* tk) {
         const char value[] = "h\xC3\xB6st \xF0\x9F\x98\x80 one";
         return tk->SetElementValue(*handle, nullptr, TK_VALUE_TEXT, sizeof value - 1, value);
       },
       {-1, -107}},
      {"SetElementValue number",
       [](ITreeKeeper* tk) {
         const uint32_t port = 8080;
         tk->CreateElement(100, "net/port", nullptr);
         return tk->SetElementValue(100, "net/port", TK_VALUE_NUMBER, 4, &port);
       },
       {-1, -107}},
      {"SetElementCDATAValue",
       [](ITreeKeeper* tk) {
         return tk->SetElementCDATAValue(100, "net", TK_VALUE_TEXT, 9, "a < b & c");
       },
       {-1, -107}},
      {"setAttributeValue text",
       [](ITreeKeeper* tk) {
         return tk->setAttributeValue(100, "net/host", "id", TK_VALUE_TEXT, 0, "h-1");
       },
       {-1}},
      {"setAttributeValue binary",
       [](ITreeKeeper* tk) {
         const unsigned char key[] = {0xDE, 0xAD, 0xBE, 0xEF};
         return tk->setAttributeValue(100, "net/host", "key", TK_VALUE_BINARY, 4, key);
       },
       {-1}},
      {"GetElementValue",
       [handle](ITreeKeeper* tk) {
         unsigned size = 0;
         if (tk->GetElementValue(*handle, nullptr, TK_VALUE_TEXT, &size, nullptr) != -105) {
           return -999;
         }
         std::vector<char> buffer(size);
         const int result = tk->GetElementValue(*handle, nullptr, TK_VALUE_TEXT, &size,
                                                buffer.data(), 1252);
         return result == 0 && std::strlen(buffer.data()) + 1 == size ? 0 : result;
       },
       {-1}},
      {"GetAttributeValue",
       [](ITreeKeeper* tk) {
         unsigned char key[4] = {};
         unsigned size = sizeof key;
         const int result =
             tk->GetAttributeValue(100, "net/host", "key", TK_VALUE_BINARY, &size, key);
         return result == 0 && key[0] == 0xDE && key[3] == 0xEF ? 0 : result - 1000;
       },
       {-1 - 1000}},
      {"EnumAttribute",
       [](ITreeKeeper* tk) {
         unsigned index = 1;
         outputstr name, value;
         const int result = tk->EnumAttribute(100, "net/host", &index, name, value, 28591);
         return result == 0 && std::string(name.text()) == "key" ? 0 : result - 1000;
       },
       // No memory for the conversion gives the platform's code for that.
       {-1 - 1000, 8 - 1000}},
      {"EnumElement",
       [](ITreeKeeper* tk) {
         unsigned index = 0, opened = 0;
         const int result = tk->EnumElement(100, "net", "host", &index, &opened);
         if (result == 0) tk->CloseElement(opened);
         return result;
       },
       {-1, -107}},
      {"GetElementName",
       [handle](ITreeKeeper* tk) {
         char name[16];
         unsigned size = sizeof name;
         return tk->GetElementName(*handle, name, &size);
       },
       {-1}},
      {"ExportToStream",
       [text](ITreeKeeper* tk) {
         outputstr out;
         const int result = tk->ExportToStream(out);
         if (result == 0) *text = out.text();
         return result;
       },
       {-1}},
      {"ExportToFile", [exportFile](ITreeKeeper* tk) { return tk->ExportToFile(exportFile.c_str()); },
       {-101, -111}},
      {"DeleteAttribute",
       [](ITreeKeeper* tk) { return tk->DeleteAttribute(100, "net/host", "id"); },
       {-1}},
      {"DeleteElement", [](ITreeKeeper* tk) { return tk->DeleteElement(100, "net/port"); }, {-1}},
      {"CloseAllElements",
       [](ITreeKeeper* tk) {
         tk->CloseAllElements();
         return 0;
       },
       {}},
      {"ImportFromStream",
       [text](ITreeKeeper* tk) {
         return tk->ImportFromStream(text->c_str(), static_cast<int>(text->size()) + 1, "copy");
       },
       {-1, -106}},
      {"OpenElement",
       [](ITreeKeeper* tk) {
         const unsigned opened = tk->OpenElement("config/net/host");
         return opened != 0 ? tk->CloseElement(opened) : -1;
       },
       {-1}},
      {"ApplyXSLT", [](ITreeKeeper* tk) { return TkXslt(tk)->ApplyXSLT(kIdentity, 0); }, {-1}},
      {"ExportSubTreeToStream",
       [](ITreeKeeper* tk) {
         outputstr out;
         return tk->ExportSubTreeToStream(100, out);
       },
       {-1, -102}},
      {"ImportFromFile",
       [sourceFile](ITreeKeeper* tk) {
         tk->CloseAllElements();
         return tk->ImportFromFile(sourceFile.c_str());
       },
       {-1, -106}},
      {"GetAttributeText",
       [](ITreeKeeper* tk) {
         outputstr out;
         const int result = tk->GetAttributeText(100, "item", "name", out);
         return result == 0 && std::string(out.text()) == "\xC3\xA9t\xC3\xA9" ? 0 : result - 1000;
       },
       {-1 - 1000}},
      {"OpenElement typed",
       [handle](ITreeKeeper* tk) {
         unsigned type = 0;
         return tk->OpenElement(100, 1, handle.get(), &type) == 0 && type == 1 ? 0 : -1;
       },
       {-1}},
      {"read through a detached element",
       [handle](ITreeKeeper* tk) {
         if (tk->DeleteElement(100, "item") != 0) return -2;
         unsigned size = 0;
         return tk->GetElementValue(*handle, "v", TK_VALUE_TEXT, &size, nullptr) == -105 &&
                        size == 4
                    ? 0
                    : -1;
       },
       {-1, -2}},
      {"EnumElement positional",
       [](ITreeKeeper* tk) {
         unsigned index = 1, opened = 0;  // after the comment: the tail element
         const int result = tk->EnumElement(100, nullptr, &index, &opened);
         return result == 0 ? tk->CloseElement(opened) : result;
       },
       {-1, -107, -109}},
  };
}

// A normal sequence on an instance that went through a failure.
void ExpectUsable(ITreeKeeper* tk, const std::string& where) {
  SCOPED_TRACE(where);
  tk->CloseAllElements();
  ASSERT_EQ(tk->CreateEmpty("after"), 0);
  unsigned item = 0;
  ASSERT_EQ(tk->CreateElement(100, "list/item", &item), 0);
  ASSERT_EQ(tk->SetElementValue(item, nullptr, TK_VALUE_TEXT, 2, "ok"), 0);
  ASSERT_EQ(tk->setAttributeValue(100, "list", "n", TK_VALUE_TEXT, 0, "1"), 0);
  const std::string text = ExportText(tk);
  EXPECT_EQ(text, std::string(kDeclaration) + "<after><list n=\"1\"><item>ok</item></list></after>");
  tk->CloseAllElements();
  ASSERT_EQ(tk->ImportFromStream(text.c_str(), static_cast<int>(text.size()) + 1, nullptr), 0);
  EXPECT_EQ(ExportText(tk), text);
  tk->CloseAllElements();
}

struct Outcome {
  bool fired = false;
  bool threw = false;
  size_t step = 0;  // the step that failed, or the count when none did
};

Outcome RunWorkload(ITreeKeeper* tk, const std::vector<Step>& steps, long failAt,
                    const std::vector<int>& expected, std::vector<int>* record) {
  Outcome outcome;
  Arm(failAt);
  for (outcome.step = 0; outcome.step < steps.size(); ++outcome.step) {
    const Step& step = steps[outcome.step];
    int result = 0;
    try {
      result = step.call(tk);
    } catch (const std::bad_alloc&) {
      Disarm();
      outcome.fired = true;
      outcome.threw = true;
      return outcome;
    }
    if (record != nullptr) record->push_back(result);
    if (!expected.empty() && result != expected[outcome.step]) {
      Disarm();
      outcome.fired = t_fired;
      // Anything but the normal result must be a failure code of the operation.
      bool listed = false;
      for (const int code : step.failureCodes) listed = listed || code == result;
      EXPECT_TRUE(t_fired && listed)
          << step.name << " gave " << result << " instead of " << expected[outcome.step]
          << " after failing allocation " << failAt;
      return outcome;
    }
    if (t_fired) {
      // The failure was absorbed and the call still gave its normal result.
      Disarm();
      outcome.fired = true;
      return outcome;
    }
  }
  Disarm();
  outcome.fired = t_fired;
  return outcome;
}

// Runs the workload once for every allocation it makes, failing that one
// (and, when sticky, every one after it).
void EveryFailurePoint(bool sticky) {
  t_sticky = sticky;
  t_spared = 0;
  TempDir dir;
  const std::string exportFile = dir.path("out.xml");
  const std::string sourceFile = dir.path("source.xml");
  WriteFile(sourceFile, "<?xml version='1.0' encoding='ISO-8859-1'?>\n"
                        "<doc><!--c--><item name='\xE9t\xE9'><v>abc</v></item><tail/></doc>");
  const std::vector<Step> steps = Workload(exportFile, sourceFile);

  // A run without failures sets up the engine's process-wide state and gives
  // the normal results.
  std::vector<int> expected;
  {
    Instance warmUp;
    const Outcome clean = RunWorkload(warmUp.tk, steps, 0, {}, &expected);
    ASSERT_FALSE(clean.fired);
    ASSERT_EQ(expected.size(), steps.size());
    for (size_t i = 0; i < steps.size(); ++i) {
      if (std::string(steps[i].name) != "ApplyXSLT") {
        EXPECT_EQ(expected[i], 0) << steps[i].name;
      }
    }
  }
  const std::string exported = ReadFile(exportFile);

  // The engine must stay silent when its memory runs out: what reaches
  // stderr during the loop is kept and looked at afterwards (only parse
  // errors of a file load may appear there).
  const std::string errors = dir.path("stderr.txt");
  std::fflush(stderr);
  const int savedStderr = dup(2);
  const int errorFile = open(errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  ASSERT_GE(errorFile, 0);
  dup2(errorFile, 2);
  close(errorFile);
  struct RestoreStderr {
    int saved;
    ~RestoreStderr() {
      std::fflush(stderr);
      dup2(saved, 2);
      close(saved);
    }
  } restore{savedStderr};

  long injected = 0, thrown = 0, absorbed = 0, coded = 0;
  for (long failAt = 1;; ++failAt) {
    WriteFile(exportFile, kOldFile);
    // The instance itself is made under the same countdown.
    ITreeKeeper* tk = nullptr;
    Arm(failAt);
    try {
      tk = TkCreateTreeKeeper(nullptr);
    } catch (const std::bad_alloc&) {
      Disarm();
      ++injected;
      ++thrown;
      continue;
    }
    const bool firedInCreate = t_fired;
    const long left = t_left;
    Disarm();
    ASSERT_NE(tk, nullptr) << "creation gave null at allocation " << failAt;
    Outcome outcome;
    if (firedInCreate) {
      outcome.fired = true;
    } else if (left > 0) {
      outcome = RunWorkload(tk, steps, left, expected, nullptr);
    }
    if (!outcome.fired) {
      TkDeleteTreeKeeper(tk);
      if (t_reached) continue;  // a spared point
      ASSERT_EQ(outcome.step, steps.size());
      break;
    }
    ++injected;
    if (outcome.threw) ++thrown;
    else if (outcome.step < steps.size()) ++coded;
    else ++absorbed;

    const std::string where = std::string("allocation ") + std::to_string(failAt) + ", step " +
                              (outcome.step < steps.size() ? steps[outcome.step].name : "-");
    ASSERT_TRUE(LockIsFree(tk)) << "the instance lock was not left: " << where;
    // An existing export target holds either its old or its new text, whole.
    const std::string file = ReadFile(exportFile);
    EXPECT_TRUE(file == kOldFile || file == exported) << where;
    ExpectUsable(tk, where);
    TkDeleteTreeKeeper(tk);
    if (::testing::Test::HasFatalFailure()) return;
  }
  std::fflush(stderr);
  EXPECT_EQ(ReadFile(errors).find("Memory allocation failed"), std::string::npos);
  std::printf(
      "%s: allocation failures injected: %ld (bad_alloc %ld, failure code %ld, absorbed %ld); "
      "%ld points inside the XSLT processor spared\n",
      sticky ? "exhausted heap" : "single failure", injected, thrown, coded, absorbed, t_spared);
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
