// The exported entry points and the out-of-line members that give the public
// interfaces their vtables inside this library.
#include <cstdint>
#include <new>

#include <treekeeper/treekeeper.h>

#include "frame/arb_exception.h"
#include "frame/ctreekeeper.h"
#include "frame/debug_output.h"
#include "frame/installer.h"

ITreeKeeper::~ITreeKeeper() = default;
ITreeKeeperXslt::~ITreeKeeperXslt() = default;
ITreeKeeperXsltBudget::~ITreeKeeperXsltBudget() = default;
ITreeKeeperXsltReport::~ITreeKeeperXsltReport() = default;
ITreeKeeperInstaller::~ITreeKeeperInstaller() = default;
tk::CCoreRtLock::~CCoreRtLock() = default;

extern "C" {

TK_API uint32_t TkGetVersion(void) { return TK_VERSION; }

TK_API int32_t TkIsGoodVersion(uint32_t version) { return version <= TK_VERSION ? 1 : 0; }

TK_API void TkSetDebugOutput(void (*callback)(const char*)) { tk::SetDebugOutput(callback); }

TK_API void TkSetEventOutput(void (*callback)(ARB_EVENT_LOG, void*)) {
  tk::SetEventOutput(callback);
}

TK_API ITreeKeeper* TkCreateTreeKeeper(uint32_t*) {
  try {
    return new tk::CTreeKeeper();
  } catch (tk::CArbException* fault) {
    outputstr report = fault->Report(0);
    tk::DebugOutput(tk::FrameEmptyText() + report);
    fault->Delete();
    return nullptr;
  }
}

TK_API void TkDeleteTreeKeeper(ITreeKeeper* treeKeeper) { delete treeKeeper; }

TK_API ITreeKeeperInstaller* TkCreateTreeKeeperInstaller(void) {
  return new (std::nothrow) tk::CTreeKeeperInstaller();
}

TK_API void TkDeleteTreeKeeperInstaller(ITreeKeeperInstaller* installer) { delete installer; }

}  // extern "C"
