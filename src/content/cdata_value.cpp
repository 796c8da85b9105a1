#include "frame/ctreekeeper.h"

// Not built yet: every operation here answers -1 (0 for handle results).
namespace tk {

int CTreeKeeper::GetElementCDATAValue(unsigned, const char*, int, unsigned*, void*) { return -1; }
int CTreeKeeper::SetElementCDATAValue(unsigned, const char*, int, unsigned, const void*) { return -1; }

}  // namespace tk
