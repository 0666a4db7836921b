#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tks::gnulinux {

/// The folders that hold users' homes, as masking wants them: "/home/", and the folder that the given home lies in.
std::vector<std::string> usersFoldersWith(std::string_view realHome);

}  // namespace tks::gnulinux
