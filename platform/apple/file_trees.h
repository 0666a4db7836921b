#pragma once

#include <string>

#include <tksinterface/TKSError.h>

namespace tks::platform::apple {

// See platform::Files. The paths have no closing slashes.

bool removeTree(const std::string& path, TKSError* error);
bool removeEmptyFolder(const std::string& path, TKSError* error);
bool copyTree(const std::string& from, const std::string& to, TKSError* error);
bool moveTree(const std::string& from, const std::string& to, TKSError* error);
bool exchangeTrees(const std::string& first, const std::string& second, TKSError* error);

}  // namespace tks::platform::apple
