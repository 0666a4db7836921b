#include "install/PackageVersions.h"

#include <algorithm>

namespace tks::install {

std::string givenVersion(std::string_view version) {
  constexpr std::string_view kBlanksAndLineEnds = " \t\n\v\f\r";
  const std::size_t begin = version.find_first_not_of(kBlanksAndLineEnds);
  if (begin == std::string_view::npos) return {};
  std::string result(version.substr(begin, version.find_last_not_of(kBlanksAndLineEnds) - begin + 1));
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
