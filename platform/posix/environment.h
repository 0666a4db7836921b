#pragma once

#include <string>
#include <vector>

namespace tks::posix {

/// The variables of this process's environment that have one of these names, as "NAME=value", in the order of the
/// names.
std::vector<std::string> reducedEnvironment(const std::vector<std::string>& names);

}  // namespace tks::posix
