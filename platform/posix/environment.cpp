#include "platform/posix/environment.h"

#include <cstdlib>

namespace tks::posix {

std::vector<std::string> reducedEnvironment(const std::vector<std::string>& names) {
  std::vector<std::string> variables;
  for (const std::string& name : names) {
    if (const char* const value = std::getenv(name.c_str())) variables.push_back(name + "=" + value);
  }
  return variables;
}

}  // namespace tks::posix
