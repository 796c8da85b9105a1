#include "frame/ctreekeeper.h"

// Not built yet: every operation here answers -1 (0 for handle results).
namespace tk {

unsigned CTreeKeeper::OpenElement(unsigned, unsigned) { return 0; }
unsigned CTreeKeeper::OpenElement(const char*) { return 0; }
int CTreeKeeper::OpenElement(unsigned, unsigned, unsigned*, unsigned*) { return -1; }
int CTreeKeeper::CloseElement(unsigned) { return -1; }

}  // namespace tk
