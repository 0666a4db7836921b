#pragma once

#include <string>

namespace tks::platform::apple {

/// Whether the seal of an application bundle names everything that is in it, and no link leaves the bundle. What is
/// never sealed may be there without a name: the signature itself, what the signature of the executable covers, and
/// what the system leaves behind. Code that is named as a whole is not looked into. The seal itself is taken for true.
bool sealNamesEverything(const std::string& bundle);

}  // namespace tks::platform::apple
