#include "frame/debug_output.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tk {
namespace {

using DebugHook = void (*)(outputstr&);
using ClientDebug = void (*)(const char*);
using EventHook = void (*)(ARB_EVENT_LOG, void*);

// Plain pointers: clients install callbacks before they use threads.
ClientDebug g_clientDebug = nullptr;
DebugHook g_debugHook = nullptr;
EventHook g_clientEvent = nullptr;
EventHook g_eventHook = nullptr;

const outputstr g_emptyText;
const outputstr g_frameEmptyText;

void DebugForwarder(outputstr& text) {
  if (g_clientDebug != nullptr) g_clientDebug(text.text());
}

void EventForwarder(ARB_EVENT_LOG record, void* context) {
  if (g_clientEvent != nullptr) g_clientEvent(record, context);
}

// Stops in the debugger when one is attached; otherwise does nothing.
void DebugBreak() {
  FILE* status = std::fopen("/proc/self/status", "r");
  if (status == nullptr) return;
  char line[256];
  long tracer = 0;
  while (std::fgets(line, sizeof line, status) != nullptr) {
    if (std::strncmp(line, "TracerPid:", 10) == 0) {
      tracer = std::strtol(line + 10, nullptr, 10);
      break;
    }
  }
  std::fclose(status);
  if (tracer != 0) std::raise(SIGTRAP);
}

}  // namespace

const outputstr& EmptyText() { return g_emptyText; }
const outputstr& FrameEmptyText() { return g_frameEmptyText; }

void DebugOutput(const outputstr& text) {
  if (g_debugHook == nullptr) return;
  outputstr line = text + "\n";
  g_debugHook(line);
}

void Report(const char* message) {
  if (g_debugHook == nullptr) return;
  DebugOutput(g_emptyText + message);
}

int PureCall() {
  outputstr message = g_frameEmptyText + "Treekeep: pure function exception.";
  if (g_debugHook != nullptr) DebugOutput(message);
  DebugBreak();
  return 0;
}

void SetDebugOutput(void (*callback)(const char*)) {
  g_clientDebug = callback;
  g_debugHook = DebugForwarder;
}

void SetEventOutput(void (*callback)(ARB_EVENT_LOG, void*)) {
  g_clientEvent = callback;
  g_eventHook = EventForwarder;
}

}  // namespace tk

// Every pure slot of the library's vtables lands here instead of the runtime's
// terminating handler. Hidden, so other code in the process keeps its own.
extern "C" __attribute__((visibility("hidden"))) long __cxa_pure_virtual() {
  return tk::PureCall();
}
