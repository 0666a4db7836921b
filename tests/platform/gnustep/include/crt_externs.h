#pragma once

#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

inline char*** _NSGetEnviron() { return &environ; }

/// What the kernel keeps of the command line; it ends with nothing.
inline std::vector<char*>& commandLine() {
  static auto& pointers = *[] {
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    static auto& text = *new std::string(std::istreambuf_iterator<char>(file), {});
    auto* const made = new std::vector<char*>;
    for (std::size_t at = 0; at < text.size(); at = text.find('\0', at) + 1) made->push_back(text.data() + at);
    made->push_back(nullptr);
    return made;
  }();
  return pointers;
}

inline int* _NSGetArgc() {
  static int count = static_cast<int>(commandLine().size()) - 1;
  return &count;
}

inline char*** _NSGetArgv() {
  static char** arguments = commandLine().data();
  return &arguments;
}
