// Fixtures shared by the unit tests: worlds are given as VRML text, read by
// the real parser, and compared as the text that the writer prints.
#ifndef WORLDPARE_TEST_UTIL_H
#define WORLDPARE_TEST_UTIL_H

#include <dirent.h>
#include <pthread.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "jsparser.h"
#include "main.h"
#include "vrmlparse.h"

/// A new file with the built-in library. A scene is never released, as in a
/// run; the list keeps every file reachable for the leak checker.
inline VPFile* newFile() {
  static std::vector<VPFile*>* const files = new std::vector<VPFile*>;
  files->push_back(new VPFile);
  return files->back();
}

/// What the printer writes for a stream-producing call.
template <class Print>
std::string printedText(Print print) {
  char* buffer = nullptr;
  size_t size = 0;
  FILE* stream = open_memstream(&buffer, &size);
  print(stream);
  fclose(stream);
  std::string text(buffer, size);
  free(buffer);
  return text;
}

/// Reads a world given without its header line.
inline VPFile* parseWorld(const std::string& body) {
  VPFile* file = newFile();
  std::string text = "#VRML V2.0 utf8\n" + body;
  file->parseText(&text[0]);
  return file;
}

/// What the writer prints for the scene, header line included.
inline std::string writtenWorld(VPFile* file) {
  return printedText([file](FILE* stream) { file->write(stream); });
}

/// The world read, its PROTO defaults hoisted, and written.
inline std::string rewrittenWorld(const std::string& body) {
  VPFile* file = parseWorld(body);
  file->hoistProtoDefaults();
  return writtenWorld(file);
}

/// The world read and scanned.
inline VPFile* scannedWorld(const std::string& body) {
  VPFile* file = parseWorld(body);
  file->scanNodes();
  return file;
}

/// The world read, scanned, its PROTO defaults hoisted and the cascade run.
inline VPFile* cascadedWorld(const std::string& body) {
  VPFile* file = parseWorld(body);
  file->scanNodes();
  file->hoistProtoDefaults();
  file->runCascade();
  return file;
}

/// The world through every pass of a run under the run options, written
/// once (a run pares its output again until it settles).
inline std::string compressedWorld(const std::string& body) {
  VPFile* file = cascadedWorld(body);
  file->pruneProtoInterfaces();
  file->pruneSwitches();
  file->dropDefNames();
  if (digitsOption() != 0) file->roundUnseenFloats(digitsOption());
  if (vrml97Option()) file->shareIdenticalNodes();
  return writtenWorld(file);
}

/// Runs the work on a thread with a stack as large as a run's passes get, for
/// deep event cascades and simulations.
inline void onLargeStack(std::function<void()> work) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, size_t(4) << 30);
  pthread_t thread;
  pthread_create(
      &thread, &attributes,
      [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
      },
      &work);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

/// A new program, reachable to the end of the tests as a scene's would be.
inline JSParser* newParser() {
  static std::vector<JSParser*>* const programs = new std::vector<JSParser*>;
  programs->push_back(new JSParser);
  return programs->back();
}

inline JSParser* parseProgram(const std::string& script) {
  JSParser* program = newParser();
  std::string text = script;
  program->parseScript(&text[0]);
  return program;
}

/// The script as the printer writes it back.
inline std::string printedScript(const std::string& script) {
  JSParser* program = parseProgram(script);
  return printedText([program](FILE* stream) { program->printFunctions(stream); });
}

/// The .wrl files one level below `root`, the real worlds of others.
inline std::vector<std::string> corpusWorlds(const std::string& root) {
  std::vector<std::string> worlds;
  DIR* top = opendir(root.c_str());
  if (top == nullptr) return worlds;
  while (dirent* entry = readdir(top)) {
    std::string dir = root + "/" + entry->d_name;
    if (entry->d_name[0] == '.') continue;
    if (DIR* sub = opendir(dir.c_str())) {
      while (dirent* file = readdir(sub)) {
        std::string name = file->d_name;
        if (name.size() > 4 && name.substr(name.size() - 4) == ".wrl") worlds.push_back(dir + "/" + name);
      }
      closedir(sub);
    }
  }
  closedir(top);
  return worlds;
}

/// A pattern that matches the text literally, for death-test expectations.
inline std::string literally(const std::string& text) {
  std::string pattern;
  for (char c : text) {
    if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) pattern += '\\';
    pattern += c;
  }
  return pattern;
}

/// The first line of a failed check's report.
inline std::string checkReport(const std::string& condition) {
  return "Assertion failed \"" + literally(condition) + "\", File: ";
}

#endif
