#include "frame/ctreekeeper.h"

// Not built yet: every operation here answers -1 (0 for handle results).
namespace tk {

int CTreeKeeper::GetAttributeValue(unsigned, const char*, const char*, int, unsigned*, void*) { return -1; }
int CTreeKeeper::setAttributeValue(unsigned, const char*, const char*, int, unsigned, const void*) { return -1; }
int CTreeKeeper::GetAttributeText(unsigned, const char*, const char*, outputstr&) { return -1; }

}  // namespace tk
