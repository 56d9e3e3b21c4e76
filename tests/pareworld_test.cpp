// A run is a call: pareWorld, called many times in one process and in any
// order, gives each golden case the status, the world and the messages that
// the command line gives for it.
#include "pareworld.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>

#include "main.h"
#include "test_util.h"

namespace {

struct Outcome {
  int status;
  std::string world;
  std::string messages;
};

Outcome pared(const std::string& input, const PareOptions& options) {
  PareResult result;
  pareWorld(input.data(), input.size(), &options, &result);
  Outcome outcome = {result.status, std::string(result.output != nullptr ? result.output : "",
                                                result.outputSize),
                     std::string(result.messages, result.messagesSize)};
  EXPECT_EQ(result.output == nullptr, result.status != 1);
  EXPECT_EQ(result.messages[result.messagesSize], 0);
  releasePareResult(&result);
  return outcome;
}

std::string fileText(const std::string& path) {
  std::ifstream input(path, std::ios::binary);
  std::stringstream text;
  text << input.rdbuf();
  return text.str();
}

bool isFile(const std::string& path) { return std::ifstream(path).good() && !opendir(path.c_str()); }

// A check report names where the check stands; that changes with every edit.
std::string withoutCheckPlace(const std::string& messages) {
  static const std::regex place(", File: .*, Line: [0-9]*:");
  return std::regex_replace(messages, place, ", File: #, Line: #:");
}

// The world of a result that went through gzip, inflated.
std::string inflated(const std::string& world) {
  EXPECT_TRUE(isGzipData(world.data(), world.size()));
  size_t size = 0;
  char* text = gunzipData(world.data(), world.size(), &size);
  if (text == nullptr) return "(damaged gzip stream)";
  std::string plain(text, size);
  free(text);
  return plain;
}

// A golden case that is a run: the options of its arguments, its input, and
// what must come out. The cases of the command line itself (cli-) are left
// out: their arguments, files and limits are not pareWorld's.
struct GoldenRun {
  std::string name;
  std::string inputName;  // as the case's arguments give it
  PareOptions options;
  std::string input;
  Outcome expected;
};

// The work directory of a case: its files, and those its generate.sh makes.
std::string caseDirectory(const std::string& caseDir) {
  char pattern[] = "/tmp/pareworld-case-XXXXXX";
  std::string work = mkdtemp(pattern);
  std::string command = "cp '" + caseDir + "'/* '" + work + "' && cd '" + work +
                        "' && { [ ! -f generate.sh ] || sh '" + caseDir + "/generate.sh'; }";
  EXPECT_EQ(system(command.c_str()), 0) << command;
  return work;
}

std::string firstOf(const std::string& work, const std::string& caseDir, const std::string& name) {
  return fileText(isFile(work + "/" + name) ? work + "/" + name : caseDir + "/" + name);
}

bool readGoldenRun(const std::string& caseDir, const std::string& name, GoldenRun* run) {
  std::istringstream args(fileText(caseDir + "/args"));
  std::vector<std::string> files;
  run->options = {};
  for (std::string word; args >> word;) {
    if (word == "--vrml97") {
      run->options.vrml97 = 1;
    } else if (word == "--digits") {
      args >> run->options.digits;
    } else if (word[0] == '-') {
      run->options.leniency = 1;
    } else {
      files.push_back(word);
    }
  }
  std::string status = fileText(caseDir + "/expected.status");
  if (files.size() != 2 || (status != "1\n" && status != "253\n")) return false;
  std::string work = caseDirectory(caseDir);
  bool isRun = isFile(work + "/" + files[0]);
  if (isRun) {
    run->name = name;
    run->input = fileText(work + "/" + files[0]);
    run->options.gzipOutput = files[1] == "out.wrz";
    run->inputName = files[0];
    run->expected = {status == "1\n" ? 1 : -3,
                     status == "1\n" ? firstOf(work, caseDir, "expected.wrl") : "",
                     withoutCheckPlace(firstOf(work, caseDir, "expected.stderr"))};
  }
  EXPECT_EQ(system(("rm -rf '" + work + "'").c_str()), 0);
  return isRun;
}

std::vector<GoldenRun> goldenRuns() {
  std::vector<GoldenRun> runs;
  DIR* cases = opendir(WORLDPARE_CASES_DIR);
  while (dirent* entry = cases != nullptr ? readdir(cases) : nullptr) {
    GoldenRun run;
    if (entry->d_name[0] == '.' || strncmp(entry->d_name, "cli-", 4) == 0) continue;
    if (readGoldenRun(std::string(WORLDPARE_CASES_DIR) + "/" + entry->d_name, entry->d_name, &run)) {
      runs.push_back(run);
    }
  }
  if (cases != nullptr) closedir(cases);
  std::sort(runs.begin(), runs.end(),
            [](const GoldenRun& a, const GoldenRun& b) { return a.name < b.name; });
  return runs;
}

void expectGoldenOutcome(const GoldenRun& run) {
  PareOptions options = run.options;
  options.inputName = run.inputName.c_str();
  Outcome outcome = pared(run.input, options);
  EXPECT_EQ(outcome.status, run.expected.status) << run.name;
  EXPECT_EQ(withoutCheckPlace(outcome.messages), run.expected.messages) << run.name;
  std::string world = run.options.gzipOutput ? inflated(outcome.world) : outcome.world;
  EXPECT_TRUE(world == run.expected.world) << run.name;
}

// Every run frees what it took, also a run that stopped: after the forward
// round has made what the process keeps, the backward round leaves the heap as
// it found it, but for the few small blocks that the C library holds in its
// caches of freed blocks (less than a kilobyte a case). A world left behind
// would take a megabyte a case at the least.
TEST(PareWorld, GoldenCasesForwardThenBackwardGiveBackAllTheirMemory) {
  std::vector<GoldenRun> runs = goldenRuns();
  ASSERT_GE(runs.size(), 25u);
  for (const GoldenRun& run : runs) expectGoldenOutcome(run);
  size_t before = mallinfo2().uordblks;
  for (auto run = runs.rbegin(); run != runs.rend(); ++run) expectGoldenOutcome(*run);
  EXPECT_LT(mallinfo2().uordblks, before + runs.size() * 1024);
}

// Under -l the loop message lets the cascade go on. Routes that fork in two
// and join again, 20 times over, would deliver 2^20 times more events than a
// chain: the check after a million deliveries without a new record ends it.
TEST(PareWorld, ForkingRoutesUnderLeniencyEndAfterAMillionDeliveries) {
  std::string world = "#VRML V2.0 utf8\nDEF P PositionInterpolator { }\n";
  std::string routes = "ROUTE P.value_changed TO A0.translation\n";
  for (int i = 0; i < 20; i++) {
    std::string a = "A" + std::to_string(i), next = "A" + std::to_string(i + 1);
    world += "DEF " + a + " Transform { } DEF B" + a + " Transform { } DEF C" + a + " Transform { }\n";
    routes += "ROUTE " + a + ".translation TO B" + a + ".translation\n";
    routes += "ROUTE " + a + ".translation TO C" + a + ".translation\n";
    routes += "ROUTE B" + a + ".translation TO " + next + ".translation\n";
    routes += "ROUTE C" + a + ".translation TO " + next + ".translation\n";
  }
  world += "DEF A20 Transform { }\n" + routes;
  Outcome outcome = pared(world, {1, 0, 0, nullptr, 0, 0});
  EXPECT_EQ(outcome.status, -3);
  EXPECT_EQ(outcome.messages.rfind("Warning: Infinite or near infinite loop detected!\n", 0), 0u);
  EXPECT_NE(outcome.messages.find("Assertion failed \"cascadeEventCount < 1000000\""),
            std::string::npos);
}

// PROTOs each of whose bodies holds two instances of the one before: the
// instance of the last has 2^levels Groups.
std::string doublingProtos(int levels) {
  std::string world = "#VRML V2.0 utf8\nPROTO P0 [ ] { Group { } }\n";
  for (int i = 1; i <= levels; i++) {
    std::string level = std::to_string(i), below = "P" + std::to_string(i - 1) + " { } ";
    world += "PROTO P" + level + " [ ] { Group { children [ " + below + below + "] } }\n";
  }
  return world + "P" + std::to_string(levels) + " { }\n";
}

// Under a limit of address space (1 GB, half the passes' stack) a small world
// is pared, and one that outgrows the limit stops with the message of its
// own, its memory given back.
TEST(PareWorld, UnderAnAddressSpaceLimitAWorldRunsOrStopsInOrder) {
#ifdef WORLDPARE_SANITIZE
  GTEST_SKIP() << "the sanitizers reserve more address space than the limit";
#else
  std::string world = doublingProtos(40);
  auto run = [&world]() {
    rlimit limit = {rlim_t(1) << 30, RLIM_INFINITY};
    setrlimit(RLIMIT_AS, &limit);
    if (pared("#VRML V2.0 utf8\nGroup { }\n", {}).status != 1) exit(2);
    Outcome outcome = pared(world, {});
    fputs(outcome.messages.c_str(), stderr);
    if (pared("#VRML V2.0 utf8\nGroup { }\n", {}).status != 1) exit(3);
    exit(outcome.status & 0xff);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(253), "^Out of memory\n$");
#endif
}

// A run holds its records within the limit it is given, counting what it
// gives back: the world of 2^40 Groups stops at 64 MB as one that the system
// refused memory, in either mode, and one of 2^15 Groups that needs most of the
// limit is pared.
TEST(PareWorld, AWorldThatOutgrowsTheRunsMemoryLimitStops) {
  for (int vrml97 : {0, 1}) {
    PareOptions options = {0, vrml97, 0, nullptr, 0, size_t(64) << 20};
    Outcome outcome = pared(doublingProtos(40), options);
    EXPECT_EQ(outcome.status, -3);
    EXPECT_EQ(outcome.messages, "Out of memory\n");
    EXPECT_EQ(pared(doublingProtos(15), options).status, 1) << "--vrml97 " << vrml97;
  }
}

// Each segment of a deep recursion reserves a stack of its own, so under a
// limit of address space (4 GB, twice the passes' stack) a script expression
// 200,000 parentheses deep, which takes some hundreds of MB of stack, is pared.
TEST(PareWorld, UnderAnAddressSpaceLimitADeepRecursionFindsItsStacks) {
#ifdef WORLDPARE_SANITIZE
  GTEST_SKIP() << "the sanitizers reserve more address space than the limit";
#else
  const std::string deep(200000, '(');
  const std::string world = "#VRML V2.0 utf8\nScript { url \"javascript: function f(a) { return " +
                            deep + "a" + std::string(deep.size(), ')') + "; }\" }\n";
  auto run = [&world]() {
    rlimit limit = {rlim_t(4) << 30, RLIM_INFINITY};
    setrlimit(RLIMIT_AS, &limit);
    Outcome outcome = pared(world, {});
    fputs(outcome.messages.c_str(), stderr);
    exit(outcome.status & 0xff);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(1), "^$");
#endif
}

}  // namespace
