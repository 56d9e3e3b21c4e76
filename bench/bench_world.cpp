// Throughput benchmark of the whole tool: generates static worlds of 5, 10 and
// 20 MB (Transforms holding Shapes with large IndexedFaceSets), runs worldPare
// on each and reports MB/s and peak memory against the input's size. Then a
// table of shapes of world, each at n, 2n, 4n and 8n, with the ratio of the
// times per doubling: a pass that is linear in the world keeps it near 2.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

namespace {

// One Transform with a Shape of `points` coordinates and as many triangles.
void writeObject(FILE* out, std::mt19937& random, int index, int points) {
  std::uniform_real_distribution<float> coordinate(-100.0f, 100.0f);
  fprintf(out, "DEF T%d Transform {\n  translation %g %g %g\n  children [\n", index,
          coordinate(random), coordinate(random), coordinate(random));
  fprintf(out, "    Shape {\n      appearance Appearance { material Material { diffuseColor "
               "0.8 0.2 0.1 } }\n");
  fprintf(out, "      geometry IndexedFaceSet {\n        coord Coordinate { point [\n");
  for (int i = 0; i < points; i++) {
    fprintf(out, "          %.5f %.5f %.5f,\n", coordinate(random), coordinate(random),
            coordinate(random));
  }
  fprintf(out, "        ] }\n        coordIndex [\n");
  std::uniform_int_distribution<int> vertex(0, points - 1);
  for (int i = 0; i < points; i++) {
    fprintf(out, "          %d, %d, %d, -1,\n", vertex(random), vertex(random), vertex(random));
  }
  fprintf(out, "        ]\n      }\n    }\n  ]\n}\n");
}

long generateWorld(const std::string& path, long targetBytes) {
  FILE* out = fopen(path.c_str(), "w");
  if (out == nullptr) {
    perror(path.c_str());
    exit(2);
  }
  std::mt19937 random(42);
  fprintf(out, "#VRML V2.0 utf8\n");
  for (int index = 0; ftell(out) < targetBytes; index++) writeObject(out, random, index, 2000);
  long size = ftell(out);
  fclose(out);
  return size;
}

struct RunResult {
  double seconds;
  double cpuSeconds;  // user and system: what other loads of the machine change least
  long peakKilobytes;
  int status;
};

RunResult runTool(const char* tool, const std::string& input, const std::string& output,
                  const char* option = nullptr) {
  unlink(output.c_str());
  auto start = std::chrono::steady_clock::now();
  pid_t child = fork();
  if (child == 0) {
    if (option != nullptr) {
      execl(tool, tool, option, input.c_str(), output.c_str(), static_cast<char*>(nullptr));
    } else {
      execl(tool, tool, input.c_str(), output.c_str(), static_cast<char*>(nullptr));
    }
    _exit(127);
  }
  int status = 0;
  struct rusage usage;
  wait4(child, &status, 0, &usage);
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  auto inSeconds = [](const timeval& time) { return double(time.tv_sec) + double(time.tv_usec) / 1e6; };
  return {seconds, inSeconds(usage.ru_utime) + inSeconds(usage.ru_stime), usage.ru_maxrss,
          WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

// Shapes of world that stress one pass each: one clock fanned out to many
// interpolators, one sensor to many Scripts, one script function calling
// many, one called with many numbers, a long chain of branches, a field of many values read many times,
// a Script sending many values, PROTO instances nested in each other,
// Transforms nested, PROTOs each made of the one before, many DEF names.
void writeFanOut(FILE* out, int n) {
  fprintf(out, "DEF C TimeSensor { loop TRUE }\n");
  for (int i = 0; i < n; i++) {
    fprintf(out, "DEF T%d Transform { children Shape { geometry Box {} } }\n", i);
    fprintf(out, "DEF P%d PositionInterpolator { key [0 1] keyValue [0 0 0 %d 0 0] }\n", i, i);
    fprintf(out, "ROUTE C.fraction_changed TO P%d.set_fraction\n", i);
    fprintf(out, "ROUTE P%d.value_changed TO T%d.set_translation\n", i, i);
  }
}

void writeScripts(FILE* out, int n) {
  fprintf(out, "DEF S TouchSensor {}\nShape { geometry Box {} }\nDEF L PointLight {}\n");
  for (int i = 0; i < n; i++) {
    fprintf(out, "DEF J%d Script { eventIn SFBool on eventOut SFBool out "
                 "url \"javascript: function on(v) { out = v; }\" }\n", i);
    fprintf(out, "ROUTE S.isActive TO J%d.on\nROUTE J%d.out TO L.on\n", i, i);
  }
}

void writeNested(FILE* out, int n, const char* open, const char* close) {
  for (int i = 0; i < n; i++) fputs(open, out);
  fputs("Shape { geometry Box {} }", out);
  for (int i = 0; i < n; i++) fputs(close, out);
  fputs("\n", out);
}

void writeScriptFields(FILE* out, int n) {
  fprintf(out, "DEF T TouchSensor {}\nDEF L PointLight {}\nDEF S Script {\n");
  for (int i = 0; i < n; i++) fprintf(out, "eventIn SFTime e%d\n", i);
  fprintf(out, "eventOut SFBool on url \"javascript:\n");
  for (int i = 0; i < n; i++) fprintf(out, "function e%d(v) { on = %s; }\n", i, i % 2 ? "true" : "false");
  fprintf(out, "\" }\nROUTE S.on TO L.on\n");
  for (int i = 0; i < n; i++) fprintf(out, "ROUTE T.touchTime TO S.e%d\n", i);
}

// One entry calling n/4 functions n times, each call twice with a number
// that no other call passes.
void writeScriptCalls(FILE* out, int n) {
  fprintf(out, "DEF T TouchSensor {}\nDEF L PointLight {}\n"
               "DEF S Script { eventIn SFTime go eventOut SFBool on url \"javascript:\n");
  for (int i = 0; i < n / 4; i++) fprintf(out, "function f%d(a) { return a > %d; }\n", i, i);
  fprintf(out, "function go(t) {\n");
  for (int i = 0; i < n; i++) fprintf(out, "on = f%d(%d) && f%d(%d);\n", i / 4, i, i / 4, i);
  fprintf(out, "}\" }\nROUTE T.touchTime TO S.go\nROUTE S.on TO L.on\n");
}

// An else-if chain of n branches, each sending its own value on an eventOut
// that no route takes: the field collects n values, and the pruning asks of
// each branch whether its assignment can matter.
void writeScriptBranches(FILE* out, int n) {
  fprintf(out, "DEF T TouchSensor {}\nDEF S Script { eventIn SFTime go eventOut SFInt32 o "
               "url \"javascript: function go(t) {\n");
  for (int i = 0; i < n; i++) fprintf(out, "%sif (t == %d) o = %d;\n", i != 0 ? "else " : "", i, i);
  fprintf(out, "}\" }\nROUTE T.touchTime TO S.go\n");
}

// One function called in n statements, each with a number of its own.
void writeOneFunctionCalls(FILE* out, int n) {
  fprintf(out, "DEF T TouchSensor {}\nDEF W Switch {}\nDEF S Script { eventIn SFTime go "
               "eventOut SFInt32 o url \"javascript: function f(a) { if (a > 5) return 1; return 0; }\n"
               "function go(t) {\n");
  for (int i = 0; i < n; i++) fprintf(out, "o = f(%d);\n", i);
  fprintf(out, "}\" }\nROUTE T.touchTime TO S.go\nROUTE S.o TO W.whichChoice\n");
}

// A field set to one of n values in n branches, then read in n statements.
void writeScriptReads(FILE* out, int n) {
  fprintf(out, "DEF T TouchSensor {}\nDEF W Switch {}\nDEF S Script { eventIn SFTime go "
               "field SFInt32 f 0 eventOut SFInt32 o url \"javascript: function go(t) {\n");
  for (int i = 0; i < n; i++) fprintf(out, "if (t == %d) f = %d;\n", i, i);
  for (int i = 0; i < n; i++) fprintf(out, "o = f + %d;\n", i);
  fprintf(out, "}\" }\nROUTE T.touchTime TO S.go\nROUTE S.o TO W.whichChoice\n");
}

// One Script sending n values, each to a function that tests n/8 of them.
void writeScriptEvents(FILE* out, int n) {
  fprintf(out, "DEF T TouchSensor {}\nDEF W Switch {}\nDEF S Script { eventIn SFTime go "
               "eventOut SFInt32 o url \"javascript: function go(t) {\n");
  for (int i = 0; i < n; i++) fprintf(out, "if (t == %d) o = %d;\n", i, i);
  fprintf(out, "}\" }\nDEF R Script { eventIn SFInt32 i eventOut SFInt32 p "
               "url \"javascript: function i(v) {\n");
  for (int i = 0; i < n; i += 8) fprintf(out, "if (v == %d) p = v;\n", i);
  fprintf(out, "}\" }\nROUTE T.touchTime TO S.go\nROUTE S.o TO R.i\nROUTE R.p TO W.whichChoice\n");
}

void writeNestedInstances(FILE* out, int n) {
  fprintf(out, "PROTO NestP [ exposedField MFNode c [] ] { Group { children IS c } }\n");
  writeNested(out, n, "NestP { c [ ", "] } ");
}

void writeNestedTransforms(FILE* out, int n) { writeNested(out, n, "Transform { children [ ", "] } "); }

void writeNestedScripts(FILE* out, int n) {
  writeNested(out, n, "Group { children [ Script { url \"javascript: function initialize() { }\" } ",
              "] } ");
}

void writeProtoChain(FILE* out, int n) {
  fprintf(out, "PROTO P0 [ exposedField SFVec3f t 0 0 0 ] "
               "{ Transform { translation IS t children Shape { geometry Box {} } } }\n");
  for (int i = 1; i < n; i++) {
    fprintf(out, "PROTO P%d [ exposedField SFVec3f t 0 0 0 ] { P%d { t IS t } }\n", i, i - 1);
  }
  fprintf(out, "P%d { t 1 2 3 }\n", n - 1);
}

void writeDefNames(FILE* out, int n) {
  for (int i = 0; i < n; i++) fprintf(out, "DEF N%d Transform { translation %d 0 0 }\n", i, i);
}

// Switches whose second child, the next Switch, is never chosen; every 64th
// is routed, so each unchosen child holds something that acts undrawn.
void writeNestedSwitches(FILE* out, int n) {
  fprintf(out, "DEF T TouchSensor {}\nDEF S Script { eventIn SFTime go field SFInt32 x 0 "
               "eventOut SFInt32 o url \"javascript: function go(t) { x = 1 - x; o = x; }\" }\n"
               "ROUTE T.touchTime TO S.go\n");
  for (int i = 0; i < n; i++) fprintf(out, "DEF W%d Switch { whichChoice 0 choice [ Shape { } ", i);
  for (int i = 0; i < n; i++) fputs("] } ", out);
  for (int i = 0; i < n; i += 64) fprintf(out, "\nROUTE S.o TO W%d.whichChoice", i);
  fputs("\n", out);
}

// PROTOs declared each in the body of the one before, the innermost
// instantiated in each body.
void writeNestedProtoDeclarations(FILE* out, int n) {
  for (int i = 0; i < n; i++) fprintf(out, "PROTO N%d [ exposedField SFVec3f t 0 0 0 ] { ", i);
  fputs("Transform { translation IS t }", out);
  for (int i = n - 1; i > 0; i--) fprintf(out, " } N%d { t IS t }", i);
  fputs(" }\nN0 { }\n", out);
}

struct Shape {
  const char* name;
  void (*write)(FILE* out, int n);
  int n;
  const char* option;
};

// The first size of a shape whose nodes are small (fan-out, DEF names) is
// already past the processor's cache, which a doubling below it also measures.
const Shape kShapes[] = {
    {"fan-out", writeFanOut, 64000, "--vrml97"},
    {"scripts", writeScripts, 16000, "--vrml97"},
    {"Script fields", writeScriptFields, 12500, "--vrml97"},
    {"script calls", writeScriptCalls, 16000, "--vrml97"},
    {"one function", writeOneFunctionCalls, 12500, "--vrml97"},
    {"script branches", writeScriptBranches, 12500, "--vrml97"},
    {"script reads", writeScriptReads, 12500, "--vrml97"},
    {"script events", writeScriptEvents, 12500, "--vrml97"},
    {"nested instances", writeNestedInstances, 12500, nullptr},
    {"nested instances", writeNestedInstances, 12500, "--vrml97"},
    {"nested Transforms", writeNestedTransforms, 12500, nullptr},
    {"nested Scripts", writeNestedScripts, 12500, "--vrml97"},
    {"nested Switches", writeNestedSwitches, 12500, "--vrml97"},
    {"nested PROTOs", writeNestedProtoDeclarations, 12500, "--vrml97"},
    {"PROTO chain", writeProtoChain, 12500, nullptr},
    {"PROTO chain", writeProtoChain, 12500, "--vrml97"},
    {"DEF names", writeDefNames, 110000, nullptr},
};

long generateShape(const std::string& path, const Shape& shape, int n) {
  FILE* out = fopen(path.c_str(), "w");
  if (out == nullptr) {
    perror(path.c_str());
    exit(2);
  }
  fprintf(out, "#VRML V2.0 utf8\n");
  shape.write(out, n);
  long size = ftell(out);
  fclose(out);
  return size;
}

// The least CPU time of each size over rounds that go round the four sizes in
// turn, so that a spell of load on the machine falls on every size alike: what
// other loads add is never negative. On a shared machine a spell can outlast
// a few rounds, so the rounds go on until kSteadyRounds in a row lower no
// least time by more than kSteadyGain.
constexpr int kMinRounds = 5;
constexpr int kMaxRounds = 15;
constexpr int kSteadyRounds = 3;
constexpr double kSteadyGain = 0.02;

struct ShapeTimes {
  double seconds[4];
  long peakKilobytes;
  int rounds;
};

// One round: each size once. True if it lowered a least time by more than kSteadyGain.
bool runRound(const char* tool, const Shape& shape, const std::string (&inputs)[4],
              const std::string& output, ShapeTimes* times) {
  bool gained = false;
  for (int step = 0; step < 4; step++) {
    RunResult result = runTool(tool, inputs[step], output, shape.option);
    if (result.status != 1) printf("%s at %d: status %d\n", shape.name, shape.n << step, result.status);
    if (result.cpuSeconds < times->seconds[step] * (1 - kSteadyGain)) gained = true;
    times->seconds[step] = std::min(times->seconds[step], result.cpuSeconds);
  }
  return gained;
}

// A first run of the largest size is not timed: a virtual machine's memory
// costs the most when the guest first uses it (the host backs it then), and a
// run that reaches past what earlier runs used pays that on every page beyond.
// That run gives the peak memory at 8n.
ShapeTimes timeShape(const char* tool, const Shape& shape, const std::string (&inputs)[4],
                     const std::string& output) {
  long peakKilobytes = runTool(tool, inputs[3], output, shape.option).peakKilobytes;
  ShapeTimes times = {{1e9, 1e9, 1e9, 1e9}, peakKilobytes, 0};
  int steadyRounds = 0;
  while (times.rounds < kMaxRounds && (times.rounds < kMinRounds || steadyRounds < kSteadyRounds)) {
    steadyRounds = runRound(tool, shape, inputs, output, &times) ? 0 : steadyRounds + 1;
    times.rounds++;
  }
  return times;
}

// Only the rows of `only` when it names a shape.
void benchShapes(const char* tool, const std::string& directory, const char* only) {
  printf("\nCPU seconds of each shape at n, 2n, 4n, 8n (the least of each size over the rounds); "
         "ratio: the largest of one doubling\n");
  printf("%-18s %-9s %8s %9s %9s %9s %9s %7s %6s %7s %6s\n", "shape", "option", "n", "t(n)", "t(2n)",
         "t(4n)", "t(8n)", "ratio", "8n MB", "peak MB", "rounds");
  for (const Shape& shape : kShapes) {
    if (only != nullptr && strcmp(only, shape.name) != 0) continue;
    std::string output = directory + "/shape.out.wrl";
    std::string inputs[4];
    long size = 0;
    for (int step = 0; step < 4; step++) {
      inputs[step] = directory + "/shape-" + std::to_string(step) + ".wrl";
      size = generateShape(inputs[step], shape, shape.n << step);
    }
    ShapeTimes times = timeShape(tool, shape, inputs, output);
    const double* seconds = times.seconds;
    double worst = 0;
    for (int step = 1; step < 4; step++) worst = std::max(worst, seconds[step] / seconds[step - 1]);
    printf("%-18s %-9s %8d %9.3f %9.3f %9.3f %9.3f %6.2fx %6.1f %7.1f %6d\n", shape.name,
           shape.option != nullptr ? shape.option : "", shape.n, seconds[0], seconds[1], seconds[2],
           seconds[3], worst, double(size) / (1 << 20), double(times.peakKilobytes) / 1024,
           times.rounds);
    fflush(stdout);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 && argc != 4) {
    fprintf(stderr, "usage: bench_world <worldPare> <directory> [shape]\n");
    return 2;
  }
  if (argc == 4) {
    benchShapes(argv[1], argv[2], argv[3]);
    return 0;
  }
  printf("%8s %10s %8s %8s %10s %8s\n", "size MB", "seconds", "MB/s", "peak MB", "peak/input",
         "status");
  for (long megabytes : {5L, 10L, 20L}) {
    std::string input = std::string(argv[2]) + "/bench-" + std::to_string(megabytes) + "mb.wrl";
    std::string output = std::string(argv[2]) + "/bench-" + std::to_string(megabytes) + "mb.out.wrl";
    double size = double(generateWorld(input, megabytes << 20)) / (1 << 20);
    RunResult result = runTool(argv[1], input, output);
    double peak = double(result.peakKilobytes) / 1024;
    printf("%8.1f %10.3f %8.1f %8.1f %10.2f %8d\n", size, result.seconds, size / result.seconds,
           peak, peak / size, result.status);
  }
  benchShapes(argv[1], argv[2], nullptr);
  return 0;
}
