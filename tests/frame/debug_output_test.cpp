#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <treekeeper/treekeeper.h>

#include "dom/dom.h"
#include "frame/arb_exception.h"
#include "frame/debug_output.h"
#include "frame/lock.h"
#include "support/test_support.h"

namespace {

using tk::test::MessageLog;
using Messages = std::vector<std::string>;

int g_firstCalls = 0, g_secondCalls = 0, g_eventCalls = 0;
void First(const char*) { ++g_firstCalls; }
void Second(const char*) { ++g_secondCalls; }
void Event(ARB_EVENT_LOG, void*) { ++g_eventCalls; }

// One call per message, with one line end. The last callback set is the one
// called; null keeps the hook armed and drops the text, fault reports
// included. The library raises no events: an event callback is never called.
TEST(DebugOutput, CallbacksInstalledByTheClient) {
  {
    MessageLog log;
    const std::string longText(300, 'm');
    tk::Report("abc");
    tk::DebugOutput(outputstr("two\nlines"));
    tk::Report(longText.c_str());
    tk::Report("");
    EXPECT_EQ(log.messages(), (Messages{"abc\n", "two\nlines\n", longText + "\n", "\n"}));
  }
  g_firstCalls = g_secondCalls = g_eventCalls = 0;
  TkSetEventOutput(Event);
  TkSetDebugOutput(First);
  tk::Report("one");
  TkSetDebugOutput(Second);
  tk::Report("two");
  TkSetDebugOutput(nullptr);
  tk::Report("dropped");
  tk::PureCall();
  tk::dom::testing::FailInitThread(1);
  EXPECT_EQ(TkCreateTreeKeeper(nullptr), nullptr);
  TkSetEventOutput(nullptr);
  EXPECT_EQ(g_firstCalls, 1);
  EXPECT_EQ(g_secondCalls, 1);
  EXPECT_EQ(g_eventCalls, 0);
}

TEST(FaultReport, FailedCreationReportsOnceAndGivesNull) {
  const struct { void (*fail)(int); const char* reason; } cases[] = {
      {tk::dom::testing::FailInitThread, "Error CoInitialize"},
      {tk::dom::testing::FailDocumentCreate, "CoCreateInstance failed"}};
  const std::string report = "=======EXCEPTION: ArbException ==== \nReason Code: 0, Reason:";
  for (const auto& c : cases) {
    MessageLog log;
    uint32_t reserved = 0xDEADBEEF;
    c.fail(1);
    EXPECT_EQ(TkCreateTreeKeeper(&reserved), nullptr);
    EXPECT_EQ(log.messages(), Messages{report + c.reason + "\n"});
    // The failure was one-off: the next creation works and reports nothing.
    log.clear();
    TkDeleteTreeKeeper(TkCreateTreeKeeper(&reserved));
    EXPECT_TRUE(log.messages().empty());
    EXPECT_EQ(reserved, 0xDEADBEEFu);  // never written
  }
  // With the file, and the full ranges of code and line.
  const tk::CArbException fault(outputstr("r"), -7, "f", 4294967295u, "N");
  EXPECT_STREQ(fault.Report(1).text(),
               "=======EXCEPTION: N ==== \nFILE:f:4294967295\nReason Code: -7, Reason:r");
}

// Before any TkSetDebugOutput the hook is unarmed; run in a fresh process.
TEST(FaultReportDeathTest, NoHookEverInstalled) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        tk::dom::testing::FailDocumentCreate(1);
        ITreeKeeper* instance = TkCreateTreeKeeper(nullptr);
        tk::Report("nowhere");
        std::exit(instance == nullptr && tk::PureCall() == 0 ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

// A lock whose constructor calls Enter through the base: at that point the
// derived part isn't made, so the call reaches a pure slot. The pointer is
// read back through volatile so the compiler must use the vtable.
class HalfBuiltLock : public tk::CCoreRtLock {
 protected:
  HalfBuiltLock() {
    tk::CCoreRtLock* volatile self = this;
    self->Enter();
  }
};
class CompleteLock final : public HalfBuiltLock {
 public:
  void Enter() override {}
  void Leave() override {}
};

TEST(PureCall, ReportsAndReturns) {
  MessageLog log;
  EXPECT_EQ(tk::PureCall(), 0);
  CompleteLock lock;
  EXPECT_EQ(log.messages(), Messages(2, "Treekeep: pure function exception.\n"));
}

}  // namespace
