#include "install/PackageVersions.h"

#include <algorithm>

#include "foundation/values/Characters.h"

namespace tks::install {

std::string givenVersion(std::string_view version) {
  std::string result(trimmed(version));
  std::replace(result.begin(), result.end(), ',', '.');
  return result;
}

std::string comparableVersion(std::string_view version) {
  std::string result(version);
  std::erase(result, ' ');
  std::replace(result.begin(), result.end(), ',', '.');
  return result;
}

}  // namespace tks::install
