#include "install/Pending.h"

namespace tks::install {

bool installLauncher(std::string_view, std::string_view, std::string_view) { return true; }
bool isBroken(std::string_view) { return false; }
bool cleanUp(std::string_view) { return true; }

}  // namespace tks::install
