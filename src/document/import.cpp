#include "frame/ctreekeeper.h"

// Not built yet: every operation here answers -1 (0 for handle results).
namespace tk {

int CTreeKeeper::ImportFromFile(const char*) { return -1; }
int CTreeKeeper::ImportFromStream(const char*, int, const char*) { return -1; }

}  // namespace tk
