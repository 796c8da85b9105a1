#include "frame/ctreekeeper.h"

// Not built yet: every operation here answers -1 (0 for handle results).
namespace tk {

int CTreeKeeper::ExportToFile(const char*) { return -1; }
int CTreeKeeper::ExportToStream(outputstr&) { return -1; }
int CTreeKeeper::ExportSubTreeToFile(unsigned, const char*) { return -1; }
int CTreeKeeper::ExportSubTreeToStream(unsigned, outputstr&) { return -1; }

}  // namespace tk
