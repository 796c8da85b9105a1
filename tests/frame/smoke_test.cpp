#include <gtest/gtest.h>

#include "support/test_support.h"

TEST(Instance, CreatesAndDeletes) {
  tk::test::Instance instance;
  EXPECT_EQ(instance->GetHandleCount(), 0u);
}
