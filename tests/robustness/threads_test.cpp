// Threads: eight threads on one shared instance, and eight threads each
// making and deleting instances of their own while running whole document
// cycles; meant to run under ThreadSanitizer too (preset tsan). Bounded in
// count and in time. Every write must be readable afterwards, exactly once.
#include <gtest/gtest.h>

#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "robustness/robustness_support.h"
#include "support/test_support.h"

namespace tk::test {
namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 150;
// A safety bound: the loops stop early past it, and the checks still hold
// for what was written.
constexpr auto kTimeBudget = std::chrono::seconds(60);

// Failures seen on the threads, with the first few described.
struct Failures {
  void add(const std::string& what) {
    std::lock_guard<std::mutex> lock(mutex);
    if (++count <= 5) text += what + "\n";
  }
  std::mutex mutex;
  int count = 0;
  std::string text;
};

// Runs body(thread) on every thread until all are done.
template <typename Body>
void OnEveryThread(Body body) {
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) threads.emplace_back(body, t);
  for (std::thread& thread : threads) thread.join();
}

std::string ReadText(ITreeKeeper* tk, const std::string& path) {
  unsigned size = 0;
  if (tk->GetElementValue(100, path.c_str(), TK_VALUE_TEXT, &size, nullptr) != -105) return "?";
  std::string value(size, '\0');
  if (tk->GetElementValue(100, path.c_str(), TK_VALUE_TEXT, &size, value.data()) != 0) return "?";
  value.resize(size - 1);
  return value;
}

// Each thread writes below its own element of one shared document while the
// others write, read, list and export the whole of it.
TEST(Threads, SharedInstanceLosesNoWrite) {
  MessageLog log;  // the debug callback is process-wide: installed before the threads
  Instance tk;
  ASSERT_EQ(tk->CreateEmpty("shared"), 0);
  for (int t = 0; t < kThreads; ++t) {
    ASSERT_EQ(tk->CreateElement(100, ("t" + std::to_string(t)).c_str(), nullptr), 0);
  }
  const auto deadline = std::chrono::steady_clock::now() + kTimeBudget;
  Failures failures;
  std::vector<int> rounds(kThreads, 0);
  OnEveryThread([&](int t) {
    const std::string own = "t" + std::to_string(t);
    for (int r = 0; r < kRounds && std::chrono::steady_clock::now() < deadline; ++r) {
      const std::string path = own + "/i" + std::to_string(r);
      const std::string value = "v" + std::to_string(t * 1000 + r);
      unsigned item = 0, index = 0, count = 0;
      if (tk->CreateElement(100, path.c_str(), &item) != 0 ||
          tk->SetElementValue(item, nullptr, TK_VALUE_TEXT, static_cast<unsigned>(value.size()),
                              value.data()) != 0 ||
          tk->setAttributeValue(100, path.c_str(), "n", TK_VALUE_NUMBER, 4, &r) != 0) {
        failures.add("writes of " + path);
      }
      if (ReadText(tk.tk, path) != value) failures.add("read of " + path);
      if (tk->EnumElement(100, own.c_str(), "i0", &index, nullptr) != 0 || index != 1) {
        failures.add("count of " + own + "/i0");
      }
      tk->EnumElement(item, &count);
      outputstr out;
      if (tk->ExportToStream(out) != 0 || tk->ExportSubTreeToStream(item, out) != 0) {
        failures.add("export of " + path);
      }
      tk->GetHandleCount();
      // Every other round gives its handle back; the rest stay open.
      if (r % 2 == 0 && tk->CloseElement(item) != 0) failures.add("close of " + path);
      rounds[t] = r + 1;
    }
  });
  EXPECT_EQ(failures.count, 0) << failures.text << log.joined();

  // Every write is there, once, with its value and attribute.
  for (int t = 0; t < kThreads; ++t) {
    const std::string own = "t" + std::to_string(t);
    unsigned index = 0;
    EXPECT_EQ(tk->EnumElement(100, own.c_str(), nullptr, &index, nullptr), 0);
    EXPECT_EQ(static_cast<int>(index), rounds[t]);
    for (int r = 0; r < rounds[t]; ++r) {
      const std::string path = own + "/i" + std::to_string(r);
      EXPECT_EQ(ReadText(tk.tk, path), "v" + std::to_string(t * 1000 + r)) << path;
      uint32_t n = 0;
      unsigned size = sizeof n;
      EXPECT_EQ(tk->GetAttributeValue(100, path.c_str(), "n", TK_VALUE_NUMBER, &size, &n), 0);
      EXPECT_EQ(n, static_cast<uint32_t>(r));
    }
  }
  EXPECT_NE(ExportText(tk.tk).find("<i0 n=\"0\">v0</i0>"), std::string::npos);
}

// An instance of its own for every round on every thread: creation and
// deletion, whole document cycles, the XSLT processor and the parser all
// running side by side.
TEST(Threads, InstancesPerThreadComeAndGoRunningWholeCycles) {
  MessageLog log;
  const auto deadline = std::chrono::steady_clock::now() + kTimeBudget;
  Failures failures;
  OnEveryThread([&](int t) {
    const std::string root = "r" + std::to_string(t);
    for (int r = 0; r < kRounds / 2 && std::chrono::steady_clock::now() < deadline; ++r) {
      Instance tk;
      const std::string value = std::to_string(t) + "-" + std::to_string(r);
      if (tk->CreateEmpty(root.c_str()) != 0 || tk->CreateElement(100, "a/b", nullptr) != 0 ||
          tk->SetElementValue(100, "a/b", TK_VALUE_TEXT, static_cast<unsigned>(value.size()),
                              value.data()) != 0 ||
          tk->SetElementCDATAValue(100, "a", TK_VALUE_TEXT, 3, "c<d") != 0) {
        failures.add("writes of " + root);
      }
      const std::string start = std::string(kDeclaration) + "<" + root + "><a><b>" + value + "</b>";
      const std::string text = ExportText(tk.tk);
      if (text != start + "<![CDATA[c<d]]></a></" + root + ">") failures.add("export: " + text);
      tk->CloseAllElements();
      if (tk->ImportFromStream(text.c_str(), 1, "copy") != 0) failures.add("import: " + text);
      const int applied = TkXslt(tk.tk)->ApplyXSLT(kIdentity, 0);
      // The transformation's data model has no CDATA: it comes back as text.
      const std::string transformed = ExportText(tk.tk);
      if (applied != 0 || transformed != start + "c&lt;d</a></" + root + ">") {
        failures.add("ApplyXSLT " + std::to_string(applied) + ": " + transformed);
      }
    }
  });
  EXPECT_EQ(failures.count, 0) << failures.text << log.joined();
}

}  // namespace
}  // namespace tk::test
