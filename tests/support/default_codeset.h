// Makes code page 0 stand for a codeset on the calling thread for the scope.
#pragma once

#include "document/codepage.h"

namespace tk::test {

struct DefaultCodeset {
  explicit DefaultCodeset(const char* codeset) { tk::cp::testing::SetDefaultCodeset(codeset); }
  ~DefaultCodeset() { tk::cp::testing::SetDefaultCodeset(nullptr); }
};

}  // namespace tk::test
