#include "platform/apple/argument_domain.h"

#include <crt_externs.h>

#include <string_view>

namespace tks::platform::apple {
namespace {

bool isName(std::string_view argument) { return argument.size() > 1 && argument.front() == '-'; }

TKSDictionary readArguments() {
  TKSDictionary domain;
  const int count = *_NSGetArgc();
  char* const* arguments = *_NSGetArgv();
  // The first one is the program's own name.
  for (int i = 1; i + 1 < count; ++i) {
    const std::string_view name = arguments[i];
    const std::string_view value = arguments[i + 1];
    if (!isName(name) || isName(value)) continue;
    domain.set(name.substr(1), value);
    ++i;
  }
  return domain;
}

}  // namespace

// Read once: the command line of a process does not change, but some programs write over it later.
const TKSDictionary& argumentDomain() {
  static const auto& arguments = *new TKSDictionary(readArguments());
  return arguments;
}

}  // namespace tks::platform::apple
