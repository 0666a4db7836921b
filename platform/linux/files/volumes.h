#pragma once

#include <string>
#include <vector>

namespace tks::gnulinux {

/// Where volumes stand, as this process sees them: absolute paths without links. Empty when the kernel does not tell.
std::vector<std::string> placesOfVolumes();

}  // namespace tks::gnulinux
