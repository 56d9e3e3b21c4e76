#include <gtest/gtest.h>
TEST(Smoke, Builds) { EXPECT_TRUE(true); }
