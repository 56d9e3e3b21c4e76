// The printer is a fixed point over the scripts of real worlds: every script
// of a world is printed, read back and printed again, with the same text.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "test_util.h"

namespace {

// The javascript: urls of a written world, in order.
std::string scriptsOf(const std::string& world) {
  std::string scripts;
  const std::string start = "url \"javascript:\n";
  for (size_t at = world.find(start); at != std::string::npos; at = world.find(start, at)) {
    size_t end = world.find("\n\"\n", at);
    scripts += world.substr(at, end - at) + "\n";
    at = end;
  }
  return scripts;
}

std::string writtenAndScanned(std::string text) {
  VPFile* file = newFile();
  file->parseText(&text[0]);
  file->scanNodes();
  return writtenWorld(file);
}

// In a child process, as a world outside the accepted grammar stops the run:
// 0 fixed point, 1 a script changed, 2 no script, 253 the world stops.
int checkWorld(const std::string& path) {
  pid_t child = fork();
  if (child == 0) {
    freopen("/dev/null", "w", stderr);
    std::ifstream input(path, std::ios::binary);
    std::stringstream text;
    text << input.rdbuf();
    std::string first = writtenAndScanned(text.str());
    std::string second = writtenAndScanned(first);
    if (scriptsOf(first).empty()) _exit(2);
    _exit(scriptsOf(first) == scriptsOf(second) ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(ScriptPrinterCorpus, EveryScriptReadsBackToItsPrintedText) {
  std::vector<std::string> worlds = corpusWorlds(WORLDPARE_CORPUS_DIR);
  if (worlds.empty()) GTEST_SKIP() << "no corpus at " << WORLDPARE_CORPUS_DIR;
  int withScripts = 0;
  for (const std::string& world : worlds) {
    int result = checkWorld(world);
    EXPECT_NE(result, 1) << world;
    EXPECT_NE(result, -1) << world;
    if (result == 0) withScripts++;
  }
  EXPECT_GT(withScripts, 0);
  printf("%d worlds with scripts at a fixed point\n", withScripts);
}

}  // namespace
