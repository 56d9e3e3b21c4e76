#include "main.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "runheap.h"
#include "test_util.h"

namespace {

// The counters run across the whole process: a fresh one counts from zero.
TEST(Reporting, AlertsDumpTheContextOldestFirstAndFallSilentAfterThree) {
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

// A text keeps its first 1023 characters and says how many it left out; a
// line of its own stays one.
TEST(Reporting, LongTextsAreCutAfter1023Characters) {
  std::string name(3000, 'n');
  pushContext("Parsing PROTO %s", name.c_str());
  EXPECT_EXIT(
      {
        printMessage("Line %d node type %s unknown!\n", 3, name.c_str());
        reportError("Duplicate definition for node %s (deleting)!", name.c_str());
      },
      testing::ExitedWithCode(253),
      "^Line 3 node type " + std::string(1006, 'n') + " \\[\\.\\.\\. 2004 more characters\\]\n"
      "Error: Duplicate definition for node " + std::string(993, 'n') +
          " \\[\\.\\.\\. 2019 more characters\\]\n"
          "Stack dump:\n  Parsing PROTO " + std::string(1009, 'n') +
          " \\[\\.\\.\\. 1991 more characters\\]\n$");
  popContext();
}

// 6000 lines of 1052 bytes make a dump of more than 5 MB: it keeps the 249
// lines that fit in 256 KB at each end, and counts the 5502 between them.
TEST(Reporting, AHugeDumpKeepsItsEndsAndCountsTheLinesBetween) {
  std::string name(2000, 'n');
  // The child that runs the death test is a new process: the name must not vary.
  std::string path = testing::TempDir() + "worldpare-huge-dump.txt";
  EXPECT_EXIT(
      {
        if (freopen(path.c_str(), "w", stderr) == nullptr) exit(1);
        for (int i = 1000; i < 7000; i++) pushContext("Event %d %s", i, name.c_str());
        reportAlert("Deep");
        exit(0);
      },
      testing::ExitedWithCode(0), "");
  auto line = [&](int i) {
    return "  Event " + std::to_string(i) + " " + std::string(1012, 'n') +
           " [... 988 more characters]\n";
  };
  std::string expected = "Alert: Deep\nStack dump:\n";
  for (int i = 1000; i < 1249; i++) expected += line(i);
  expected += "  [... 5502 lines left out]\n";
  for (int i = 6751; i < 7000; i++) expected += line(i);
  std::ifstream dump(path);
  std::stringstream text;
  text << dump.rdbuf();
  EXPECT_TRUE(text.str() == expected) << text.str().size() << " bytes";
  unlink(path.c_str());
}

TEST(Reporting, CheckReportNamesTheFileBehindItsLastSlash) {
  EXPECT_EXIT(assertionFailed("a < b", "src/deep/vrmlparse.cpp", 12), testing::ExitedWithCode(253),
              "^Assertion failed \"a < b\", File: vrmlparse.cpp, Line: 12:\nStack dump:\n$");
  EXPECT_EXIT(assertionFailed("0", "main.cpp", 3), testing::ExitedWithCode(253),
              "File: main.cpp, Line: 3:");
  EXPECT_EXIT(assertionFailed("0", "dir/", 3), testing::ExitedWithCode(253), "File: , Line: 3:");
}

// A heap begun is the current one; ended, the one before it is current again.
TEST(RunHeaps, EndingAHeapMakesTheOneBeforeItCurrentAgain) {
  RunHeap* before = currentRun->heap;
  RunHeap outer, inner;
  beginRunHeap(&outer);
  EXPECT_EQ(currentRun->heap, &outer);
  beginRunHeap(&inner);
  EXPECT_EQ(currentRun->heap, &inner);
  endRunHeap(&inner);
  EXPECT_EQ(currentRun->heap, &outer);
  endRunHeap(&outer);
  EXPECT_EQ(currentRun->heap, before);
}

TEST(Reporting, PoppingAnEmptyStackIsACheck) {
  EXPECT_EXIT(popContext(), testing::ExitedWithCode(253), checkReport("myStack != NULL"));
}

}  // namespace
