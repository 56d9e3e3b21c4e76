// Runs on two threads at once share nothing: each world of the corpus, pared
// by two threads together (one from the first world on, one from the last
// back, so that different worlds and options run side by side), gives exactly
// what it gives pared alone.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "pareworld.h"
#include "test_util.h"

namespace {

struct Outcome {
  int status;
  std::string world;
  std::string messages;
  bool operator==(const Outcome& other) const {
    return status == other.status && world == other.world && messages == other.messages;
  }
};

Outcome pared(const std::string& input, const PareOptions& options) {
  PareResult result;
  pareWorld(input.data(), input.size(), &options, &result);
  Outcome outcome = {result.status,
                     std::string(result.output != nullptr ? result.output : "", result.outputSize),
                     std::string(result.messages, result.messagesSize)};
  releasePareResult(&result);
  return outcome;
}

// -l, --vrml97, --digits: each world with the options of its place, so that
// neighbours differ in every option. Each run counts its own memory against
// a limit that no world of the corpus comes near.
constexpr size_t kLimit = size_t(1) << 30;
const PareOptions kOptions[] = {{0, 0, 0, "in.wrl", 0, kLimit},
                                {1, 1, 0, "in.wrl", 0, kLimit},
                                {0, 1, 0, "in.wrl", 3, kLimit},
                                {1, 0, 0, "in.wrl", 0, kLimit}};

TEST(PareWorldThreads, TwoRunsAtOnceGiveWhatEachGivesAlone) {
  std::vector<std::string> worlds;
  for (const std::string& path : corpusWorlds(WORLDPARE_CORPUS_DIR)) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    worlds.push_back(text.str());
  }
  if (worlds.empty()) GTEST_SKIP() << "no corpus at " << WORLDPARE_CORPUS_DIR;
  size_t count = worlds.size();
  auto optionsOf = [](size_t i) { return kOptions[i % (sizeof kOptions / sizeof *kOptions)]; };
  std::vector<Outcome> alone, forward(count), backward(count);
  for (size_t i = 0; i < count; i++) alone.push_back(pared(worlds[i], optionsOf(i)));
  std::thread first([&]() {
    for (size_t i = 0; i < count; i++) forward[i] = pared(worlds[i], optionsOf(i));
  });
  std::thread second([&]() {
    for (size_t i = count; i-- > 0;) backward[i] = pared(worlds[i], optionsOf(i));
  });
  first.join();
  second.join();
  int stopped = 0;
  for (size_t i = 0; i < count; i++) {
    EXPECT_TRUE(forward[i] == alone[i]) << "world " << i << " forward";
    EXPECT_TRUE(backward[i] == alone[i]) << "world " << i << " backward";
    stopped += alone[i].status != 1;
  }
  // The options matter: some worlds stop only without -l or --vrml97.
  EXPECT_GT(stopped, 0);
  EXPECT_LT(stopped, int(count));
}

}  // namespace
