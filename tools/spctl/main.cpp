#include <cstdio>
#include <string>
#include <vector>

#include "codesign/assessment.h"

// spctl -a [-t execute] [-v...] PATH...   assesses applications; the verdict goes to standard error.

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  const tks::assessment::Verdict verdict = tks::assessment::run(arguments);
  std::fputs(verdict.text.c_str(), stderr);
  return verdict.exitCode;
}
