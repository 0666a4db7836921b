#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "tools/spctl/Assessment.h"

// spctl -a [-t execute] [-v...] PATH...   assesses applications; the verdict goes to standard error.

namespace {

using namespace tks::assessment;

int complain() {
  std::fputs("usage: spctl -a [-t execute] [-v] path ...\n", stderr);
  return kUsage;
}

/// An argument such as "-avv": several flags in one.
bool readFlags(std::string_view flags, bool& assessing, int& verbosity) {
  for (const char flag : flags) {
    if (flag == 'a') {
      assessing = true;
    } else if (flag == 'v') {
      ++verbosity;
    } else {
      return false;
    }
  }
  return !flags.empty();
}

}  // namespace

int main(int argc, char** argv) {
  bool assessing = false;
  int verbosity = 0;
  std::vector<std::string> paths;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--assess") {
      assessing = true;
    } else if (argument == "--verbose") {
      ++verbosity;
    } else if (argument == "-t" || argument == "--type") {
      if (++i == argc || std::string_view(argv[i]) != "execute") return complain();
    } else if (argument.starts_with('-')) {
      if (!readFlags(argument.substr(1), assessing, verbosity)) return complain();
    } else {
      paths.emplace_back(argument);
    }
  }
  if (!assessing || paths.empty()) return complain();
  int exitCode = kAccepted;
  for (const std::string& path : paths) {
    const Verdict verdict = assess(path, verbosity);
    std::fputs(verdict.text.c_str(), stderr);
    exitCode = std::max(exitCode, verdict.exitCode);
  }
  return exitCode;
}
