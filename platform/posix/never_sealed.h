#pragma once

#include <string_view>

#include "foundation/values/FilePaths.h"

namespace tks::posix {

/// The notes of the system's file browser, which it leaves wherever it goes.
inline constexpr std::string_view kStoreFile = ".DS_Store";

/// Whether no seal of any form names a file, by its path below the folder that the seal covers. That the executable,
/// the Info.plist and the parts of the signature are not named either is for the caller, who knows where they are.
inline bool isNeverSealed(std::string_view path) {
  return lastPathComponent(path) == kStoreFile || path == "PkgInfo" || path.ends_with(".lproj/locversion.plist");
}

}  // namespace tks::posix
