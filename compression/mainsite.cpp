#include "mainsite.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

bool hasWorldName(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return char(std::tolower(c)); });
  for (const char* suffix : {".wrl", ".wrz", ".gz", ".vrml"}) {
    size_t length = strlen(suffix);
    if (name.size() > length && name.compare(name.size() - length, length, suffix) == 0) {
      return true;
    }
  }
  return false;
}

namespace {

enum class Outcome { Copied, Pared, Stopped, Failed };

struct SiteFile {
  std::string path;  // relative to both folders
  bool world = false;
  bool gzip = false;
  Outcome outcome = Outcome::Copied;
  size_t bytesIn = 0;
  size_t bytesOut = 0;
  std::string message;  // the first line of a stop's messages
};

// A world declares itself in its first bytes: a VRML or X3D header, or the
// gzip signature of a compressed one.
bool beginsAsWorld(const std::string& bytes) {
  return bytes.compare(0, 5, "#VRML") == 0 || bytes.compare(0, 4, "#X3D") == 0 ||
         bytes.compare(0, 2, "\x1f\x8b") == 0;
}

bool readBytes(const fs::path& path, std::string* bytes) {
  std::ifstream stream(path, std::ios::binary);
  bytes->assign(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
  return !stream.bad() && stream.is_open();
}

bool writeBytes(const fs::path& path, const char* bytes, size_t size) {
  std::ofstream stream(path, std::ios::binary);
  stream.write(bytes, std::streamsize(size));
  stream.close();
  return stream.good();
}

std::string firstLine(const char* text) {
  std::string line(text);
  return line.substr(0, line.find('\n'));
}

class Site {
 public:
  Site(const char* input, const char* output, const SiteOptions& options)
      : input_(input), output_(output), options_(options) {}

  // The tree of the input, folders made in the output, files listed.
  bool survey() {
    std::error_code error;
    if (!fs::create_directory(output_, error)) return false;
    for (auto i = fs::recursive_directory_iterator(input_, error);
         !error && i != fs::recursive_directory_iterator(); i.increment(error)) {
      fs::path relative = i->path().lexically_relative(input_);
      std::error_code unresolved;  // a link to nothing is neither
      if (fs::equivalent(i->path(), output_, unresolved)) {
        i.disable_recursion_pending();  // the output inside the input
      } else if (i->is_directory()) {
        fs::create_directories(output_ / relative, error);
      } else if (i->is_regular_file()) {
        SiteFile file;
        file.path = relative.generic_string();
        file.world = hasWorldName(i->path().filename().string());
        files_.push_back(file);
      }
    }
    std::sort(files_.begin(), files_.end(),
              [](const SiteFile& a, const SiteFile& b) { return a.path < b.path; });
    for (const SiteFile& file : files_) worlds_ += file.world;
    return !error;
  }

  void run() {
    unsigned jobs = options_.jobs > 0 ? unsigned(options_.jobs)
                                      : std::max(1u, std::thread::hardware_concurrency());
    options_.pare.memoryLimit /= jobs;
    std::vector<std::thread> threads;
    for (unsigned i = 1; i < jobs; i++) threads.emplace_back([this] { work(); });
    work();
    for (std::thread& thread : threads) thread.join();
    if (showProgress_) fprintf(stderr, "\n");
  }

  void summarize(double seconds) const;
  bool writeReport(const char* path) const;
  int status() const;

 private:
  void work() {
    for (size_t i = next_++; i < files_.size(); i = next_++) {
      handle(&files_[i]);
      if (files_[i].world) progress(files_[i]);
    }
  }

  void handle(SiteFile* file) {
    std::string bytes;
    if (!readBytes(input_ / file->path, &bytes)) {
      file->outcome = Outcome::Failed;
      file->message = "could not be read";
      return;
    }
    file->bytesIn = file->bytesOut = bytes.size();
    file->world = file->world && beginsAsWorld(bytes);
    if (file->world) pare(file, bytes);
    if (file->outcome == Outcome::Pared) return;
    if (!writeBytes(output_ / file->path, bytes.data(), bytes.size())) {
      file->outcome = Outcome::Failed;
      file->message = "could not be written";
    }
  }

  // A world that stops is left for the caller to copy unchanged.
  void pare(SiteFile* file, const std::string& bytes) {
    file->gzip = bytes.compare(0, 2, "\x1f\x8b") == 0;
    std::string name = (input_ / file->path).string();
    PareOptions options = options_.pare;
    options.gzipOutput = file->gzip;
    options.inputName = name.c_str();
    PareResult result;
    pareWorld(bytes.data(), bytes.size(), &options, &result);
    if (result.status == 1) {
      file->outcome = Outcome::Pared;
      file->bytesOut = result.outputSize;
      if (!writeBytes(output_ / file->path, result.output, result.outputSize)) {
        file->outcome = Outcome::Failed;
        file->message = "could not be written";
      }
    } else {
      file->outcome = Outcome::Stopped;
      file->message = firstLine(result.messages);
    }
    releasePareResult(&result);
  }

  void progress(const SiteFile& file) {
    std::lock_guard<std::mutex> lock(mutex_);
    worldsDone_++;
    bytesDone_ += file.bytesIn;
    if (showProgress_) {
      fprintf(stderr, "\r%zu of %zu worlds, %zu bytes", worldsDone_, worlds_, bytesDone_);
    }
  }

  fs::path input_, output_;
  SiteOptions options_;
  std::vector<SiteFile> files_;
  size_t worlds_ = 0;
  std::atomic<size_t> next_{0};
  std::mutex mutex_;
  size_t worldsDone_ = 0, bytesDone_ = 0;
  bool showProgress_ = isatty(STDERR_FILENO) != 0;
};

void Site::summarize(double seconds) const {
  size_t counts[4] = {}, otherFiles = 0;
  size_t before[2] = {}, after[2] = {};  // plain, gzipped worlds pared
  for (const SiteFile& file : files_) {
    if (!file.world) {
      otherFiles++;
      continue;
    }
    counts[int(file.outcome)]++;
    if (file.outcome == Outcome::Pared) {
      before[file.gzip] += file.bytesIn;
      after[file.gzip] += file.bytesOut;
    }
  }
  fprintf(stderr, "worlds pared: %zu\nworlds copied after a stop: %zu\n",
          counts[int(Outcome::Pared)], counts[int(Outcome::Stopped)]);
  for (const SiteFile& file : files_) {
    if (file.outcome == Outcome::Stopped || file.outcome == Outcome::Failed) {
      fprintf(stderr, "  %s: %s\n", file.path.c_str(), file.message.c_str());
    }
  }
  fprintf(stderr, "other files copied: %zu\n", otherFiles);
  fprintf(stderr, "plain worlds: %zu bytes to %zu\ngzipped worlds: %zu bytes to %zu\n", before[0],
          after[0], before[1], after[1]);
  fprintf(stderr, "time: %.1f s\n", seconds);
}

std::string csvField(const std::string& text) {
  if (text.find_first_of(",\"\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (char c : text) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  return quoted + "\"";
}

bool Site::writeReport(const char* path) const {
  static const char* const kOutcomes[] = {"copied", "pared", "stopped", "failed"};
  FILE* report = fopen(path, "wx");
  if (report == nullptr) return false;
  fprintf(report, "path,status,bytes in,bytes out,message\n");
  for (const SiteFile& file : files_) {
    fprintf(report, "%s,%s,%zu,%zu,%s\n", csvField(file.path).c_str(),
            kOutcomes[int(file.outcome)], file.bytesIn, file.bytesOut,
            csvField(file.message).c_str());
  }
  return fclose(report) == 0;
}

int Site::status() const {
  bool stopped = false;
  for (const SiteFile& file : files_) {
    if (file.outcome == Outcome::Failed) return -3;
    stopped = stopped || file.outcome == Outcome::Stopped;
  }
  return stopped ? 2 : 1;
}

}  // namespace

int pareSite(const char* inputFolder, const char* outputFolder, const SiteOptions& options) {
  struct stat status;
  for (const char* path : {outputFolder, options.reportPath}) {
    if (path != nullptr && stat(path, &status) == 0) {
      fprintf(stderr, "File %s already exists\n", path);
      return -2;
    }
  }
  auto start = std::chrono::steady_clock::now();
  Site site(inputFolder, outputFolder, options);
  if (!site.survey()) {
    fprintf(stderr, "Failed to read folder %s into %s\n", inputFolder, outputFolder);
    return -3;
  }
  site.run();
  site.summarize(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  if (options.reportPath != nullptr && !site.writeReport(options.reportPath)) {
    fprintf(stderr, "Failed to write file %s\n", options.reportPath);
    return -3;
  }
  return site.status();
}
