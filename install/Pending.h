#pragma once

#include <string_view>

namespace tks::install {

// Operations on the installed launcher whose implementation is still being written. The facade and the launcher's
// record reach them through here alone.

/// Whether a launcher bundle is missing or refused by the system's assessment.
bool isBroken(std::string_view appPath);
/// Removes a folder, ending what runs from it.
bool cleanUp(std::string_view folderPath);

}  // namespace tks::install
