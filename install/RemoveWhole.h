#pragma once

#include <string>

#include <tksinterface/TKSError.h>

namespace tks::install {

/// Removes a tree that an installation made or put aside, links never followed. Where folders in it take even their
/// owner the right to change them, he gets it first. False, and `error`, when something remains. Any thread.
bool removeWhole(const std::string& path, TKSError* error);

}  // namespace tks::install
