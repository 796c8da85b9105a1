// Helpers of the robustness tests.
#pragma once

#include <sys/resource.h>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include <treekeeper/treekeeper.h>

namespace tk::test {

// A stylesheet that copies the whole document.
inline constexpr const char* kIdentity =
    "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>"
    "<xsl:template match='@*|node()'><xsl:copy><xsl:apply-templates select='@*|node()'/>"
    "</xsl:copy></xsl:template></xsl:stylesheet>";

// True when another thread gets through a call that takes the instance lock
// (a whole-document export) within the time given. A lock that was never
// left would block that thread for good, so it is detached and the caller is
// expected to fail the test at once.
inline bool LockIsFree(ITreeKeeper* tk, std::chrono::seconds within = std::chrono::seconds(10)) {
  auto done = std::make_shared<std::promise<void>>();
  std::future<void> finished = done->get_future();
  std::thread([tk, done] {
    outputstr out;
    tk->ExportToStream(out);
    done->set_value();
  }).detach();
  return finished.wait_for(within) == std::future_status::ready;
}

// The largest resident set of the process so far, in kilobytes.
inline long MaxRssKb() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// Sanitizer builds run the engine's memory traffic through interceptors, and
// coverage builds are unoptimised: their time bounds are wider. The thread
// sanitizer's shadow of every page touched counts in the resident set as well.
#if defined(__SANITIZE_THREAD__)
constexpr int kSlowdown = 6;
constexpr int kMemoryFactor = 2;
#elif defined(__SANITIZE_ADDRESS__)
constexpr int kSlowdown = 3;
constexpr int kMemoryFactor = 2;  // red zones, and freed blocks held in quarantine
#elif defined(TK_COVERAGE_BUILD)
constexpr int kSlowdown = 3;  // unoptimised, and counting every line it runs
constexpr int kMemoryFactor = 1;
#else
constexpr int kSlowdown = 1;
constexpr int kMemoryFactor = 1;
#endif

// Time and peak memory of one case, checked at the end of its scope.
struct Bound {
  const char* what;
  int seconds;
  long megabytes;
  std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
  long rss = MaxRssKb();
  // For loops that can stop early once the bound has failed.
  bool over() const {
    return std::chrono::steady_clock::now() - start >= std::chrono::seconds(seconds * kSlowdown);
  }
  ~Bound() {
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_LT(elapsed, std::chrono::seconds(seconds * kSlowdown)) << what << ": time bound";
    EXPECT_LT(MaxRssKb() - rss, megabytes * 1024 * kMemoryFactor) << what << ": memory bound";
  }
};

// The whole document as text, or "" when the export failed.
inline std::string ExportText(ITreeKeeper* tk) {
  outputstr out;
  return tk->ExportToStream(out) == 0 ? std::string(out.text(), out.length()) : std::string();
}

}  // namespace tk::test
