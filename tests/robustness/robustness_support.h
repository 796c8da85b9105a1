// Helpers of the robustness tests.
#pragma once

#include <sys/resource.h>

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

// The whole document as text, or "" when the export failed.
inline std::string ExportText(ITreeKeeper* tk) {
  outputstr out;
  return tk->ExportToStream(out) == 0 ? std::string(out.text(), out.length()) : std::string();
}

}  // namespace tk::test
