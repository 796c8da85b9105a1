// Diagnostic output: the process-wide hook slots and the one way messages
// leave the library.
#pragma once

#include <treekeeper/treekeeper.h>

namespace tk {

// The empty text every message of an instance operation is composed on.
const outputstr& EmptyText();
// The empty text of the pure-call and creation reports.
const outputstr& FrameEmptyText();

// Sends text plus "\n" to the debug hook, if one is armed.
void DebugOutput(const outputstr& text);
// Composes a plain message on EmptyText() and sends it. Builds nothing when no
// hook is armed.
void Report(const char* message);

// The two hook installers behind TkSetDebugOutput and TkSetEventOutput. Once
// set, a hook stays armed; a null client callback only drops the text.
void SetDebugOutput(void (*callback)(const char*));
void SetEventOutput(void (*callback)(ARB_EVENT_LOG, void*));

// The routine every pure operation of the library's abstract classes leads to.
int PureCall();

}  // namespace tk
