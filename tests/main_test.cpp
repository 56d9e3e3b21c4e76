#include "main.h"

#include <gtest/gtest.h>

#include "test_util.h"

namespace {

// The counters run across the whole process: a fresh one counts from zero.
TEST(Reporting, AlertsDumpTheContextOldestFirstAndFallSilentAfterThree) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        pushContext("Parsing PROTO %s", "Door");
        pushContext("Calling function %s", "open");
        for (int i = 1; i <= 5; i++) reportAlert("Too few arguments passed to function %d", i);
        exit(0);
      },
      testing::ExitedWithCode(0),
      "^Alert: Too few arguments passed to function 1\nStack dump:\n"
      "  Parsing PROTO Door\n  Calling function open\n"
      "Alert: Too few arguments passed to function 2\nStack dump:\n"
      "  Parsing PROTO Door\n  Calling function open\n"
      "Alert: Too few arguments passed to function 3\nStack dump:\n"
      "  Parsing PROTO Door\n  Calling function open\n"
      "Further alerts suppressed\n$");
}

TEST(Reporting, LongTextsAreNeverCut) {
  std::string name(3000, 'n');
  pushContext("Parsing PROTO %s", name.c_str());
  EXPECT_EXIT(reportError("Duplicate definition for node %s (deleting)!", name.c_str()),
              testing::ExitedWithCode(253),
              "^Error: Duplicate definition for node " + name + " \\(deleting\\)!\n"
              "Stack dump:\n  Parsing PROTO " + name + "\n$");
  popContext();
}

TEST(Reporting, CheckReportNamesTheFileBehindItsLastSlash) {
  EXPECT_EXIT(assertionFailed("a < b", "src/deep/vrmlparse.cpp", 12), testing::ExitedWithCode(253),
              "^Assertion failed \"a < b\", File: vrmlparse.cpp, Line: 12:\nStack dump:\n$");
  EXPECT_EXIT(assertionFailed("0", "main.cpp", 3), testing::ExitedWithCode(253),
              "File: main.cpp, Line: 3:");
  EXPECT_EXIT(assertionFailed("0", "dir/", 3), testing::ExitedWithCode(253), "File: , Line: 3:");
}

TEST(Reporting, PoppingAnEmptyStackIsACheck) {
  EXPECT_EXIT(popContext(), testing::ExitedWithCode(253), checkReport("myStack != NULL"));
}

}  // namespace
