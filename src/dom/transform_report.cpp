#include "dom/transform_report.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tk::dom {
namespace {

// A stylesheet may say a lot (xsl:message in a loop): what is kept stops at
// this size, with a last line saying so.
constexpr size_t kMostKept = 64 * 1024;
const char kCut[] = "(further messages left out)\n";

thread_local std::string* t_sink = nullptr;
thread_local bool t_cut = false;  // the sink is full and says so

void AppendOrCut(const char* text, size_t length) {
  std::string& sink = *t_sink;
  // Room is left for a line end and the cut's line (sizeof counts one more).
  constexpr size_t kRoom = kMostKept - sizeof kCut;
  if (sink.size() + length > kRoom) {
    // Cut at a line end where there is one, then say that the rest went.
    size_t keep = kRoom - sink.size();
    while (keep > 0 && text[keep - 1] != '\n') --keep;
    sink.append(text, keep);
    if (!sink.empty() && sink.back() != '\n') sink += '\n';
    sink += kCut;
    t_cut = true;
    return;
  }
  sink.append(text, length);
}

// Called from inside the engine, so nothing may leave it: text that can't be
// stored for want of memory ends the report there.
void Append(const char* text, size_t length) noexcept {
  if (t_cut) return;
  try {
    AppendOrCut(text, length);
  } catch (...) {
    t_cut = true;
  }
}

}  // namespace

ReportScope::ReportScope(std::string* sink) : m_sink(t_sink), m_cut(t_cut) {
  t_sink = sink;
  t_cut = false;
}

ReportScope::~ReportScope() {
  t_sink = m_sink;
  t_cut = m_cut;
}

void ReportScope::Say(const char* line) {
  if (t_sink == nullptr) return;
  Append(line, std::strlen(line));
  Append("\n", 1);
}

void ReportXsltText(void*, const char* format, ...) {
  if (t_sink == nullptr || t_cut) return;
  char text[512];
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  if (length > 0 && static_cast<size_t>(length) < sizeof text) {
    Append(text, static_cast<size_t>(length));
  } else if (length > 0) {
    // A long message: at most what the report can still hold is formatted.
    const size_t most = std::min<size_t>(static_cast<size_t>(length), kMostKept) + 1;
    char* large = static_cast<char*>(std::malloc(most));
    if (large == nullptr) {
      t_cut = true;
    } else {
      std::vsnprintf(large, most, format, again);
      Append(large, most - 1);
      std::free(large);
    }
  }
  va_end(again);
}

void ReportXPathError(void*, xmlErrorPtr error) {
  if (t_sink == nullptr || error == nullptr || error->message == nullptr) return;
  const char* message = error->message;
  size_t length = std::strlen(message);
  while (length > 0 && message[length - 1] == '\n') --length;
  Append("XPath error: ", 13);
  Append(message, length);
  if (error->str1 != nullptr) {
    Append(" in '", 5);
    Append(error->str1, std::strlen(error->str1));
    Append("'", 1);
  }
  Append("\n", 1);
}

}  // namespace tk::dom
