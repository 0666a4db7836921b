#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tks::versions {

/// The numbers of a version, as texts: "V4-2" gives "4" and "2". Blanks are taken out before: "4 2" is 42.
std::vector<std::string> parts(std::string_view version);

/// Whether the first pair of parts that differ makes `candidate` the newer one. Both have the same number of parts.
bool isNewerByParts(const std::vector<std::string>& candidate, const std::vector<std::string>& local);

}  // namespace tks::versions
