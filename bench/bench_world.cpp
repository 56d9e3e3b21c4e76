// Throughput benchmark of the whole tool: generates static worlds of 5, 10 and
// 20 MB (Transforms holding Shapes with large IndexedFaceSets), runs worldPare
// on each and reports MB/s and peak memory against the input's size.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
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
  long peakKilobytes;
  int status;
};

RunResult runTool(const char* tool, const std::string& input, const std::string& output) {
  unlink(output.c_str());
  auto start = std::chrono::steady_clock::now();
  pid_t child = fork();
  if (child == 0) {
    execl(tool, tool, input.c_str(), output.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  struct rusage usage;
  wait4(child, &status, 0, &usage);
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return {seconds, usage.ru_maxrss, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: bench_world <worldPare> <directory>\n");
    return 2;
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
  return 0;
}
