#include "frame/ctreekeeper.h"

// Not built yet: every operation here answers -1 (0 for handle results).
namespace tk {

int CTreeKeeper::EnumElement(unsigned, unsigned*) { return -1; }
int CTreeKeeper::EnumElement(unsigned, const char*, const char*, unsigned*, unsigned*) { return -1; }
int CTreeKeeper::GetElementName(unsigned, char*, unsigned*) { return -1; }

}  // namespace tk
