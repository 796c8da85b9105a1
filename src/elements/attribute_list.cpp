#include "frame/ctreekeeper.h"

// Not built yet: every operation here answers -1 (0 for handle results).
namespace tk {

int CTreeKeeper::DeleteAttribute(unsigned, const char*, const char*) { return -1; }
int CTreeKeeper::EnumAttribute(unsigned, const char*, unsigned*, char*, unsigned*) { return -1; }
int CTreeKeeper::EnumAttribute(unsigned, const char*, unsigned*, outputstr&, outputstr&, unsigned) { return -1; }

}  // namespace tk
