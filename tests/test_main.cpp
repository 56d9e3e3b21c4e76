#include <gtest/gtest.h>

// A run leaves its pass thread waiting for the next run. A death test forked
// from this process would find that thread missing in the child and wait for
// it forever, so every death test starts the binary anew instead.
int main(int argc, char** argv) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
